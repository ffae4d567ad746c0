#pragma once
#include <cstdint>

#include "AudioSource.h"
#include "FileWriteInstance.h"
#include "FileWriterParams.h"
#include "VlExport.h"
#include "VlroMpeg2FrameTypes.h"

namespace Vl {

// The editor's side of a file being written. Frames queued with
// writeSurface(Ptr<FrameBuffer>&) are handed, in order, to the plug-in's
// writeSurface(data, size, type) on the editor's writer thread; the plug-in
// takes each frame's audio with getNextAudioBuffers.
class VL_HOST_API FileInfoBase : public FileWriteInstance, public Aud::AudioSource
{
public:
    // interleave: the streams carry more than one channel each.
    FileInfoBase(const VlWString& path, const FileWriterParams& params, bool interleave);
    ~FileInfoBase() override;

    int writeSurface(Vl::Ptr<FrameBuffer>& frame) override;
    // An encoded frame, queued in storage order with its picture kind and its
    // place in presentation order; the frames queued without them are I
    // frames presented in the order they are queued.
    int writeSurface(Vl::Ptr<FrameBuffer>& frame, VlroMpeg2FrameTypes type, std::uint32_t presentation);
    int writeFinish() override;
    std::uint32_t getItemsPending() const override;
    Status getStatus() const override;
    // One encoded frame and its audio into the file; 1 or a failure code.
    virtual int writeSurface(unsigned char* data, unsigned int size, VlroMpeg2FrameTypes type) = 0;
    virtual void threadFn();

    // Gives the frame being written its share of every audio stream: count
    // is set to the samples per channel, and currentAudioBuffer(i) holds
    // stream i's samples, its channels interleaved. 1, or 0 when writing
    // was cancelled or has failed.
    int getNextAudioBuffers(std::uint32_t& count);
    const unsigned char* currentAudioBuffer(std::uint32_t stream) const;
    // Samples per channel due by the end of frame n: the shares are exact,
    // so audio never drifts from video.
    std::uint64_t audioSamplesBefore(std::uint64_t frame) const;
    // Passed with each frame to the container: its place in presentation order.
    std::uint32_t currentFrameValue() const;

    const FileWriterParams& params() const;
    // The finish and cancel events.
    void signalVideoFinished();
    void signalCancel();

protected:
    // Lets the writer thread write what is queued (with what audio there
    // is) and joins it; a derived class calls it before it tears down what
    // writeSurface uses.
    void finishWriterThread();

private:
    int queue(Vl::Ptr<FrameBuffer>& frame, VlroMpeg2FrameTypes type, std::int64_t presentation);

    struct State;
    State* state_;
};

} // namespace Vl
