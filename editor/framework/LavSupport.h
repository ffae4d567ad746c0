#pragma once
// What the stand-in's encoders and decoders share of libavcodec: owners of
// its objects, its messages as error text, and 4:2:2 conversions.
#include <cstdint>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

namespace vlhost::lav {

// libav's messages go nowhere but the last error of the calling thread:
// the editor's log would be flooded by its warnings.
void quiet();
// "what: libav's last error, or the code's text".
std::string failure(const char* what, int code = 0);

// The codec behind an editor FourCC (AV_CODEC_ID_NONE for none).
AVCodecID codecFor(std::uint32_t fcc);

// Owners, so that every way out of a function frees what it made.
struct Context
{
    AVCodecContext* ctx = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    SwsContext* sws = nullptr;
    Context() = default;
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    ~Context();
    // A context for codec, with a frame and a packet; false without memory.
    bool make(const AVCodec* codec);
};

// A converter between two rasters of the same size; null when swscale has none.
SwsContext* converter(SwsContext* old, int width, int height, AVPixelFormat from, AVPixelFormat to);

} // namespace vlhost::lav
