#include "host/DigitalVideoFormats.h"

#include <algorithm>

namespace Vl {

namespace {

using G = DigitalVideoFormats;

// The UIDs are the editor's; the writer's raster tables name 3, 15, 16, 27 and 28.
const std::vector<DigitalVideoFormat>& table()
{
    static const std::vector<DigitalVideoFormat> formats = {
        {3, 720, 486, G::eGroupSD, {eAspect4x3, eAspect16x9}, "NTSC 486"},
        {15, 720, 576, G::eGroupSD, {eAspect4x3, eAspect16x9}, "PAL"},
        {16, 720, 480, G::eGroupSD, {eAspect4x3, eAspect16x9}, "NTSC DV"},
        {27, 1280, 720, G::eGroupHD, {eAspect16x9}, "720p"},
        {28, 1920, 1080, G::eGroupHD, {eAspect16x9}, "1080"},
        {29, 1440, 1080, G::eGroupHD, {eAspect16x9}, "1080 HDV"},
        {30, 960, 720, G::eGroupDvcproHD, {eAspect16x9}, "DVCPRO HD 720"},
        {31, 1280, 1080, G::eGroupDvcproHD, {eAspect16x9}, "DVCPRO HD 1080 60"},
        {32, 1440, 1080, G::eGroupDvcproHD, {eAspect16x9}, "DVCPRO HD 1080 50"},
        {40, 2048, 1080, G::eGroupFilm, {eAspect256x135, eAspect16x9}, "2K"},
        {41, 4096, 2160, G::eGroupFilm, {eAspect256x135, eAspect16x9}, "4K"},
        {42, 3840, 2160, G::eGroupFilm, {eAspect16x9}, "UHD"},
    };
    return formats;
}

} // namespace

std::vector<std::uint32_t> DigitalVideoFormats::determinePreferredFormatGroupOrder(const OutputImageFormat& format)
{
    std::vector<std::uint32_t> order{eGroupSD, eGroupHD, eGroupDvcproHD, eGroupFilm};
    DigitalVideoFormat own;
    if (findByUID(format.videoFormatUID, own)) {
        auto it = std::find(order.begin(), order.end(), own.group);
        if (it != order.end())
            std::rotate(order.begin(), it, it + 1);
    }
    return order;
}

std::uint32_t DigitalVideoFormats::getMatchingFormats(std::uint32_t width, std::uint32_t height, bool anyGroup,
                                                      std::vector<DigitalVideoFormat>& results,
                                                      const std::vector<std::uint32_t>& groupOrder)
{
    std::uint32_t found = 0;
    for (std::size_t g = 0; g < groupOrder.size(); ++g) {
        if (!anyGroup && g > 0)
            break;
        for (const auto& f : table()) {
            if (f.group == groupOrder[g] && f.width == width && f.height == height) {
                results.push_back(f);
                ++found;
            }
        }
    }
    return found;
}

bool DigitalVideoFormats::findByUID(std::uint32_t uid, DigitalVideoFormat& out)
{
    for (const auto& f : table()) {
        if (f.uid == uid) {
            out = f;
            return true;
        }
    }
    return false;
}

} // namespace Vl
