#pragma once
// The codec data that marks a long-GOP MPEG-2 stream for the writer: the
// offset of the media type, the media type (temporal compression) and its
// MPEG-2 format block. Tests, benchmarks and the write fuzz target share it.
#include <cstdint>
#include <cstring>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.MediaType.h"

namespace testutil {

inline std::vector<unsigned char> mpeg2CodecBlock()
{
    using namespace Morvane::Avi;
    std::vector<unsigned char> extra(4 + sizeof(SERIALIZED_MEDIA_TYPE) + sizeof(MPEG2VIDEOINFO), 0);
    const std::uint32_t mediaTypeAt = sizeof(EXBMINFOHEADER);
    std::memcpy(extra.data(), &mediaTypeAt, 4);
    SERIALIZED_MEDIA_TYPE mt = {};
    mt.majortype = MEDIATYPE_Video;
    mt.subtype = MEDIASUBTYPE_MPEG2_VIDEO;
    mt.bTemporalCompression = 1;
    mt.formattype = FORMAT_MPEG2_VIDEO;
    mt.cbFormat = sizeof(MPEG2VIDEOINFO);
    std::memcpy(extra.data() + 4, &mt, sizeof mt);
    return extra;
}

} // namespace testutil
