#include "host/AudioSource.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <vector>

namespace Aud {

struct AudioSource::Ring
{
    Ring(std::uint32_t c, std::uint32_t b, std::uint32_t cap) : channels(c), bytesPerSample(b), capacity(cap) {}

    std::uint32_t channels;
    std::uint32_t bytesPerSample;
    std::uint32_t capacity; // samples per channel
    std::vector<std::vector<unsigned char>> rings;
    std::uint64_t readPos = 0;  // samples taken out, ever
    std::uint64_t writePos = 0; // samples put in, ever
    bool finished = false;
    bool stopped = false;
    int failure = 0; // why it was stopped, for the feeders
    std::mutex mutex;
    std::condition_variable changed;

    std::uint64_t available() const { return writePos - readPos; }
};

AudioSource::AudioSource(std::uint32_t channels, std::uint32_t bytesPerSample, std::uint32_t capacity)
    : ring_(new Ring(channels, bytesPerSample, capacity))
{
    ring_->rings.assign(channels, std::vector<unsigned char>(std::size_t(capacity) * bytesPerSample));
}

AudioSource::~AudioSource()
{
    delete ring_;
}

std::uint32_t AudioSource::audioChannels() const
{
    return ring_->channels;
}

int AudioSource::copyToCircularBuffer(const StreamBufferList& buffers, std::uint32_t count)
{
    Ring& r = *ring_;
    if (buffers.channels() != r.channels || buffers.bytesPerSample() != r.bytesPerSample ||
        count > buffers.capacity() || r.capacity == 0)
        return 0;
    std::uint32_t done = 0;
    std::unique_lock lock(r.mutex);
    if (r.stopped)
        return r.failure;
    if (r.finished)
        return 0;
    while (done < count) {
        r.changed.wait(lock, [&] { return r.stopped || r.available() < r.capacity; });
        if (r.stopped)
            return r.failure;
        std::uint32_t room = static_cast<std::uint32_t>(r.capacity - r.available());
        std::uint32_t n = std::min(room, count - done);
        for (std::uint32_t c = 0; c < r.channels; ++c) {
            const unsigned char* from = buffers.channel(c) + std::size_t(done) * r.bytesPerSample;
            std::uint32_t at = static_cast<std::uint32_t>(r.writePos % r.capacity);
            std::uint32_t first = std::min(n, r.capacity - at);
            unsigned char* ring = r.rings[c].data();
            std::memcpy(ring + std::size_t(at) * r.bytesPerSample, from, std::size_t(first) * r.bytesPerSample);
            std::memcpy(ring, from + std::size_t(first) * r.bytesPerSample,
                        std::size_t(n - first) * r.bytesPerSample);
        }
        r.writePos += n;
        done += n;
        r.changed.notify_all();
    }
    return 1;
}

int AudioSource::setAudioFinishedEvent()
{
    std::lock_guard lock(ring_->mutex);
    ring_->finished = true;
    ring_->changed.notify_all();
    return 1;
}

std::int64_t AudioSource::waitForSamples(std::uint32_t wanted)
{
    Ring& r = *ring_;
    std::unique_lock lock(r.mutex);
    // Never wait for more than the rings hold: the rest comes in later calls.
    std::uint64_t target = std::min<std::uint64_t>(wanted, r.capacity);
    r.changed.wait(lock, [&] { return r.stopped || r.finished || r.available() >= target; });
    if (r.stopped)
        return -1;
    return static_cast<std::int64_t>(std::min<std::uint64_t>(r.available(), wanted));
}

void AudioSource::takeSamples(std::uint32_t c, unsigned char* to, std::uint32_t n, std::uint32_t toStride)
{
    Ring& r = *ring_;
    std::lock_guard lock(r.mutex);
    if (c >= r.channels || n > r.available())
        return;
    const unsigned char* ring = r.rings[c].data();
    std::uint64_t pos = r.readPos;
    for (std::uint32_t s = 0; s < n; ++s, ++pos) {
        std::memcpy(to + std::size_t(s) * toStride, ring + std::size_t(pos % r.capacity) * r.bytesPerSample,
                    r.bytesPerSample);
    }
}

void AudioSource::consumeSamples(std::uint32_t n)
{
    Ring& r = *ring_;
    std::lock_guard lock(r.mutex);
    r.readPos += std::min<std::uint64_t>(n, r.available());
    r.changed.notify_all();
}

void AudioSource::stopAudio(int failure)
{
    std::lock_guard lock(ring_->mutex);
    if (!ring_->stopped && failure != 1)
        ring_->failure = failure;
    ring_->stopped = true;
    ring_->changed.notify_all();
}

} // namespace Aud
