#pragma once
// Track descriptions for the container writer, shared by the tests and the
// benchmarks: a video track, 16-bit PCM audio.
#include <cstdint>
#include <string>

#include "FileFormats/AVI/avilib/avilib.TrackData.h"
#include "util/fourcc.h"

namespace avitest {

using Morvane::Avi::StreamAudio;
using Morvane::Avi::StreamVideo;
using Morvane::Avi::TrackStructuralData;

inline TrackStructuralData videoTrack(const char (&fcc)[5], std::uint64_t width, std::uint64_t height,
                                      std::uint64_t rate = 25, std::uint64_t scale = 1,
                                      std::uint32_t aspect = 0x00040003)
{
    TrackStructuralData t = {};
    t.Type = StreamVideo;
    t.Data.VInfo.width = width;
    t.Data.VInfo.height = height;
    t.Data.VInfo.bitCount = std::string(fcc) == "UYVY" ? 16 : 24; // UYVY is 4:2:2 at 8 bits
    t.Data.VInfo.fourcc = Morvane::makeFourCC(fcc);
    t.Data.VInfo.aspectRatio = aspect;
    t.Data.VInfo.rate = rate;
    t.Data.VInfo.scale = scale;
    return t;
}

inline TrackStructuralData audioTrack(std::uint16_t channels = 2, std::uint32_t rate = 48000)
{
    TrackStructuralData t = {};
    t.Type = StreamAudio;
    t.Data.AInfo.formatTag = 1;
    t.Data.AInfo.channels = channels;
    t.Data.AInfo.samplesPerSec = rate;
    t.Data.AInfo.bitsPerSample = 16;
    t.Data.AInfo.blockAlign = static_cast<std::uint16_t>(channels * 2);
    t.Data.AInfo.avgBytesPerSec = rate * channels * 2;
    return t;
}

} // namespace avitest
