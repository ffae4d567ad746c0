#pragma once
#include <cstdint>

#include "AudioSettings.h"
#include "EditLabel.h"
#include "ImageDescription.h"
#include "String.h"
#include "VideoCompressionInfo.h"

namespace Vl {

// The editor's complete request to write a file.
struct FileWriterParams
{
    String typeName_;
    Aud::AudioSettings audioSettings_;
    // The picture (size, scan, aspect, rate) and its compression.
    VideoCompressionInfo videoCompressionInfo_;
    // The raster the editor delivers.
    ImageDescription image_;
    // Bytes per row of the delivered raster; 0 when the writer chooses.
    std::uint32_t stride_ = 0;
    std::uint32_t mpeg2BitRate_ = 0; // megabits per second
    bool mpeg2HighProfile_ = false;
    // The label of the first frame; not valid() when the editor gives none.
    edit_label startTimecode_;
};

} // namespace Vl
