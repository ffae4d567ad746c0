#pragma once
#include <cstdint>

// The picture of a video stream as the decoders see it.
struct ImageDescription
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t dataFormat = 0; // FourCC
    std::uint32_t bitsPerComponent = 0;
    std::uint32_t bitsPerPixel = 0;
    bool coreDataSet = false;
};
