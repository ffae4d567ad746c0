#include "Md5.h"

namespace velloro {

Md5::Md5()
{
    MD5Init(&context_);
}

void Md5::update(const void* data, std::size_t n)
{
    if (n)
        MD5Update(&context_, static_cast<const std::uint8_t*>(data), n);
}

std::string Md5::hexDigest()
{
    char text[MD5_DIGEST_STRING_LENGTH];
    return MD5End(&context_, text) ? std::string(text) : std::string();
}

std::string Md5::of(const void* data, std::size_t n)
{
    Md5 md5;
    md5.update(data, n);
    return md5.hexDigest();
}

} // namespace velloro
