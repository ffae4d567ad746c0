#include "host/AudStreamBufferList.h"

#include <algorithm>

namespace Aud {

StreamBufferList::StreamBufferList() = default;
StreamBufferList::~StreamBufferList() = default;
StreamBufferList::StreamBufferList(const StreamBufferList&) = default;
StreamBufferList& StreamBufferList::operator=(const StreamBufferList&) = default;

void StreamBufferList::reset(std::uint32_t channels, std::uint32_t capacity, std::uint32_t bytesPerSample)
{
    // Sizes past what memory can hold leave the list empty.
    const unsigned __int128 n = static_cast<unsigned __int128>(channels) * capacity * bytesPerSample;
    if (n > bytes_.max_size())
        channels = capacity = 0;
    // One byte at least: a channel of no samples is still somewhere, so that
    // copying its nothing is copying from a real address.
    bytes_.assign(std::max<std::size_t>(std::size_t(channels) * capacity * bytesPerSample, 1), 0);
    channels_ = channels;
    capacity_ = capacity;
    bytesPerSample_ = bytesPerSample;
    samples_ = 0;
}

std::uint32_t StreamBufferList::channels() const
{
    return channels_;
}

void StreamBufferList::setSamples(std::uint32_t n)
{
    samples_ = n <= capacity_ ? n : capacity_;
}

unsigned char* StreamBufferList::channel(std::uint32_t c)
{
    return c < channels_ ? bytes_.data() + std::size_t(c) * capacity_ * bytesPerSample_ : nullptr;
}

const unsigned char* StreamBufferList::channel(std::uint32_t c) const
{
    return c < channels_ ? bytes_.data() + std::size_t(c) * capacity_ * bytesPerSample_ : nullptr;
}

} // namespace Aud
