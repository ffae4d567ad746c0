#pragma once
#include <cstdint>

// The project's video standard as the editor announces it to resources.
struct PictureSettings
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t scanMode = 0;
    std::uint32_t frameRate = 0;
};
