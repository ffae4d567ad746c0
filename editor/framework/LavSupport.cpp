#include "LavSupport.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include "util/fourcc.h"

namespace vlhost::lav {

namespace {

using Morvane::makeFourCC;

thread_local std::string t_lastError;

void keepErrors(void* object, int level, const char* format, va_list args)
{
    if (level > AV_LOG_ERROR)
        return;
    char line[512];
    int prefix = 1;
    av_log_format_line2(object, level, format, args, line, sizeof line, &prefix);
    std::string text(line);
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    if (!text.empty())
        t_lastError = text;
}

} // namespace

void quiet()
{
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_callback(keepErrors); });
}

std::string failure(const char* what, int code)
{
    std::string why = t_lastError;
    t_lastError.clear();
    if (why.empty() && code < 0) {
        char text[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(code, text, sizeof text);
        why = text;
    }
    return why.empty() ? std::string(what) : std::string(what) + ": " + why;
}

AVCodecID codecFor(std::uint32_t fcc)
{
    switch (fcc) {
    case makeFourCC("dvsd"):
    case makeFourCC("dv25"):
    case makeFourCC("dv50"):
    case makeFourCC("dvc "):
    case makeFourCC("dvh1"):
    case makeFourCC("dvhd"):
        return AV_CODEC_ID_DVVIDEO;
    case makeFourCC("MJPG"):
    case makeFourCC("mjpg"):
    case makeFourCC("mjpa"):
        return AV_CODEC_ID_MJPEG;
    case makeFourCC("mjpb"):
        return AV_CODEC_ID_MJPEGB;
    case makeFourCC("mpg2"):
    case makeFourCC("MPG2"):
    case makeFourCC("MMES"):
    case makeFourCC("mmes"):
    case makeFourCC("M701"):
    case makeFourCC("m701"):
        return AV_CODEC_ID_MPEG2VIDEO;
    default:
        return AV_CODEC_ID_NONE;
    }
}

Context::~Context()
{
    sws_freeContext(sws);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&ctx);
}

bool Context::make(const AVCodec* codec)
{
    ctx = avcodec_alloc_context3(codec);
    frame = av_frame_alloc();
    packet = av_packet_alloc();
    return ctx && frame && packet;
}

SwsContext* converter(SwsContext* old, int width, int height, AVPixelFormat from, AVPixelFormat to)
{
    // Point sampling keeps chroma where it is: the rasters differ only in
    // their layout and subsampling, never in size.
    return sws_getCachedContext(old, width, height, from, width, height, to, SWS_POINT, nullptr, nullptr, nullptr);
}

} // namespace vlhost::lav
