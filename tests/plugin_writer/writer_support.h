#pragma once
// What the writer resource's tests share: a shell command's output, and the
// parameters the editor hands the writer for a picture and its audio.
#include <string>

#include "common/FfmpegFiles.h"
#include "host/FileWriterParams.h"
#include "util/fourcc.h"

namespace pluginwritertest {

using testutil::run;

// 8-bit UYVY in, compressed as fcc; 29.97 upper field first, 16:9; streams
// of stereo 16-bit PCM at 48 kHz.
inline Vl::FileWriterParams params(const char* fcc, std::uint32_t width, std::uint32_t height,
                                   std::uint32_t streams = 1)
{
    Vl::FileWriterParams p;
    p.typeName_ = "AVI";
    p.image_.width = width;
    p.image_.height = height;
    p.image_.dataFormat = Morvane::makeFourCC("UYVY");
    p.image_.bitsPerComponent = 8;
    VideoCompressionInfo& info = p.videoCompressionInfo_;
    info.image() = p.image_;
    info.setScanMode(Vl::eUpperFieldFirst);
    info.setAspectRatio(Vl::eAspect16x9);
    info.setFrameRate(Vl::eFrameRate29_97);
    info.compression().setFcc(std::uint32_t(fcc[0]) | std::uint32_t(fcc[1]) << 8 | std::uint32_t(fcc[2]) << 16 |
                              std::uint32_t(fcc[3]) << 24);
    Aud::AudioSettings& a = p.audioSettings_;
    a.setAudioStreams(streams);
    a.setChannelsPerStream(2);
    a.setBitsPerSample(16);
    a.setStride(2);
    a.setSamplesPerSec(48000);
    a.setDataType(Aud::eDataPcm);
    return p;
}

} // namespace pluginwritertest
