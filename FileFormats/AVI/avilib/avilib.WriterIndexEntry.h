#pragma once
// The writer's record of one chunk written into the current RIFF.
#include <cstdint>

namespace Morvane::Avi {

struct CIndexEntry
{
    // The first four fields are the idx1 INDEXENTRY.
    std::uint32_t ckid;
    std::uint32_t flags;
    std::uint32_t offset; // from the current movi list's "movi" word to the chunk header
    std::uint32_t size;   // unpadded
    std::uint64_t position; // absolute file offset of the chunk header
    std::uint32_t sample;   // stream-wide decode order
    std::uint32_t frameType;
    std::uint32_t display;
    std::uint32_t realLocation;
};

} // namespace Morvane::Avi
