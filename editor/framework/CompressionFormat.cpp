#include "host/CompressionFormat.h"

std::uint32_t CompressionFormat::getMatroxStride(const ShotVideoMetadata& video)
{
    std::uint64_t width = video.image().width;
    std::uint64_t bytes = video.image().bitsPerComponent == 10 ? (width + 5) / 6 * 16 : width * 2;
    bytes = (bytes + 127) / 128 * 128;
    return bytes > 0xFFFFFFFFu ? 0 : static_cast<std::uint32_t>(bytes);
}

namespace {

constexpr std::uint32_t code(const char (&s)[5])
{
    return std::uint32_t(std::uint8_t(s[0])) | std::uint32_t(std::uint8_t(s[1])) << 8 |
           std::uint32_t(std::uint8_t(s[2])) << 16 | std::uint32_t(std::uint8_t(s[3])) << 24;
}

std::uint32_t clamp32(std::uint64_t v)
{
    return v > 0xFFFFFFFFu ? 0 : static_cast<std::uint32_t>(v);
}

} // namespace

std::uint32_t CompressionFormat::getFrameSize(const CompressionFormat& compression, const ShotVideoMetadata& picture)
{
    const std::uint64_t w = picture.image().width;
    const std::uint64_t h = picture.image().height;
    const bool sixty = h == 480 || h == 486;
    switch (compression.fcc()) {
    case code("UYVY"):
    case code("YUY2"):
        return clamp32(w * 2 * h);
    case code("M101"):
    case code("M102"):
        return clamp32(std::uint64_t(getMatroxStride(picture)) * h);
    case code("M103"):
    case code("M104"):
        return clamp32(w * 3 * h);
    case code("v210"):
        return clamp32((w + 47) / 48 * 128 * h);
    case code("dvsd"):
    case code("dv25"):
        return sixty ? 120000 : 144000;
    case code("dv50"):
        return sixty ? 240000 : 288000;
    case code("dvh1"):
        return h == 720 ? 240000 : 576000;
    default:
        return 0;
    }
}
