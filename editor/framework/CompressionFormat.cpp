#include "host/CompressionFormat.h"

std::uint32_t CompressionFormat::getMatroxStride(const ShotVideoMetadata& video)
{
    std::uint64_t width = video.image().width;
    std::uint64_t bytes = video.image().bitsPerComponent == 10 ? (width + 5) / 6 * 16 : width * 2;
    bytes = (bytes + 127) / 128 * 128;
    return bytes > 0xFFFFFFFFu ? 0 : static_cast<std::uint32_t>(bytes);
}
