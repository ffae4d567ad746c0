#pragma once
// MD5 (RFC 1321), enough to print ffmpeg-style checksums of packets.
#include <cstddef>
#include <cstdint>
#include <string>

namespace velloro {

class Md5
{
public:
    Md5();
    void update(const void* data, std::size_t n);
    // Lower-case hex digest; the object is spent afterwards.
    std::string hexDigest();

    static std::string of(const void* data, std::size_t n);

private:
    void block(const std::uint8_t* p);

    std::uint32_t state_[4];
    std::uint64_t length_ = 0;
    std::uint8_t pending_[64];
    std::size_t pendingSize_ = 0;
};

} // namespace velloro
