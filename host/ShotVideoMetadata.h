#pragma once
#include <cstdint>

#include "ImageDescription.h"
#include "VideoCodes.h"
#include "VlExport.h"
#include "VlPtr.h"
#include "iMemHolder.h"

// How the rows of a picture lie in memory.
struct BufferLayout
{
    std::uint32_t stride = 0;
    std::uint32_t planes = 0;
    bool topDown = false;
    std::uint32_t alignment = 0;
};

struct ColourDescription
{
    std::uint32_t matrix = 0;
    std::uint32_t layout = 0;
    std::uint32_t primaries = 0;
    std::uint32_t transfer = 0;
};

// The video part of a clip's metadata.
class VL_HOST_API ShotVideoMetadata
{
public:
    ImageDescription& image() { return image_; }
    const ImageDescription& image() const { return image_; }

    void setHeight(std::uint32_t h) { image_.height = h; }
    void setWidth(std::uint32_t w) { image_.width = w; }
    void setDataFormat(std::uint32_t fcc) { image_.dataFormat = fcc; }
    void setBitsPerComponent(std::uint32_t b) { image_.bitsPerComponent = b; }
    void setBitsPerPixel(std::uint32_t b) { image_.bitsPerPixel = b; }
    void setCoreDataSet(bool on) { image_.coreDataSet = on; }

    std::uint32_t scanMode() const { return scanMode_; }
    void setScanMode(std::uint32_t s) { scanMode_ = s; }
    std::uint32_t aspectRatio() const { return aspectRatio_; }
    void setAspectRatio(std::uint32_t a) { aspectRatio_ = a; }
    std::uint32_t videoFormatUID() const { return videoFormatUID_; }
    void setVideoFormatUID(std::uint32_t uid) { videoFormatUID_ = uid; }
    Vl::FrameRate frameRate() const { return frameRate_; }
    void setFrameRate(Vl::FrameRate r) { frameRate_ = r; }
    std::uint32_t frameRateSet() const { return frameRateSet_; }
    void setFrameRateSet(std::uint32_t v) { frameRateSet_ = v; }

    BufferLayout& layout() { return layout_; }
    const BufferLayout& layout() const { return layout_; }
    ColourDescription& colour() { return colour_; }
    const ColourDescription& colour() const { return colour_; }

    std::uint32_t gopSize() const { return gopSize_; }
    void setGopSize(std::uint32_t g) { gopSize_ = g; }
    std::uint32_t dataRate() const { return dataRate_; }
    void setDataRate(std::uint32_t r) { dataRate_ = r; }
    std::uint32_t lengthInFrames() const { return lengthInFrames_; }
    void setLengthInFrames(std::uint32_t n) { lengthInFrames_ = n; }
    std::uint32_t videoTrackCount() const { return videoTrackCount_; }
    void setVideoTrackCount(std::uint32_t n) { videoTrackCount_ = n; }
    std::uint32_t valid() const { return valid_; }
    void setValid(std::uint32_t v) { valid_ = v; }
    // The raster of the editor's video format uid, in data format fcc with
    // bits per component; false (and nothing changed) for an unknown uid.
    bool setFromVideoFormat(std::uint32_t uid, std::uint32_t fcc, std::uint32_t bits);

    // Bytes of a first frame that some decoders need before they start.
    const Vl::Ptr<iMemHolder>& sampleFrame() const { return sampleFrame_; }
    void setSampleFrame(const Vl::Ptr<iMemHolder>& m) { sampleFrame_ = m; }

private:
    ImageDescription image_;
    std::uint32_t scanMode_ = 0;
    std::uint32_t aspectRatio_ = 0;
    std::uint32_t videoFormatUID_ = 0;
    Vl::FrameRate frameRate_ = Vl::eFrameRateNone;
    std::uint32_t frameRateSet_ = 0;
    BufferLayout layout_;
    ColourDescription colour_;
    std::uint32_t gopSize_ = 0;
    std::uint32_t dataRate_ = 0;
    std::uint32_t lengthInFrames_ = 0;
    std::uint32_t videoTrackCount_ = 0;
    std::uint32_t valid_ = 0;
    Vl::Ptr<iMemHolder> sampleFrame_;
};
