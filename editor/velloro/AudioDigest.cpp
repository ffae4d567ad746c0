#include "AudioDigest.h"

#include <algorithm>
#include <utility>

namespace velloro {

AudioDigest::AudioDigest(Vl::FileReaderResource& reader, Vl::Ptr<FileReadInstance> file, std::uint32_t stream)
    : reader_(reader), file_(std::move(file)), stream_(stream)
{
}

AudioDigest::~AudioDigest()
{
    for (Vl::Ptr<AudioReadRequest>& request : inFlight_)
        request->wait();
}

void AudioDigest::hash(const Aud::StreamBufferList& buffers, std::uint32_t samples)
{
    const std::uint32_t bps = buffers.bytesPerSample();
    const std::uint32_t channels = buffers.channels();
    interleaved_.resize(std::size_t(samples) * bps * channels);
    unsigned char* to = interleaved_.data();
    for (std::uint32_t s = 0; s < samples; ++s)
        for (std::uint32_t c = 0; c < channels; ++c) {
            const unsigned char* from = buffers.channel(c) + std::size_t(s) * bps;
            to = std::copy(from, from + bps, to);
        }
    md5_.update(interleaved_.data(), interleaved_.size());
    hashed_ += samples;
}

// Hashes the requests at the front that have finished (all of them when
// waiting). A request answered short leaves the ones behind it asking from
// the wrong sample: they are dropped, and the rest is read one by one.
void AudioDigest::take(bool wait)
{
    while (!inFlight_.empty()) {
        Vl::Ptr<AudioReadRequest> request = inFlight_.front();
        const RequestStatus::eFileReqStatus status = request->getStatus();
        if (!wait && (status == RequestStatus::eNone || status == RequestStatus::ePending ||
                      status == RequestStatus::eInProgress))
            return;
        inFlight_.pop_front();
        const bool completed = request->wait() == RequestStatus::eCompleted;
        if (shortAnswer_)
            continue;
        const std::uint32_t got = completed ? request->result().samples() : 0;
        if (got > 0)
            hash(request->result(), got);
        if (got != request->getSampleCount())
            shortAnswer_ = true;
        if (got == 0)
            resume_ = request->getSampleCount() / 2; // as if asked one by one: that size was refused
    }
}

void AudioDigest::askUpTo(std::uint64_t limit)
{
    while (!shortAnswer_ && asked_ < limit && inFlight_.size() < kMaxInFlight && asked_ <= UINT32_MAX - kRequest) {
        Vl::Ptr<AudioReadRequest> request(new AudioReadRequest(file_, stream_, asked_, kRequest));
        reader_.readAudioSample(request, true);
        inFlight_.push_back(request);
        asked_ += kRequest;
    }
    take(false);
}

std::string AudioDigest::finish()
{
    take(true);
    // The reader answers a request that runs past the end with what it has
    // (possibly nothing): shrink the request until a single sample is refused.
    std::uint32_t n = resume_;
    while (n > 0) {
        if (hashed_ > UINT32_MAX - n)
            break;
        Vl::Ptr<AudioReadRequest> request(new AudioReadRequest(file_, stream_, hashed_, n));
        reader_.readAudioSample(request, true);
        const std::uint32_t got = request->wait() == RequestStatus::eCompleted ? request->result().samples() : 0;
        if (got > 0) {
            hash(request->result(), got);
            continue;
        }
        n /= 2;
    }
    return md5_.hexDigest();
}

} // namespace velloro
