#pragma once
#include <cstdint>

#include "VectorExt.h"

namespace Compression {

// What the editor is choosing formats for.
enum eUsage : std::uint32_t { eUsageExport = 0, eUsageRender = 1, eUsageCapture = 2 };

// One raster that may be written with a compression. A row whose first
// value is 0 ends a table.
struct ValidImageFormatT
{
    std::uint32_t imageFormat; // the editor's picture layout code, 1 to 10
    std::uint32_t formatGroup; // 0 SD or HD, 1 and 2 the DVCPRO HD families
    std::uint32_t videoFormatUID; // key of Vl::DigitalVideoFormats::findByUID
    std::uint32_t valid;
};

// A compression FourCC and the rasters it may be written with.
struct SupportedFormatT
{
    std::uint32_t fcc = 0;
    VectorExt<ValidImageFormatT> imageFormats;
};

} // namespace Compression
