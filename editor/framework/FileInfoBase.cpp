#include "host/FileInfoBase.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "host/FrameDuration.h"

namespace Vl {

namespace {

// Frames the editor may queue ahead of the writer thread: eight, or as many
// as fit in 8 MiB, so that large frames do not pile up in memory. One
// frame is always taken, however large.
constexpr std::size_t kQueueDepth = 8;
constexpr std::uint64_t kQueueBytes = 8u << 20;

std::uint32_t ringCapacity(const FileWriterParams& params)
{
    // Four seconds: far more than one frame's share, so a frame never waits
    // on audio that cannot fit.
    std::uint64_t samples = std::uint64_t(params.audioSettings_.samplesPerSec()) * 4;
    return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(samples, 65536, 1u << 24));
}

std::uint32_t totalChannels(const FileWriterParams& params)
{
    std::uint64_t n = std::uint64_t(params.audioSettings_.audioStreams()) * params.audioSettings_.channelsPerStream();
    return n > 1024 ? 0 : static_cast<std::uint32_t>(n);
}

} // namespace

struct FileInfoBase::State
{
    explicit State(const FileWriterParams& p) : params(p) {}

    struct Entry
    {
        Vl::Ptr<FrameBuffer> frame;
        VlroMpeg2FrameTypes type;
        std::int64_t presentation; // negative: the count of frames written
    };

    FileWriterParams params;
    bool interleave = false;
    std::uint32_t durationNum = 0;
    std::uint32_t durationDen = 1;

    mutable std::mutex mutex;
    std::condition_variable changed;
    std::deque<Entry> queue;
    std::uint64_t queuedBytes = 0;
    std::thread thread;
    bool started = false;
    bool threadDone = false;
    bool videoFinished = false;
    bool cancelled = false;
    bool failed = false;
    int error = 1;
    std::uint32_t framesWritten = 0;
    std::uint32_t currentValue = 0;

    // Used by the writer thread only.
    std::uint64_t audioFrames = 0;
    std::vector<std::vector<unsigned char>> audioBuffers;
};

FileInfoBase::FileInfoBase(const VlWString& path, const FileWriterParams& params, bool interleave)
    : FileWriteInstance(path),
      Aud::AudioSource(totalChannels(params), params.audioSettings_.stride(),
                       totalChannels(params) && params.audioSettings_.stride() ? ringCapacity(params) : 0),
      state_(new State(params))
{
    state_->interleave = interleave;
    toRational(getFrameDuration(params.videoCompressionInfo_.frameRate()), state_->durationNum, state_->durationDen);
    state_->audioBuffers.resize(params.audioSettings_.audioStreams() > 1024 ? 0 : params.audioSettings_.audioStreams());
}

FileInfoBase::~FileInfoBase()
{
    finishWriterThread();
    delete state_;
}

const FileWriterParams& FileInfoBase::params() const
{
    return state_->params;
}

int FileInfoBase::writeSurface(Vl::Ptr<FrameBuffer>& frame)
{
    return queue(frame, eVlroFrameI, -1);
}

int FileInfoBase::writeSurface(Vl::Ptr<FrameBuffer>& frame, VlroMpeg2FrameTypes type, std::uint32_t presentation)
{
    return queue(frame, type, presentation);
}

int FileInfoBase::queue(Vl::Ptr<FrameBuffer>& frame, VlroMpeg2FrameTypes type, std::int64_t presentation)
{
    if (!frame)
        return 0;
    State& s = *state_;
    std::unique_lock lock(s.mutex);
    if (!s.started && !s.cancelled && !s.videoFinished) {
        s.started = true;
        s.thread = std::thread([this] { threadFn(); });
    }
    const std::uint64_t size = frame->size();
    s.changed.wait(lock, [&] {
        return s.cancelled || s.failed || s.videoFinished || s.queue.empty() ||
               (s.queue.size() < kQueueDepth && s.queuedBytes + size <= kQueueBytes);
    });
    if (s.failed)
        return s.error;
    if (s.cancelled || s.videoFinished)
        return 0;
    s.queue.push_back({frame, type, presentation});
    s.queuedBytes += size;
    s.changed.notify_all();
    return 1;
}

