#pragma once
#include <cstdint>
#include <map>
#include <vector>

#include "AVI/DvFrameInfo.h"
#include "host/AudioReadRequest.h"
#include "host/CriticalSection.h"
#include "host/FileReadInstance.h"
#include "host/FrameBuffer.h"
#include "host/IndexInfo.h"
#include "host/VideoReadRequest.h"
#include "host/iMemHolder.h"

class AlignedByteBufferImpl;

namespace Morvane::Avi {
class FileReader;
}

namespace avi {

// One AVI file opened by the editor: the container reader on it, the
// metadata translated for the editor, and its frame, group and audio reads.
class FileInfo : public FileReadInstance
{
public:
    FileInfo(const VlWString& path, OpenType type);
    ~FileInfo() override;
    FileInfo(const FileInfo&) = delete;
    FileInfo& operator=(const FileInfo&) = delete;

    void VlFileIxCache_open(Vl::Ptr<IndexInfo>& out, unsigned frame) override;
    bool readMetadata() override;

    void readImageDimensions();
    std::uint32_t readScanMode();
    double readTrackRate(int stream);
    void readExtendedMetadata();

    // One frame, or the whole group that gop describes, into one block.
    bool readVideo(Vl::Ptr<iMemHolder>& out, unsigned frame, Vl::Ptr<IndexInfo>& gop);
    int readVideo(Vl::Ptr<FrameBuffer>& out, Vl::Ptr<VideoReadRequest>& request);
    // The frame whose bytes the file shows at `frame` (itself unless its
    // entry is empty: a dropped frame).
    unsigned storedFrame(unsigned frame);
    int readAudio(Aud::StreamBufferList& buffers, Vl::Ptr<AudioReadRequest>& request);

    bool isOpen() const { return reader_ != nullptr; }
    std::uint32_t videoBufferSize() const { return videoBufferSize_; }
    std::uint32_t sectorSize() const { return sectorSize_; }
    std::uint32_t timecodeStreamCount() const { return timecodeStreamCount_; }
    std::uint32_t startTimecode() const { return startTimecode_; }
    double baseRate() const { return baseRate_; }
    std::size_t indexCacheSize();

protected:
    // What the container says of timecode: a seam for files whose
    // timecode the container does not describe.
    virtual bool isTimeCodeStream(int stream) const;
    virtual std::uint32_t streamStartTimecode(int stream) const;

private:
    int readInPlace(AlignedByteBufferImpl& group, unsigned frame, std::uint64_t total, std::uint64_t& used);
    bool groupSpan(unsigned first, unsigned count, std::uint64_t fileBytes, std::uint64_t& span);
    bool readGroupWhole(AlignedByteBufferImpl& group, unsigned first, unsigned count, std::uint64_t total);
    void readPictureFormat(std::uint32_t bpp);
    void readVideoMetadata();
    void readAudioMetadata();
    // The plain format tag that a WAVE_FORMAT_EXTENSIBLE stream carries, or 0.
    std::uint32_t extensibleSubFormat(int stream) const;
    // The first frame's scan and timecode, for DV; read once.
    const DvFrameInfo& firstDvFrame();
    // The start timecode the file labels its first frame with; false if none.
    bool readFileTimecode();

    std::uint32_t videoBufferSize_ = 0;
    std::uint32_t audioBufferSize_ = 0;
    bool resolutionCoded_ = false;
    std::uint32_t videoStream_ = 0;
    std::uint32_t timecodeStreamCount_ = 0;
    std::uint32_t timecodeStream_ = 0;
    double baseRate_ = 0.0;
    bool dropFrame_ = false;
    double videoRate_ = 0.0;
    std::uint32_t startTimecode_ = 0;
    std::uint32_t audioStream_ = 0;
    std::uint32_t sectorSize_ = 512;
    bool dvFrameRead_ = false;
    DvFrameInfo dvFrame_;
    CriticalSection cacheLock_;
    Morvane::Avi::FileReader* reader_ = nullptr;
    std::vector<Vl::Ptr<IndexInfo>> indexCache_;
    // The cache by first frame, and the most frames any record holds: a
    // lookup tries the few records that can hold the frame instead of every
    // group visited so far.
    std::multimap<std::uint32_t, std::size_t> indexStarts_;
    std::uint32_t indexLongest_ = 0;

    Vl::Ptr<IndexInfo> cachedRecord(unsigned frame) const;
    void cacheRecord(const Vl::Ptr<IndexInfo>& record);
};

} // namespace avi
