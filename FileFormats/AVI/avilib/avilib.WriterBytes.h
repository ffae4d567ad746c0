#pragma once
// Little-endian stores into the writer's buffers; fields there are not aligned.
#include <cstdint>
#include <cstring>

namespace Morvane::Avi::bytes {

inline void put16(unsigned char* p, std::uint16_t v)
{
    std::memcpy(p, &v, sizeof(v));
}

inline void put32(unsigned char* p, std::uint32_t v)
{
    std::memcpy(p, &v, sizeof(v));
}

inline void put64(unsigned char* p, std::uint64_t v)
{
    std::memcpy(p, &v, sizeof(v));
}

inline std::uint32_t get32(const unsigned char* p)
{
    std::uint32_t v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

} // namespace Morvane::Avi::bytes
