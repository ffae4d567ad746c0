#pragma once
#include <cstdint>

namespace Morvane {

// A FourCC as the little-endian word of its four ASCII bytes ("dvsd" is 0x64737664).
constexpr std::uint32_t makeFourCC(const char (&s)[5])
{
    return static_cast<std::uint32_t>(static_cast<unsigned char>(s[0])) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(s[1])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(s[2])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(s[3])) << 24;
}

} // namespace Morvane
