#include "host/AudStreamBufferList.h"

namespace Aud {

StreamBufferList::StreamBufferList() = default;
StreamBufferList::~StreamBufferList() = default;
StreamBufferList::StreamBufferList(const StreamBufferList&) = default;
StreamBufferList& StreamBufferList::operator=(const StreamBufferList&) = default;

void StreamBufferList::reset(std::uint32_t channels, std::uint32_t capacity, std::uint32_t bytesPerSample)
{
    buffers_.assign(channels, std::vector<unsigned char>(std::size_t(capacity) * bytesPerSample));
    capacity_ = capacity;
    bytesPerSample_ = bytesPerSample;
    samples_ = 0;
}

std::uint32_t StreamBufferList::channels() const
{
    return static_cast<std::uint32_t>(buffers_.size());
}

void StreamBufferList::setSamples(std::uint32_t n)
{
    samples_ = n <= capacity_ ? n : capacity_;
}

unsigned char* StreamBufferList::channel(std::uint32_t c)
{
    return c < buffers_.size() ? buffers_[c].data() : nullptr;
}

const unsigned char* StreamBufferList::channel(std::uint32_t c) const
{
    return c < buffers_.size() ? buffers_[c].data() : nullptr;
}

} // namespace Aud
