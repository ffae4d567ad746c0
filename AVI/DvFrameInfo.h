#pragma once
// What a DV frame says of itself: the scan its video control pack records
// and the timecode its subcode carries. Cameras and decks write both into
// every frame; the AVI headers around them often say less, or other.
#include <cstddef>
#include <cstdint>

namespace avi {

struct DvFrameInfo
{
    bool hasScan = false;
    std::uint32_t scanMode = 0; // 1 upper field first, 2 lower first, 3 progressive
    bool hasTimecode = false;
    unsigned hours = 0, minutes = 0, seconds = 0, frames = 0;
    bool dropFrame = false;
};

// Reads the first DIF sequence of a frame of `size` bytes; `height` is the
// picture's (DVCPRO HD 1080 lines order their fields the other way round).
DvFrameInfo readDvFrameInfo(const unsigned char* frame, std::size_t size, std::uint32_t height);

} // namespace avi
