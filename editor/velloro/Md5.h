#pragma once
// MD5 digests as ffmpeg prints them (lower-case hex), from libmd.
#include <md5.h>

#include <cstddef>
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
    MD5_CTX context_;
};

} // namespace velloro
