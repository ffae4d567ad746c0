#include "AVI/FileWriterFileInfo.h"

#include <string>

#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "OS/VlErrFromHresult.h"
#include "host/Log.h"
#include "host/TimedTaskManager.h"
#include "util/stringUtils.h"

namespace avi {

namespace {

// Every frame's header track sample.
const unsigned char kHeaderSample[4] = {0, 0, 0, 0};

// The editor's profiler entry for the writer, looked up once for the process.
const Vl::Ptr<TimedTask>& writerTask()
{
    static const Vl::Ptr<TimedTask> task = TimedTaskManager::getTimedTask("AVI FileWriter");
    return task;
}

// One section of the profiler entry at a time.
class Section
{
public:
    explicit Section(const char* label) : task_(writerTask()) { begin(label); }
    ~Section() { end(); }
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;

    void begin(const char* label)
    {
        end();
        if (task_) {
            task_->start(label);
            open_ = true;
        }
    }
    void end()
    {
        if (open_)
            task_->stop();
        open_ = false;
    }

private:
    const Vl::Ptr<TimedTask>& task_;
    bool open_ = false;
};

} // namespace

FileWriter::FileInfo::FileInfo(const VlWString& path, Morvane::Avi::FileWriter* writer,
                               const Vl::FileWriterParams& params, Morvane::Avi::TrackStructuralData* tracks,
                               Morvane::Avi::TrackData* trackData, std::uint16_t trackCount,
                               std::uint16_t headerTrack, std::uint16_t videoTrack, std::uint16_t firstAudioTrack)
    : Vl::FileInfoBase(path, params, params.audioSettings_.channelsPerStream() != 1),
      tracks_(tracks),
      trackData_(trackData),
      trackCount_(trackCount),
      headerTrack_(headerTrack),
      videoTrack_(videoTrack),
      firstAudioTrack_(firstAudioTrack),
      writer_(writer)
{
}

FileWriter::FileInfo::~FileInfo()
{
    // The writer thread calls writeSurface, which uses what follows.
    finishWriterThread();
    deinitialise();
    // Finishes the indexes and header and closes the file.
    delete writer_;
    writer_ = nullptr;
    for (std::uint32_t i = 0; i < trackCount_; ++i) {
        delete[] tracks_[i].pExtraData;
        tracks_[i].pExtraData = nullptr;
    }
    delete[] trackData_;
    delete[] tracks_;
}

int FileWriter::FileInfo::writeFinish()
{
    const int result = Vl::FileInfoBase::writeFinish();
    // A cancelled or failed take is closed by the destructor; only a
    // complete one owes the caller the outcome of its close.
    if (result != 1 || !writer_ || !writer_->isOpen())
        return result;
    const int closed = VlErrFromHresult(writer_->finish());
    if (closed != 1)
        LogBoth("%s\n", Morvane::convertString(writer_->getLastError()).c_str());
    return closed;
}

int FileWriter::FileInfo::initialise()
{
    return 1;
}

void FileWriter::FileInfo::deinitialise() {}

int FileWriter::FileInfo::writeSurface(unsigned char* data, unsigned int size, VlroMpeg2FrameTypes type)
{
    Section section("compress video");

    Morvane::Avi::TrackData& header = trackData_[headerTrack_];
    header.pData = kHeaderSample;
    header.cbData = 4;
    header.dwDisplayNumber = 0;
    header.dwFrameType = 0;

    Morvane::Avi::TrackData& video = trackData_[videoTrack_];
    video.pData = data;
    video.cbData = size;
    video.dwDisplayNumber = currentFrameValue();
    video.dwFrameType = type;

    const Aud::AudioSettings& audio = params().audioSettings_;
    const std::uint32_t streams = audio.audioStreams();
    if (streams * audio.channelsPerStream() != 0) {
        section.begin("get audio");
        std::uint32_t count = 0;
        int result = getNextAudioBuffers(count);
        if (result != 1)
            return result;
        count *= audio.channelsPerStream();
        for (std::uint32_t i = 0; i < streams && firstAudioTrack_ + i < trackCount_; ++i) {
            Morvane::Avi::TrackData& t = trackData_[firstAudioTrack_ + i];
            t.pData = currentAudioBuffer(i);
            t.cbData = audio.stride() * count;
        }
    }

    section.begin("write ");
    int result = VlErrFromHresult(writer_->WriteSamples(trackData_, static_cast<short>(trackCount_)));
    if (result != 1) {
        std::string text = Morvane::convertString(writer_->getLastError());
        LogBoth("%s\n", text.c_str());
    }
    return result;
}

} // namespace avi
