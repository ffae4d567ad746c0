#pragma once
#include <cstdint>

#include "VideoCodes.h"
#include "VlExport.h"

namespace Vl {

// The raster the project renders to.
struct OutputImageFormat
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t scanMode = 0;
    FrameRate frameRate = eFrameRateNone;
    std::uint32_t videoFormatUID = 0;
};

// The project open in the editor.
class VL_HOST_API CurrentProject
{
public:
    static OutputImageFormat getOutputImageFormat();
    static FrameRate getFrameRate();
    static FrameRate getOutputImageVLFrameRate();

    // The editor's project settings dialog.
    static void setOutputImageFormat(const OutputImageFormat& format);
    static void setFrameRate(FrameRate rate);
};

} // namespace Vl
