#include "host/AudioChannelCache.h"

#include <cstring>

#include "host/AudioReadRequest.h"

AudioChannelCache::AudioChannelCache() = default;
AudioChannelCache::~AudioChannelCache() = default;

bool AudioChannelCache::contains(const AudioChannelCacheReq& req) const
{
    auto it = entries_.find(req.stream);
    bool hit = it != entries_.end() && it->second.filled && it->second.req == req;
    if (hit)
        ++hits_;
    return hit;
}

Aud::StreamBufferList& AudioChannelCache::getBuffers(const AudioChannelCacheReq& req, std::uint32_t channels,
                                                     std::uint32_t bytesPerSample)
{
    CacheEntry& e = entries_[req.stream];
    e.req = req;
    e.filled = false;
    // Nothing is allocated for the count asked: the reader's interleaver
    // sizes the buffers by the samples the file gave.
    e.buffers.reset(channels, 0, bytesPerSample);
    return e.buffers;
}

void AudioChannelCache::markFilled(const AudioChannelCacheReq& req)
{
    auto it = entries_.find(req.stream);
    if (it != entries_.end() && it->second.req == req)
        it->second.filled = true;
}

void AudioChannelCache::forget(const AudioChannelCacheReq& req)
{
    auto it = entries_.find(req.stream);
    if (it != entries_.end() && it->second.req == req)
        entries_.erase(it);
}

bool AudioChannelCache::getResult(const AudioChannelCacheReq& req, std::uint32_t bytesPerSample,
                                  AudioReadRequest& out) const
{
    auto it = entries_.find(req.stream);
    if (it == entries_.end() || !it->second.filled || !(it->second.req == req))
        return false;
    const Aud::StreamBufferList& from = it->second.buffers;
    if (bytesPerSample != from.bytesPerSample())
        return false;
    if (&out.result() != &from)
        out.result() = from;
    return true;
}
