#include "host/IndexInfo.h"

#include <algorithm>

IndexInfo::IndexInfo() = default;

IndexInfo::~IndexInfo() = default;

std::uint8_t IndexInfo::getNumGopFrames() const
{
    return static_cast<std::uint8_t>(std::min<std::size_t>(decodeOrder_.size(), 255));
}

std::uint32_t IndexInfo::getStartGopFrameIndex() const
{
    return decodeOrder_.empty() ? 0 : decodeOrder_.front();
}

std::uint8_t IndexInfo::getNumValidFrames() const
{
    std::size_t n = std::min(decodeOrder_.size(), presentationOrder_.size());
    return static_cast<std::uint8_t>(std::min<std::size_t>(n, 255));
}

bool IndexInfo::containsValidFrame(std::uint32_t frame) const
{
    // A group holds the same frame numbers in decode and in presentation order.
    std::uint32_t n = getNumValidFrames();
    if (n == 0)
        return false;
    std::uint32_t first = getStartGopFrameIndex();
    return frame >= first && frame - first < n;
}
