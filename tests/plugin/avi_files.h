#pragma once
// Small AVI files built byte by byte for the plug-in tests: every header
// field a metadata rule reads is one a test sets.
#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "avi/odml_builder.h"

namespace plugintest {

using namespace readertest;

struct VideoSpec
{
    std::uint32_t fcc = Morvane::makeFourCC("dvsd");
    std::int32_t width = 720;
    std::int32_t height = 576;
    std::uint16_t bitCount = 24;
    std::uint32_t rate = 25;
    std::uint32_t scale = 1;
    unsigned frames = 3;
    Bytes extra; // after the BITMAPINFOHEADER in strf
    std::optional<AVIVIDEOPROPERTIES> vprp;
};

struct AudioSpec
{
    std::uint16_t formatTag = WAVE_FORMAT_PCM;
    std::uint16_t channels = 2;
    std::uint16_t bits = 16;
    std::uint32_t rate = 48000;
    unsigned samplesPerFrame = 1920;
};

inline AVIVIDEOPROPERTIES videoProperties(std::uint32_t aspect, std::uint32_t fieldsPerFrame)
{
    AVIVIDEOPROPERTIES p = {};
    p.fcc = ckid::vprp;
    p.cb = sizeof(AVIVIDEOPROPERTIES) - 8;
    p.dwFrameAspectRatio = aspect;
    p.nbFieldPerFrame = fieldsPerFrame;
    return p;
}

// Frame k of the video holds frameSize(k) bytes of the value k + 1.
inline std::size_t frameSize(unsigned k)
{
    return 300 + 37 * k;
}

// Optional video, optional audio, interleaved, with an idx1.
inline Bytes buildFile(const std::optional<VideoSpec>& video, const std::optional<AudioSpec>& audio,
                       unsigned audioChunks = 3)
{
    const unsigned streams = (video ? 1 : 0) + (audio ? 1 : 0);
    const unsigned frames = video ? video->frames : audioChunks;
    RiffBuilder b;
    std::size_t riff = b.begin("RIFF", "AVI ");
    std::size_t hdrl = b.begin("LIST", "hdrl");
    b.record(mainHeader(streams, frames));
    if (video) {
        std::size_t strl = b.begin("LIST", "strl");
        AVISTREAMHEADER h = streamHeader("vids", "dvsd", video->rate, video->scale, video->frames);
        h.fccHandler = video->fcc;
        b.record(h);
        BITMAPINFOHEADER bih = videoFormat("dvsd", static_cast<std::uint32_t>(40 + video->extra.size()));
        bih.biCompression = video->fcc;
        bih.biWidth = video->width;
        bih.biHeight = video->height;
        bih.biBitCount = video->bitCount;
        Bytes strf(sizeof bih + video->extra.size());
        std::memcpy(strf.data(), &bih, sizeof bih);
        std::copy(video->extra.begin(), video->extra.end(), strf.begin() + sizeof bih);
        b.chunk("strf", strf);
        if (video->vprp)
            b.record(*video->vprp);
        b.end(strl);
    }
    if (audio) {
        std::size_t strl = b.begin("LIST", "strl");
        WAVEFORMATEX w = pcm(audio->channels, audio->bits, audio->rate);
        w.wFormatTag = audio->formatTag;
        AVISTREAMHEADER h = streamHeader("auds", "\0\0\0\0", audio->rate, 1, audioChunks * audio->samplesPerFrame);
        h.dwSampleSize = w.nBlockAlign;
        b.record(h);
        b.chunk("strf", bytesOf(w));
        b.end(strl);
    }
    b.end(hdrl);
    std::size_t movi = b.begin("LIST", "movi");
    std::vector<INDEXENTRY> entries;
    const std::uint32_t vid = Morvane::makeFourCC("00dc");
    const std::uint32_t aud = video ? Morvane::makeFourCC("01wb") : Morvane::makeFourCC("00wb");
    for (unsigned k = 0; k < std::max(frames, audioChunks); ++k) {
        if (video && k < video->frames) {
            std::size_t at = b.chunk(vid, frameData(k, frameSize(k)));
            entries.push_back({vid, AVIIF_KEYFRAME,
                               static_cast<std::uint32_t>(at - (movi + 4)), static_cast<std::uint32_t>(frameSize(k))});
        }
        if (audio && k < audioChunks) {
            std::uint32_t bytes = audio->samplesPerFrame * audio->channels * audio->bits / 8;
            Bytes pcmData(bytes);
            for (std::uint32_t i = 0; i < bytes; ++i)
                pcmData[i] = static_cast<std::uint8_t>(i * 7 + k * 13);
            std::size_t at = b.chunk(aud, pcmData);
            entries.push_back({aud, AVIIF_KEYFRAME, static_cast<std::uint32_t>(at - (movi + 4)), bytes});
        }
    }
    b.end(movi);
    b.chunk("idx1", bytesOf(entries));
    b.end(riff);
    return b.bytes();
}

} // namespace plugintest
