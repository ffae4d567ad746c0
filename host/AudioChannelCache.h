#pragma once
#include <cstdint>
#include <map>

#include "AudStreamBufferList.h"
#include "VlExport.h"

class AudioReadRequest;

// What an audio request asks for, as the channel cache keys it.
struct AudioChannelCacheReq
{
    std::uint32_t stream = 0;
    std::uint32_t word = 0;
    std::uint32_t start = 0;
    std::uint32_t count = 0;
    bool operator==(const AudioChannelCacheReq&) const = default;
};

// The last block of audio read per channel stream of a file, so that the
// editor's repeated requests (every track of a stereo pair, a scrub that
// stands still) do not read the file again. Not locked: the file's lock
// guards it.
class VL_HOST_API AudioChannelCache
{
public:
    struct CacheEntry
    {
        AudioChannelCacheReq req;
        bool filled = false;
        Aud::StreamBufferList buffers;
    };

    AudioChannelCache();
    ~AudioChannelCache();
    AudioChannelCache(const AudioChannelCache&) = delete;
    AudioChannelCache& operator=(const AudioChannelCache&) = delete;

    bool contains(const AudioChannelCacheReq& req) const;
    // The entry's buffers, emptied, for req; the reader's interleaver sizes
    // them by what it splits. The entry holds nothing until markFilled.
    Aud::StreamBufferList& getBuffers(const AudioChannelCacheReq& req, std::uint32_t channels,
                                      std::uint32_t bytesPerSample);
    void markFilled(const AudioChannelCacheReq& req);
    // Drops the entry of a request that failed: streams that do not exist
    // leave nothing behind.
    void forget(const AudioChannelCacheReq& req);
    // Copies the cached samples into the request's result; false when they are not cached.
    bool getResult(const AudioChannelCacheReq& req, std::uint32_t bytesPerSample, AudioReadRequest& out) const;
    // Requests that contains() found in the cache.
    std::uint64_t hits() const { return hits_; }

private:
    std::map<unsigned, CacheEntry> entries_;
    mutable std::uint64_t hits_ = 0;
};
