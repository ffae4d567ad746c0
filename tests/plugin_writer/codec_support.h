#pragma once
// What the codec tests share: telling a decoded picture's frame by the
// white box velloro's bars move a step each frame.
#include <cstdint>

#include "Synth.h"
#include "host/DecoderInfo.h"

namespace codectest {

// The left column of the white box in the row through its middle, or -1.
inline int boxLeft(const VlDecodedPicture& p)
{
    const std::uint32_t y = p.height * 2 / 3 + velloro::synthBoxSize(p.width) / 2;
    for (std::uint32_t x = 0; x < p.width; ++x)
        if (p.uyvy[std::size_t(y) * p.width * 2 + 2 * x + 1] > 215)
            return static_cast<int>(x);
    return -1;
}

// Whether p shows frame n: the box within a few columns of n's, where the
// next frame's is a step of width / 64 away.
inline bool shows(const VlDecodedPicture& p, std::uint64_t n)
{
    const int want = static_cast<int>(velloro::synthBoxLeft(p.width, n));
    const int got = boxLeft(p);
    return got >= want - 3 && got <= want + 3;
}

} // namespace codectest
