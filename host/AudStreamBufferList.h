#pragma once
#include <cstdint>
#include <vector>

#include "VlExport.h"

namespace Aud {

// One buffer per channel, each holding samples of bytesPerSample bytes; the
// channels lie one after the other in a single block, so that a list of
// many channels costs one allocation and one copy, not one per channel.
class VL_HOST_API StreamBufferList
{
public:
    StreamBufferList();
    ~StreamBufferList();
    StreamBufferList(const StreamBufferList&);
    StreamBufferList& operator=(const StreamBufferList&);

    // Room for capacity samples on each of channels channels; no samples yet.
    void reset(std::uint32_t channels, std::uint32_t capacity, std::uint32_t bytesPerSample);
    std::uint32_t channels() const;
    std::uint32_t capacity() const { return capacity_; }
    std::uint32_t bytesPerSample() const { return bytesPerSample_; }
    std::uint32_t samples() const { return samples_; }
    // Clamped to the capacity.
    void setSamples(std::uint32_t n);
    unsigned char* channel(std::uint32_t c);
    const unsigned char* channel(std::uint32_t c) const;

private:
    std::vector<unsigned char> bytes_;
    std::uint32_t channels_ = 0;
    std::uint32_t capacity_ = 0;
    std::uint32_t bytesPerSample_ = 0;
    std::uint32_t samples_ = 0;
};

} // namespace Aud
