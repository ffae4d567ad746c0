#pragma once
#include <cstdint>

#include "ImageDescription.h"
#include "VlExport.h"

namespace Vl {

constexpr std::uint32_t kResolutionNotFound = 0xFFFFFFFF;

// The FourCC the editor's playout path uses for a stored compression code.
VL_HOST_API std::uint32_t lookupPlayoutFCC(std::uint32_t fcc);
// The resolution code of a resolution-coded picture (by raster, scan mode and
// data rate in bytes per second), or kResolutionNotFound.
VL_HOST_API std::uint32_t getResolutionFromImage(const ImageDescription& image, std::uint32_t scanMode,
                                                 std::uint32_t dataRate);

} // namespace Vl
