#pragma once
// The reader's in-memory index record: one per sample of the resident range.
#include <cstdint>

namespace Morvane::Avi {

// Frame types of IndexEntry::frameType.
constexpr std::uint16_t kFrameTypeKey = 4;
constexpr std::uint16_t kFrameTypeB = 8;
constexpr std::uint16_t kFrameTypeP = 16;

#pragma pack(push, 1)
struct IndexEntry
{
    std::uint64_t offset;        // absolute file offset of the sample's data
    std::uint32_t size;          // bytes
    std::uint16_t frameType;     // kFrameTypeKey, kFrameTypeB or kFrameTypeP
    std::uint32_t realLocation;  // stored frame shown at this place
    std::uint32_t displayNumber; // presentation number
};
#pragma pack(pop)

static_assert(sizeof(IndexEntry) == 22);

} // namespace Morvane::Avi
