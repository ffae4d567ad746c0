#pragma once
#include <cstdint>

#include "ImageDescription.h"

namespace Vl::Image {

// A picture data format: a FourCC.
using Format = std::uint32_t;

constexpr Format kInvalidFormat = 0xFFFFFFFF;

namespace Core {

// A raster as the editor hands it to a writer.
struct Object : ImageDescription
{
    Object() = default;
    Object(const ImageDescription& d) : ImageDescription(d) {}
};

} // namespace Core

} // namespace Vl::Image
