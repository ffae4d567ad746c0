#pragma once
#include <cstdint>

#include "ShotVideoMetadata.h"
#include "VlExport.h"

// The editor's knowledge of compressed picture layouts.
class VL_HOST_API CompressionFormat
{
public:
    // Row stride of a Matrox 4:2:2 picture: 8-bit rows of 2 bytes a pixel,
    // 10-bit rows packed 6 pixels in 16 bytes, both padded to 128 bytes.
    static std::uint32_t getMatroxStride(const ShotVideoMetadata& video);
};
