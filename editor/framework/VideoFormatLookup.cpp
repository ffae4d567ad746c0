#include "host/VideoFormatLookup.h"

#include "util/fourcc.h"

namespace Vl {

using Morvane::makeFourCC;

std::uint32_t lookupPlayoutFCC(std::uint32_t fcc)
{
    // Codes that several vendors store for one format play out as one.
    switch (fcc) {
    case makeFourCC("dvsd"):
    case makeFourCC("dv25"):
    case makeFourCC("dvc "):
        return makeFourCC("dvsd");
    case makeFourCC("MJPG"):
    case makeFourCC("mjpa"):
    case makeFourCC("mjpb"):
        return makeFourCC("mjpg");
    case makeFourCC("ai5q"):
    case makeFourCC("ai52"):
    case makeFourCC("ai55"):
    case makeFourCC("ai15"):
    case makeFourCC("ai12"):
        return makeFourCC("avc5");
    case makeFourCC("ai1q"):
    case makeFourCC("ai13"):
    case makeFourCC("ai16"):
        return makeFourCC("avc6");
    default:
        return fcc;
    }
}

std::uint32_t getResolutionFromImage(const ImageDescription& image, std::uint32_t scanMode, std::uint32_t dataRate)
{
    // DNxHD resolutions by raster, scan and bit rate (bytes per second at
    // the family's nominal rate).
    struct Row
    {
        std::uint32_t width, height, scan, maxRate, code;
    };
    static const Row kRows[] = {
        {1920, 1080, 3, 15000000, 1237}, {1920, 1080, 3, 40000000, 1235}, {1920, 1080, 1, 15000000, 1242},
        {1920, 1080, 1, 40000000, 1241}, {1280, 720, 3, 15000000, 1252},  {1280, 720, 3, 40000000, 1250},
    };
    for (const auto& r : kRows)
        if (r.width == image.width && r.height == image.height && r.scan == scanMode && dataRate <= r.maxRate)
            return r.code;
    return kResolutionNotFound;
}

} // namespace Vl
