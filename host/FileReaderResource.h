#pragma once
#include <cstdint>

#include "AudioReadRequest.h"
#include "FileReadInstance.h"
#include "IndexInfo.h"
#include "PlayFileMetadata.h"
#include "RequestStatus.h"
#include "Vector.h"
#include "VideoReadRequest.h"
#include "VlExport.h"
#include "VlPtr.h"
#include "VlResourceTypeBase.h"
#include "VlWString.h"

namespace Vl {

// A component that reads one kind of media file. Requests queued with
// async true are served by worker threads, at most getMaxRequests() at once
// and one file's requests one at a time, in the order asked.
class VL_HOST_API FileReaderResource : public VlResourceTypeBase
{
public:
    FileReaderResource(const String& name, std::uint32_t typeCode);
    ~FileReaderResource() override;

    virtual void requestHasCompletedCb(Vl::Ptr<iObject>& request, RequestStatus::eFileReqStatus status);
    virtual Vl::Ptr<FileReadInstance> openFile(const VlWString& path, FileReadInstance::OpenType type) = 0;
    // Builds a request for frame (with its group record when wholeGroup is set,
    // for long-GOP decoders) and queues it. An asynchronous request gets its
    // record where it is served, so that the asking thread never waits for
    // the file while another request reads it.
    virtual Vl::Ptr<VideoReadRequest> readVideoSample(const Vl::Ptr<FileReadInstance>& instance, unsigned frame,
                                                      bool wholeGroup, VideoReadRequest::eResultType type,
                                                      void* image, void* issuer, bool async);
    virtual void queueReadRequest(Vl::Ptr<VideoReadRequest>& request, bool async);
    virtual void readAudioSample(Vl::Ptr<AudioReadRequest>& request, bool async);
    virtual bool isFileTypeSupported(const VlWString& path, FileReadInstance::OpenType type);
    // Bit 1: the video can be decoded; bit 2: the audio can be played.
    virtual int isFileFormatSupported(const VlWString& path, FileReadInstance::OpenType type,
                                      const PlayFileMetadata& metadata) = 0;
    virtual const Vector<VlWString>& getSupportedFileTypes() const;
    virtual void VlFileIxCache_open(Vl::Ptr<FileReadInstance>& instance, Vl::Ptr<IndexInfo>& record,
                                    unsigned frame) = 0;
    virtual void VlFileIndexClose(void* context, Vl::Ptr<IndexInfo>& record);
    virtual std::uint32_t getMaxRequests() const = 0;
    virtual int readVideo(Vl::Ptr<VideoReadRequest>& request) = 0;
    virtual std::uint32_t getOutputImageFormat(Vl::Ptr<FileReadInstance>& instance) = 0;
    virtual bool canExtractTo(const VlWString& from, const VlWString& to);
    virtual int extractFiles(const VlWString& from, const VlWString& to);
    virtual int readAudio(Vl::Ptr<AudioReadRequest>& request) = 0;

    // Waits until every queued request has completed.
    void waitForIdle();
    // Stops the workers once the queue is drained; later async requests run
    // on the caller's thread. The editor calls it before releasing the resource.
    void stopRequests();
    // Most requests that were ever being served at once.
    std::uint32_t peakInFlight() const;
    // Serves request on the calling thread, which is about to wait for it,
    // when no worker has taken it yet and it is next for its file; false
    // when it is left to the workers.
    bool serveWaiting(const VideoReadRequest* request);

protected:
    void addFileType(const VlWString& type);
    // Completes a request that its reader could not finish (it threw), so
    // that no one waits on it for ever.
    static void failRequest(const Vl::Ptr<VideoReadRequest>& video, const Vl::Ptr<AudioReadRequest>& audio);

private:
    struct Job;
    struct Queue;
    bool enqueue(Vl::Ptr<VideoReadRequest> video, Vl::Ptr<AudioReadRequest> audio, bool wholeGroup = false);
    void serve(Queue& queue);
    void run(Queue& queue, Job& job, bool worker);

    Vector<VlWString> fileTypes_;
    Queue* queue_;
};

} // namespace Vl
