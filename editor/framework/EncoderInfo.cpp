#include "host/EncoderInfo.h"

#include <algorithm>
#include <atomic>
#include <mutex>

#include "util/fourcc.h"

namespace {

using Morvane::makeFourCC;

std::mutex g_mutex;
std::atomic<std::uint32_t> g_panels{0};

// The encoders an installation of the editor carries, in the order they
// were installed.
std::vector<std::uint32_t>& encoders()
{
    static std::vector<std::uint32_t> fccs = {
        makeFourCC("dvsd"), makeFourCC("dv25"), makeFourCC("dv50"), makeFourCC("dvh1"),
        makeFourCC("MMES"), makeFourCC("M701"), makeFourCC("MJPG"),
    };
    return fccs;
}

bool isDv(std::uint32_t fcc)
{
    return fcc == makeFourCC("dvsd") || fcc == makeFourCC("dv25") || fcc == makeFourCC("dv50");
}

} // namespace

VlEncoder::VlEncoder(std::uint32_t fcc) : fcc_(fcc) {}

VlEncoder::~VlEncoder() = default;

bool VlEncoder::accepts(const VideoCompressionInfo& info) const
{
    const std::uint32_t w = info.image().width;
    const std::uint32_t h = info.image().height;
    if (!isSupportedSize(w, h))
        return false;
    if (isDv(fcc_))
        return w == 720 && (h == 480 || h == 486 || h == 576);
    if (fcc_ == makeFourCC("dvh1"))
        return (h == 720 && (w == 960 || w == 1280)) || (h == 1080 && (w == 1280 || w == 1440 || w == 1920));
    if (fcc_ == makeFourCC("MMES"))
        return w <= 720;
    if (fcc_ == makeFourCC("M701"))
        return w > 720;
    return true;
}

bool VlEncoder::formatHasConfigPanel(const VideoCompressionInfo&)
{
    // Only the long-GOP and JPEG encoders have settings of their own.
    return fcc_ == makeFourCC("MMES") || fcc_ == makeFourCC("M701") || fcc_ == makeFourCC("MJPG");
}

bool VlEncoder::showConfigPanel(const VideoCompressionInfo& info)
{
    if (!formatHasConfigPanel(info))
        return false;
    g_panels.fetch_add(1);
    return true;
}

ImageDescription VlEncoder::getInputImageFormat(const VideoCompressionInfo& info) const
{
    ImageDescription d;
    d.width = info.image().width;
    d.height = info.image().height;
    d.dataFormat = fcc_ == makeFourCC("MJPG") ? makeFourCC("UYVY") : makeFourCC("YUY2");
    d.bitsPerComponent = 8;
    d.bitsPerPixel = 16;
    d.coreDataSet = true;
    return d;
}

bool VlEncoder::isSupportedSize(std::uint32_t width, std::uint32_t height)
{
    return width >= 16 && width <= 4096 && width % 2 == 0 && height >= 16 && height <= 4096;
}

namespace Vl {

Vl::Ptr<VlEncoder> EncoderInfo::getEncoderFor(const VideoCompressionInfo& info)
{
    const std::uint32_t fcc = info.compression().fcc();
    {
        std::lock_guard lock(g_mutex);
        if (std::find(encoders().begin(), encoders().end(), fcc) == encoders().end())
            return nullptr;
    }
    Vl::Ptr<VlEncoder> encoder(new VlEncoder(fcc));
    return encoder->accepts(info) ? encoder : nullptr;
}

bool EncoderInfo::isEncodable(const VideoCompressionInfo& info)
{
    return static_cast<bool>(getEncoderFor(info));
}

void EncoderInfo::registerEncoder(std::uint32_t fcc)
{
    std::lock_guard lock(g_mutex);
    if (std::find(encoders().begin(), encoders().end(), fcc) == encoders().end())
        encoders().push_back(fcc);
}

void EncoderInfo::unregisterEncoder(std::uint32_t fcc)
{
    std::lock_guard lock(g_mutex);
    encoders().erase(std::remove(encoders().begin(), encoders().end(), fcc), encoders().end());
}

std::vector<std::uint32_t> EncoderInfo::installed()
{
    std::lock_guard lock(g_mutex);
    return encoders();
}

std::uint32_t EncoderInfo::panelsShown()
{
    return g_panels.load();
}

} // namespace Vl