void FileInfoBase::threadFn()
{
    State& s = *state_;
    std::vector<unsigned char> padded;
    for (;;) {
        State::Entry entry;
        {
            std::unique_lock lock(s.mutex);
            s.changed.wait(lock, [&] { return s.cancelled || !s.queue.empty() || s.videoFinished; });
            if (s.cancelled) {
                s.queue.clear();
                s.queuedBytes = 0;
                break;
            }
            if (s.queue.empty())
                break;
            entry = std::move(s.queue.front());
            s.queue.pop_front();
            s.queuedBytes -= entry.frame->size();
            s.changed.notify_all();
            if (s.failed)
                continue;
            s.currentValue = entry.presentation < 0 ? s.framesWritten : static_cast<std::uint32_t>(entry.presentation);
        }
        const iMemHolder* memory = entry.frame->memory().get();
        unsigned char* bytes = const_cast<unsigned char*>(entry.frame->bytes());
        std::uint32_t size = entry.frame->size();
        // The container writes an odd-sized chunk's pad byte from the byte
        // after the data: give it a block that has one.
        if (memory && bytes && memory->capacity() - memory->dataOffset() - memory->used() == 0) {
            padded.assign(bytes, bytes + size);
            padded.push_back(0);
            bytes = padded.data();
        }
        int result = writeSurface(bytes, size, entry.type);
        entry.frame.reset();
        bool stop = false;
        {
            std::lock_guard lock(s.mutex);
            if (result == 1) {
                ++s.framesWritten;
            } else if (!s.failed && !s.cancelled) {
                s.failed = true;
                s.error = result;
                stop = true;
            }
            s.changed.notify_all();
        }
        // No audio is taken after a failure: whoever waits for room in the
        // rings is refused now, with the failure's code, rather than never woken.
        if (stop)
            stopAudio(result);
    }
    {
        std::lock_guard lock(s.mutex);
        s.threadDone = true;
        s.changed.notify_all();
    }
    // This thread was the rings' only reader.
    stopAudio();
}

int FileInfoBase::writeFinish()
{
    signalVideoFinished();
    State& s = *state_;
    if (s.thread.joinable() && s.thread.get_id() != std::this_thread::get_id())
        s.thread.join();
    std::lock_guard lock(s.mutex);
    if (s.failed)
        return s.error;
    return s.cancelled ? 0 : 1;
}

void FileInfoBase::finishWriterThread()
{
    setAudioFinishedEvent();
    writeFinish();
}

std::uint32_t FileInfoBase::getItemsPending() const
{
    std::lock_guard lock(state_->mutex);
    return static_cast<std::uint32_t>(state_->queue.size());
}

FileWriteInstance::Status FileInfoBase::getStatus() const
{
    const State& s = *state_;
    std::lock_guard lock(s.mutex);
    Status status;
    status.framesWritten = s.framesWritten;
    status.error = s.error;
    if (s.cancelled)
        status.state = eCancelled;
    else if (s.failed)
        status.state = eFailed;
    else if (s.videoFinished && (!s.started || s.threadDone))
        status.state = eFinished;
    return status;
}

void FileInfoBase::signalVideoFinished()
{
    std::lock_guard lock(state_->mutex);
    state_->videoFinished = true;
    state_->changed.notify_all();
}

void FileInfoBase::signalCancel()
{
    {
        std::lock_guard lock(state_->mutex);
        state_->cancelled = true;
        state_->changed.notify_all();
    }
    stopAudio();
}

std::uint32_t FileInfoBase::currentFrameValue() const
{
    std::lock_guard lock(state_->mutex);
    return state_->currentValue;
}

std::uint64_t FileInfoBase::audioSamplesBefore(std::uint64_t frame) const
{
    const State& s = *state_;
    if (s.durationDen == 0)
        return 0;
    // Exact integer shares: frame * rate * num / den, rounded down.
    unsigned __int128 n = static_cast<unsigned __int128>(frame) * s.params.audioSettings_.samplesPerSec() *
                          s.durationNum / s.durationDen;
    return n > 0xFFFFFFFFFFFFFFFFull ? 0xFFFFFFFFFFFFFFFFull : static_cast<std::uint64_t>(n);
}

int FileInfoBase::getNextAudioBuffers(std::uint32_t& count)
{
    State& s = *state_;
    count = 0;
    const std::uint32_t channels = audioChannels();
    const std::uint32_t streams = static_cast<std::uint32_t>(s.audioBuffers.size());
    if (channels == 0 || streams == 0)
        return 1;
    const std::uint32_t perStream = channels / streams;
    const std::uint32_t bytes = s.params.audioSettings_.stride();
    std::uint64_t share = audioSamplesBefore(s.audioFrames + 1) - audioSamplesBefore(s.audioFrames);
    if (share > 0xFFFFFFFFu)
        return 0;
    std::int64_t got = waitForSamples(static_cast<std::uint32_t>(share));
    if (got < 0)
        return 0;
    const std::uint32_t n = static_cast<std::uint32_t>(got);
    for (std::uint32_t i = 0; i < streams; ++i) {
        std::vector<unsigned char>& buffer = s.audioBuffers[i];
        // One spare byte: the container pads odd chunks from the byte after.
        buffer.assign(std::size_t(n) * perStream * bytes + 1, 0);
        for (std::uint32_t c = 0; c < perStream; ++c)
            takeSamples(i * perStream + c, buffer.data() + std::size_t(c) * bytes, n, perStream * bytes);
    }
    consumeSamples(n);
    ++s.audioFrames;
    count = n;
    return 1;
}

const unsigned char* FileInfoBase::currentAudioBuffer(std::uint32_t stream) const
{
    if (stream >= state_->audioBuffers.size())
        return nullptr;
    return state_->audioBuffers[stream].data();
}

} // namespace Vl
