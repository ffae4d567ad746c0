#include "host/DigitalVideoFormats.h"
#include "host/ShotVideoMetadata.h"

bool ShotVideoMetadata::setFromVideoFormat(std::uint32_t uid, std::uint32_t fcc, std::uint32_t bits)
{
    Vl::DigitalVideoFormat format;
    if (!Vl::DigitalVideoFormats::findByUID(uid, format))
        return false;
    image_.width = format.width;
    image_.height = format.height;
    image_.dataFormat = fcc;
    image_.bitsPerComponent = bits;
    image_.bitsPerPixel = 2 * bits;
    videoFormatUID_ = uid;
    scanMode_ = format.height == 720 ? Vl::eProgressive : (format.height == 576 ? Vl::eUpperFieldFirst
                                                                                 : Vl::eLowerFieldFirst);
    aspectRatio_ = format.aspectRatios.empty() ? Vl::eAspectUnknown : format.aspectRatios.front();
    return true;
}
