#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "ImageDescription.h"
#include "VideoCompressionInfo.h"
#include "VlExport.h"
#include "VlPtr.h"
#include "VlroMpeg2FrameTypes.h"
#include "iObject.h"

// One frame as an encoder hands it out: frames come in storage (decode)
// order, each with its kind and its place in presentation order.
struct VlEncodedFrame
{
    std::vector<unsigned char> bytes;
    VlroMpeg2FrameTypes type = eVlroFrameI;
    std::uint32_t presentation = 0; // counted from the first picture encoded
};

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

    // Starts a take of info's pictures; false with the reason in error.
    virtual bool open(const VideoCompressionInfo& info, std::string& error);
    // One picture in the raster getInputImageFormat(info) names, its rows
    // stride bytes apart, top first. The frames that are complete are
    // appended to out: none while a long-GOP encoder holds pictures back.
    virtual bool encode(const unsigned char* picture, std::uint32_t stride, std::vector<VlEncodedFrame>& out,
                        std::string& error);
    // The frames still held back; the take ends.
    virtual bool flush(std::vector<VlEncodedFrame>& out, std::string& error);

private:
    struct Session;
    std::uint32_t fcc_;
    Session* session_ = nullptr;
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
