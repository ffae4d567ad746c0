#pragma once
#include <cstdint>
#include <vector>

#include "CurrentProject.h"
#include "VlExport.h"

namespace Vl {

// One raster the editor knows by UID, with the aspect codes it may carry.
struct DigitalVideoFormat
{
    std::uint32_t uid = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t group = 0; // families of rasters: SD, HD, DVCPRO HD, 2K/4K
    std::vector<std::uint32_t> aspectRatios;
    const char* name = "";
};

// The editor's table of digital video formats.
class VL_HOST_API DigitalVideoFormats
{
public:
    enum Group : std::uint32_t { eGroupSD = 1, eGroupHD = 2, eGroupDvcproHD = 3, eGroupFilm = 4 };

    // Groups to search, the project's own first.
    static std::vector<std::uint32_t> determinePreferredFormatGroupOrder(const OutputImageFormat& format);
    // Formats of exactly width x height in group order; with anyGroup false only the
    // first group of the order is searched. The number found.
    static std::uint32_t getMatchingFormats(std::uint32_t width, std::uint32_t height, bool anyGroup,
                                            std::vector<DigitalVideoFormat>& results,
                                            const std::vector<std::uint32_t>& groupOrder);
    // False when no format has this UID.
    static bool findByUID(std::uint32_t uid, DigitalVideoFormat& out);
};

} // namespace Vl
