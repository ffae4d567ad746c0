#pragma once
#include "CompressionFormat.h"
#include "ShotVideoMetadata.h"

// A picture and the compression that it is to be written with: what the
// editor's encoder registry is asked about.
class VideoCompressionInfo : public ShotVideoMetadata
{
public:
    VideoCompressionInfo() = default;
    explicit VideoCompressionInfo(const CompressionFormat& c) : compression_(c) {}

    CompressionFormat& compression() { return compression_; }
    const CompressionFormat& compression() const { return compression_; }
    void setPicture(const ShotVideoMetadata& picture) { static_cast<ShotVideoMetadata&>(*this) = picture; }

private:
    CompressionFormat compression_;
};
