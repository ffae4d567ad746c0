#pragma once
#include <cstdint>
#include <vector>

#include "ImageDescription.h"
#include "VideoCompressionInfo.h"
#include "VlExport.h"
#include "VlPtr.h"
#include "iObject.h"

// One of the editor's installed video encoders.
class VL_HOST_API VlEncoder : public iObject
{
public:
    explicit VlEncoder(std::uint32_t fcc);
    ~VlEncoder() override;

    std::uint32_t fcc() const { return fcc_; }
    // Whether this encoder takes the picture of info.
    virtual bool accepts(const VideoCompressionInfo& info) const;
    virtual bool formatHasConfigPanel(const VideoCompressionInfo& info);
    // True when the user confirmed the panel.
    virtual bool showConfigPanel(const VideoCompressionInfo& info);
    // The raster the encoder must be given for info.
    virtual ImageDescription getInputImageFormat(const VideoCompressionInfo& info) const;

    // The editor's limits on any written picture.
    static bool isSupportedSize(std::uint32_t width, std::uint32_t height);

private:
    std::uint32_t fcc_;
};

namespace Vl {

// The editor's registry of installed video encoders, by FourCC.
class VL_HOST_API EncoderInfo
{
public:
    // The encoder for info's compression and picture, or null.
    static Vl::Ptr<VlEncoder> getEncoderFor(const VideoCompressionInfo& info);
    static bool isEncodable(const VideoCompressionInfo& info);

    static void registerEncoder(std::uint32_t fcc);
    static void unregisterEncoder(std::uint32_t fcc);
    static std::vector<std::uint32_t> installed();
    // How many times a configuration panel was shown (for tests).
    static std::uint32_t panelsShown();
};

} // namespace Vl
