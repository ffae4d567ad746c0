#pragma once
#include <cstdint>

#include "ShotVideoMetadata.h"
#include "VlExport.h"

// The editor's knowledge of compressed picture layouts, and a compression
// choice: a FourCC and a quality setting.
class VL_HOST_API CompressionFormat
{
public:
    CompressionFormat(std::uint32_t fcc = 0xFFFFFFFF, std::uint32_t quality = 50) : fcc_(fcc), quality_(quality) {}

    std::uint32_t fcc() const { return fcc_; }
    void setFcc(std::uint32_t fcc) { fcc_ = fcc; }
    std::uint32_t quality() const { return quality_; }

    // Row stride of a Matrox 4:2:2 picture: 8-bit rows of 2 bytes a pixel,
    // 10-bit rows packed 6 pixels in 16 bytes, both padded to 128 bytes.
    static std::uint32_t getMatroxStride(const ShotVideoMetadata& video);
    // Bytes of one frame of picture in compression; 0 when frames vary in
    // size (or do not fit 32 bits).
    static std::uint32_t getFrameSize(const CompressionFormat& compression, const ShotVideoMetadata& picture);

private:
    std::uint32_t fcc_;
    std::uint32_t quality_;
};
