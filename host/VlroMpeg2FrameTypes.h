#pragma once
#include <cstdint>

// Picture kinds of an encoded frame, as the AVI index flags them: 4 or less
// may start a group.
enum VlroMpeg2FrameTypes : std::uint32_t {
    eVlroFrameUnknown = 0,
    eVlroFrameI = 4,
    eVlroFrameB = 8,
    eVlroFrameP = 16,
};
