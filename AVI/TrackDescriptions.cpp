#include "AVI/TrackDescriptions.h"

#include <cmath>
#include <cstring>

#include "AVI/CodecExtraData.h"
#include "host/CompressionFormat.h"
#include "host/FrameDuration.h"
#include "host/VideoFormatLookup.h"
#include "util/fourcc.h"
#include "util/linux/platform.h"
#include "util/videoutils.h"

namespace avi {

namespace {

using Morvane::makeFourCC;
using Morvane::Avi::TrackStructuralData;

void putWord32(TrackStructuralData& t, std::size_t index, std::uint32_t v)
{
    std::memcpy(reinterpret_cast<unsigned char*>(&t.Data) + 4 * index, &v, 4);
}

std::uint64_t describedHeight(std::uint32_t fcc, std::uint32_t height)
{
    if (fcc == makeFourCC("GIMX")) {
        if (height == 486)
            return 512;
        if (height == 576)
            return 608;
        MORVANE_ASSERT_AT(false, "AVI/FileWriter line 649");
        return 0;
    }
    if ((fcc == makeFourCC("dv25") || fcc == makeFourCC("dvsd") || fcc == makeFourCC("PPG2") ||
         fcc == makeFourCC("dv50")) &&
        height == 486)
        return 480;
    return height;
}

std::uint64_t fieldCode(std::uint32_t scan)
{
    if (scan < 1 || scan > 4)
        MORVANE_ASSERT_AT(false, "AVI/FileWriter line 682");
    return (scan == 3 || scan == 4) ? 4 : 3;
}

std::uint64_t frameAspect(std::uint32_t aspect)
{
    if (aspect == 1)
        return 0x00040003;
    if (aspect == 2)
        return 0x00100009;
    MORVANE_ASSERT_AT(false, "AVI/FileWriter line 766");
    return 0x00010001;
}

bool isMpeg2Code(std::uint32_t fcc)
{
    return fcc >= 0x3247504E && fcc <= 0x32475057;
}

} // namespace

std::uint16_t trackCount(const Vl::FileWriterParams& params)
{
    std::uint32_t streams = params.audioSettings_.audioStreams();
    return streams > 0xFFFF - 2 ? 0 : static_cast<std::uint16_t>(streams + 2);
}

void frameRateFraction(const Vl::FileWriterParams& params, std::uint32_t& rate, std::uint32_t& scale)
{
    std::uint32_t num = 0, den = 1;
    toRational(Vl::getFrameDuration(params.videoCompressionInfo_.frameRate()), num, den);
    rate = den;
    scale = num;
}

int describeTracks(const Vl::FileWriterParams& params, TrackStructuralData* tracks)
{
    const std::uint16_t n = trackCount(params);
    if (n == 0 || !tracks)
        return 0;
    std::uint32_t rate = 0, scale = 0;
    frameRateFraction(params, rate, scale);

    TrackStructuralData& header = tracks[kHeaderTrack];
    header.Type = Morvane::Avi::StreamTimecode;
    putWord32(header, 0, rate);
    putWord32(header, 1, scale);
    if (params.startTimecode_.valid()) {
        putWord32(header, 2, params.startTimecode_.frames());
        putWord32(header, 3,
                  Morvane::Avi::kTimecodeGiven | (params.startTimecode_.dropFrame() ? Morvane::Avi::kTimecodeDropFrame : 0));
    }

    const VideoCompressionInfo& info = params.videoCompressionInfo_;
    const std::uint32_t fcc = info.compression().fcc();
    TrackStructuralData& video = tracks[kVideoTrack];
    Morvane::Avi::VideoTrackInfo& v = video.Data.VInfo;
    video.Type = Morvane::Avi::StreamVideo;
    v.width = fcc == 1244 ? 1440 : info.image().width;
    v.height = describedHeight(fcc, info.image().height);
    const std::uint32_t playout = Vl::lookupPlayoutFCC(fcc);
    v.bitCount = Morvane::getBppForFCC(playout);
    v.fourcc = playout;
    v.stride = params.stride_;
    v.fieldCode = fieldCode(info.scanMode());
    // The field code cannot tell which field comes first, nor PsF from
    // progressive: the scan itself goes with it.
    v.scanMode = info.scanMode() >= 1 && info.scanMode() <= 4 ? info.scanMode() : 0;
    v.aspectRatio = frameAspect(info.aspectRatio());
    v.rate = rate;
    v.scale = scale;
    v.reserved10 = 1;
    v.reserved11 = 1;
    // The word after the two ones carries the frame size.
    v.gopLength = CompressionFormat::getFrameSize(info.compression(), info);
    // A long-GOP stream's group length is what its index is built for: the
    // editor's MPEG-2 encoders close a group every 15 frames at the 30 Hz
    // rates and every 12 at the others.
    if ((fcc == makeFourCC("MMES") || fcc == makeFourCC("M701")) && v.gopLength <= 1) {
        const double fps = scale ? double(rate) / scale : 0.0;
        v.gopLength = std::lround(fps / 30.0) * 30 == std::lround(fps) && fps > 1.0 ? 15 : 12;
    }

    if (params.typeName_ == "AVI") {
        int made = 1;
        if (fcc == makeFourCC("M101") || fcc == makeFourCC("M102") || fcc == makeFourCC("M103") ||
            fcc == makeFourCC("M104"))
            made = setMatroxYUYVdata(params, video.pExtraData, video.cbExtra);
        else if (fcc == makeFourCC("MMES") || fcc == makeFourCC("M701"))
            made = setMatroxMpeg2Params(params, video.pExtraData, video.cbExtra);
        else if (isMpeg2Code(fcc))
            made = setMpeg2Params(params, video.pExtraData, video.cbExtra);
        if (made == 0)
            return 0;
    }

    const Aud::AudioSettings& audio = params.audioSettings_;
    for (std::uint16_t i = kFirstAudioTrack; i < n; ++i) {
        // Only PCM is written; other data is described as PCM all the same.
        MORVANE_ASSERT_AT(params.audioSettings_.getDataType() == Aud::keAudioDataTypePCM, "AVI/FileWriter line 773");
        TrackStructuralData& t = tracks[i];
        Morvane::Avi::AudioTrackInfo& a = t.Data.AInfo;
        t.Type = Morvane::Avi::StreamAudio;
        a.formatTag = 1;
        a.channels = static_cast<std::uint16_t>(audio.channelsPerStream());
        a.samplesPerSec = audio.samplesPerSec();
        a.bitsPerSample = static_cast<std::uint16_t>(audio.bitsPerSample());
        a.blockAlign = static_cast<std::uint16_t>(audio.channelsPerStream() * audio.stride());
        a.avgBytesPerSec = a.blockAlign * audio.samplesPerSec();
        putWord32(t, 5, 1);
    }
    return 1;
}

} // namespace avi
