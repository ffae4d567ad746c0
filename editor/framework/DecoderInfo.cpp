#include "host/DecoderInfo.h"

#include <mutex>
#include <set>

#include "util/fourcc.h"

namespace Vl {

namespace {

using Morvane::makeFourCC;

std::mutex g_mutex;

// The decoders an installation of the editor carries.
std::set<std::uint32_t>& decoders()
{
    static std::set<std::uint32_t> fccs = {
        makeFourCC("dvsd"), makeFourCC("dv25"), makeFourCC("dv50"), makeFourCC("dvc "), makeFourCC("dvh1"),
        makeFourCC("MJPG"), makeFourCC("mjpg"), makeFourCC("mjpa"), makeFourCC("mjpb"), makeFourCC("UYVY"),
        makeFourCC("YUY2"), makeFourCC("yuy2"), makeFourCC(" RGB"), makeFourCC("ARGB"), makeFourCC("mpg2"),
        makeFourCC("MPG2"), makeFourCC("MMES"), makeFourCC("mmes"), makeFourCC("M101"), makeFourCC("M102"),
        makeFourCC("v210"), makeFourCC("2vuy"),
    };
    return fccs;
}

} // namespace

bool DecoderInfo::isDecodable(const PlayFileMetadata& metadata)
{
    if (metadata.video().videoTrackCount() == 0)
        return false;
    std::lock_guard lock(g_mutex);
    return decoders().count(metadata.video().image().dataFormat) != 0;
}

void DecoderInfo::registerDecoder(std::uint32_t fcc)
{
    std::lock_guard lock(g_mutex);
    decoders().insert(fcc);
}

void DecoderInfo::unregisterDecoder(std::uint32_t fcc)
{
    std::lock_guard lock(g_mutex);
    decoders().erase(fcc);
}

} // namespace Vl
