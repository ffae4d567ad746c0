#include <condition_variable>
#include <mutex>

#include "host/AudioReadRequest.h"
#include "host/FileReaderResource.h"
#include "host/VideoReadRequest.h"

// Status and completion of a request: set by a worker, waited on by the
// editor's thread.
struct VideoReadRequest::State
{
    mutable std::mutex mutex;
    mutable std::condition_variable done;
    RequestStatus::eFileReqStatus status = RequestStatus::ePending;
    bool finished = false;
    Vl::Ptr<FrameBuffer> result;
    Callback callback;
};

VideoReadRequest::VideoReadRequest(const Vl::Ptr<FileReadInstance>& instance, unsigned frame, eResultType type)
    : instance_(instance), frame_(frame), type_(type), state_(new State)
{
}

VideoReadRequest::~VideoReadRequest()
{
    delete state_;
}

void VideoReadRequest::setResult(const Vl::Ptr<FrameBuffer>& result)
{
    std::lock_guard lock(state_->mutex);
    state_->result = result;
}

Vl::Ptr<FrameBuffer> VideoReadRequest::getResult() const
{
    std::lock_guard lock(state_->mutex);
    return state_->result;
}

RequestStatus::eFileReqStatus VideoReadRequest::getStatus() const
{
    std::lock_guard lock(state_->mutex);
    return state_->status;
}

void VideoReadRequest::setCallback(Callback cb)
{
    std::lock_guard lock(state_->mutex);
    state_->callback = std::move(cb);
}

void VideoReadRequest::invokeCallback(RequestStatus::eFileReqStatus status)
{
    Callback cb;
    {
        std::lock_guard lock(state_->mutex);
        cb = state_->callback;
    }
    if (cb)
        cb(*this, status);
}

void VideoReadRequest::requestHasCompleted(RequestStatus::eFileReqStatus status)
{
    {
        std::lock_guard lock(state_->mutex);
        state_->status = status;
    }
    if (resource_) {
        Vl::Ptr<iObject> self(this);
        resource_->requestHasCompletedCb(self, status);
    } else {
        invokeCallback(status);
    }
    std::lock_guard lock(state_->mutex);
    state_->finished = true;
    state_->done.notify_all();
}

RequestStatus::eFileReqStatus VideoReadRequest::wait() const
{
    // One that no worker has taken yet is served here: the waiting thread
    // would only sleep until a worker had woken up for it.
    if (resource_ && !hasCompleted())
        resource_->serveWaiting(this);
    std::unique_lock lock(state_->mutex);
    state_->done.wait(lock, [this] { return state_->finished; });
    return state_->status;
}

bool VideoReadRequest::hasCompleted() const
{
    std::lock_guard lock(state_->mutex);
    return state_->finished;
}

struct AudioReadRequest::State
{
    mutable std::mutex mutex;
    mutable std::condition_variable done;
    RequestStatus::eFileReqStatus status = RequestStatus::ePending;
    bool finished = false;
    Callback callback;
};

AudioReadRequest::AudioReadRequest(const Vl::Ptr<FileReadInstance>& instance, std::uint32_t channelStream,
                                   std::uint32_t startSample, std::uint32_t sampleCount, std::uint32_t word)
    : instance_(instance), stream_(channelStream), start_(startSample), count_(sampleCount), word_(word),
      state_(new State)
{
}

AudioReadRequest::~AudioReadRequest()
{
    delete state_;
}

std::uint32_t AudioReadRequest::getBytesPerMCS() const
{
    if (!instance_)
        return 0;
    const Aud::Metadata& a = instance_->metadata()->audio();
    std::uint64_t bytes = std::uint64_t(a.channelsPerStream()) * ((a.bitsPerSample() + 7) / 8) * count_;
    return bytes > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<std::uint32_t>(bytes);
}

void AudioReadRequest::setStatus(RequestStatus::eFileReqStatus status)
{
    std::lock_guard lock(state_->mutex);
    state_->status = status;
    state_->finished = status != RequestStatus::ePending && status != RequestStatus::eInProgress;
    state_->done.notify_all();
}

RequestStatus::eFileReqStatus AudioReadRequest::getStatus() const
{
    std::lock_guard lock(state_->mutex);
    return state_->status;
}

void AudioReadRequest::setCallback(Callback cb)
{
    std::lock_guard lock(state_->mutex);
    state_->callback = std::move(cb);
}

bool AudioReadRequest::hasCallback() const
{
    std::lock_guard lock(state_->mutex);
    return static_cast<bool>(state_->callback);
}

void AudioReadRequest::invokeCallback(RequestStatus::eFileReqStatus status)
{
    Callback cb;
    {
        std::lock_guard lock(state_->mutex);
        cb = state_->callback;
    }
    if (cb)
        cb(*this, status);
}

RequestStatus::eFileReqStatus AudioReadRequest::wait() const
{
    std::unique_lock lock(state_->mutex);
    state_->done.wait(lock, [this] { return state_->finished; });
    return state_->status;
}

bool AudioReadRequest::hasCompleted() const
{
    std::lock_guard lock(state_->mutex);
    return state_->finished;
}
