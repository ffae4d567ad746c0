#include "host/EncoderInfo.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

extern "C" {
#include <libavutil/opt.h>
}

#include "LavSupport.h"
#include "host/FrameDuration.h"
#include "util/fourcc.h"

namespace {

using Morvane::makeFourCC;

std::mutex g_mutex;
std::atomic<std::uint32_t> g_panels{0};

// The encoders an installation of the editor carries, in the order they
// were installed.
std::vector<std::uint32_t>& encoders()
{
    static std::vector<std::uint32_t> fccs = {
        makeFourCC("dvsd"), makeFourCC("dv25"), makeFourCC("dv50"), makeFourCC("dvh1"),
        makeFourCC("MMES"), makeFourCC("M701"), makeFourCC("MJPG"),
    };
    return fccs;
}

bool isDvSd(std::uint32_t fcc)
{
    return fcc == makeFourCC("dvsd") || fcc == makeFourCC("dv25") || fcc == makeFourCC("dv50");
}

bool isMpeg2(std::uint32_t fcc)
{
    return fcc == makeFourCC("MMES") || fcc == makeFourCC("M701");
}

// What libavcodec is given for a picture: the raster it codes (DV has
// fixed ones: 486 NTSC lines lose six, DVCPRO HD is stored narrower) and
// its sampling. ok false: libavcodec has no such coding.
struct Plan
{
    bool ok = false;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    AVPixelFormat format = AV_PIX_FMT_NONE;
};

Plan planFor(std::uint32_t fcc, const VideoCompressionInfo& info)
{
    const std::uint32_t w = info.image().width;
    const std::uint32_t h = info.image().height;
    const Vl::FrameRate rate = info.frameRate();
    const bool any = rate == Vl::eFrameRateNone;
    const bool ntsc = any || rate == Vl::eFrameRate29_97;
    const bool pal = any || rate == Vl::eFrameRate25;
    Plan plan;
    if (!VlEncoder::isSupportedSize(w, h))
        return plan;
    if (isDvSd(fcc)) {
        if (w != 720 || !((h == 576 && pal) || ((h == 480 || h == 486) && ntsc)))
            return plan;
        plan = {true, 720, h == 486 ? 480u : h, AV_PIX_FMT_YUV422P};
        if (fcc == makeFourCC("dv25") || (fcc == makeFourCC("dvsd") && h != 576))
            plan.format = AV_PIX_FMT_YUV411P;
        else if (fcc == makeFourCC("dvsd"))
            plan.format = AV_PIX_FMT_YUV420P;
        return plan;
    }
    if (fcc == makeFourCC("dvh1")) {
        // 1080 lines at 29.97 are stored 1280 wide, at 25 1440; 720p at 59.94 or 50 is 960.
        if (h == 1080 && (w == 1280 || (w == 1920 && rate != Vl::eFrameRate25)) && ntsc)
            return {true, 1280, 1080, AV_PIX_FMT_YUV422P};
        if (h == 1080 && (w == 1440 || w == 1920) && pal)
            return {true, 1440, 1080, AV_PIX_FMT_YUV422P};
        if (h == 720 && (w == 960 || w == 1280) && (any || rate == Vl::eFrameRate59_94 || rate == Vl::eFrameRate50))
            return {true, 960, 720, AV_PIX_FMT_YUV422P};
        return plan;
    }
    // The 4:2:2 profile's main level for SD, its high level for HD.
    if (fcc == makeFourCC("MMES") && w <= 720 && h <= 608)
        return {true, w, h, AV_PIX_FMT_YUV422P};
    if (fcc == makeFourCC("M701") && w > 720 && w <= 1920 && h <= 1088)
        return {true, w, h, AV_PIX_FMT_YUV422P};
    if (fcc == makeFourCC("MJPG"))
        return {true, w, h, AV_PIX_FMT_YUVJ422P};
    return plan;
}

// The DV frames' video control packs say whether the picture is interlaced:
// libavcodec always says it is.
void markDvProgressive(std::vector<unsigned char>& frame)
{
    constexpr std::size_t kBlock = 80;
    for (std::size_t at = 0; at + kBlock <= frame.size(); at += kBlock) {
        unsigned char* block = frame.data() + at;
        if ((block[0] >> 5) != 2) // VAUX blocks only
            continue;
        for (std::size_t pack = 3; pack + 5 <= kBlock - 2; pack += 5)
            if (block[pack] == 0x61)
                block[pack + 3] &= static_cast<unsigned char>(~0x10);
    }
}

VlroMpeg2FrameTypes kindOf(const AVPacket& packet)
{
    size_t size = 0;
    const std::uint8_t* stats = av_packet_get_side_data(&packet, AV_PKT_DATA_QUALITY_STATS, &size);
    if (stats && size >= 5) {
        switch (stats[4]) {
        case AV_PICTURE_TYPE_I: return eVlroFrameI;
        case AV_PICTURE_TYPE_P: return eVlroFrameP;
        case AV_PICTURE_TYPE_B: return eVlroFrameB;
        default: break;
        }
    }
    return (packet.flags & AV_PKT_FLAG_KEY) ? eVlroFrameI : eVlroFrameP;
}

} // namespace

struct VlEncoder::Session
{
    vlhost::lav::Context lav;
    Plan plan;
    AVPixelFormat input = AV_PIX_FMT_NONE;
    std::uint32_t scan = 0;
    bool dv = false;
    bool ended = false;
    std::int64_t next = 0;
};

VlEncoder::VlEncoder(std::uint32_t fcc) : fcc_(fcc) {}

VlEncoder::~VlEncoder()
{
    delete session_;
}

bool VlEncoder::accepts(const VideoCompressionInfo& info) const
{
    return planFor(fcc_, info).ok;
}

bool VlEncoder::formatHasConfigPanel(const VideoCompressionInfo&)
{
    // Only the long-GOP and JPEG encoders have settings of their own.
    return isMpeg2(fcc_) || fcc_ == makeFourCC("MJPG");
}

bool VlEncoder::showConfigPanel(const VideoCompressionInfo& info)
{
    if (!formatHasConfigPanel(info))
        return false;
    g_panels.fetch_add(1);
    return true;
}

ImageDescription VlEncoder::getInputImageFormat(const VideoCompressionInfo& info) const
{
    const Plan plan = planFor(fcc_, info);
    ImageDescription d;
    d.width = plan.ok ? plan.width : info.image().width;
    d.height = plan.ok ? plan.height : info.image().height;
    d.dataFormat = fcc_ == makeFourCC("MJPG") ? makeFourCC("UYVY") : makeFourCC("YUY2");
    d.bitsPerComponent = 8;
    d.bitsPerPixel = 16;
    d.coreDataSet = true;
    return d;
}

bool VlEncoder::isSupportedSize(std::uint32_t width, std::uint32_t height)
{
    return width >= 16 && width <= 4096 && width % 2 == 0 && height >= 16 && height <= 4096;
}

bool VlEncoder::open(const VideoCompressionInfo& info, std::string& error)
{
    vlhost::lav::quiet();
    delete session_;
    session_ = nullptr;
    const Plan plan = planFor(fcc_, info);
    std::uint32_t num = 0, den = 0;
    if (!plan.ok || !toRational(Vl::getFrameDuration(info.frameRate()), num, den) || num == 0) {
        error = "no encoder for this picture in this compression at this frame rate";
        return false;
    }
    const AVCodec* codec = avcodec_find_encoder(vlhost::lav::codecFor(fcc_));
    if (!codec) {
        error = "libavcodec has no encoder for this compression";
        return false;
    }
    auto* s = new Session;
    s->plan = plan;
    s->scan = info.scanMode();
    s->dv = codec->id == AV_CODEC_ID_DVVIDEO;
    s->input = fcc_ == makeFourCC("MJPG") ? AV_PIX_FMT_UYVY422 : AV_PIX_FMT_YUYV422;
    if (!s->lav.make(codec)) {
        delete s;
        error = "out of memory";
        return false;
    }
    AVCodecContext* c = s->lav.ctx;
    c->width = static_cast<int>(plan.width);
    c->height = static_cast<int>(plan.height);
    c->pix_fmt = plan.format;
    c->time_base = {static_cast<int>(num), static_cast<int>(den)};
    c->framerate = {static_cast<int>(den), static_cast<int>(num)};
    c->thread_count = 2;
    c->thread_type = FF_THREAD_SLICE; // frames come out as they go in
    const bool interlaced = s->scan == Vl::eUpperFieldFirst || s->scan == Vl::eLowerFieldFirst;
    c->field_order = !interlaced ? AV_FIELD_PROGRESSIVE
                                 : (s->scan == Vl::eUpperFieldFirst ? AV_FIELD_TT : AV_FIELD_BB);
    if (plan.format == AV_PIX_FMT_YUVJ422P)
        c->color_range = AVCOL_RANGE_JPEG;
    if (codec->id == AV_CODEC_ID_MJPEG) {
        // The editor's quality 0-100 as JPEG's quantiser 31-2.
        const std::uint32_t quality = std::min<std::uint32_t>(info.compression().quality(), 100);
        c->flags |= AV_CODEC_FLAG_QSCALE;
        c->global_quality = FF_QP2LAMBDA * static_cast<int>(2 + (100 - quality) * 29 / 100);
    }
    if (codec->id == AV_CODEC_ID_MPEG2VIDEO) {
        const bool sd = plan.width <= 720;
        const bool fifties = info.frameRate() == Vl::eFrameRate25 || info.frameRate() == Vl::eFrameRate50;
        c->gop_size = fifties ? 12 : 15;
        c->max_b_frames = 2;
        c->flags |= AV_CODEC_FLAG_CLOSED_GOP;
        if (interlaced)
            c->flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
        c->bit_rate = sd ? 30000000 : 50000000;
        c->rc_max_rate = c->bit_rate;
        c->rc_buffer_size = sd ? 9437184 : 47185920; // the level's largest VBV
        c->profile = FF_PROFILE_MPEG2_422;
        // Exactly gop_size frames a group, and no extra I frames at cuts.
        av_opt_set(c->priv_data, "mpv_flags", "+strict_gop", 0);
        av_opt_set_int(c->priv_data, "sc_threshold", 1000000000, 0);
    }
    int err = avcodec_open2(c, codec, nullptr);
    if (err < 0) {
        error = vlhost::lav::failure("the encoder did not open", err);
        delete s;
        return false;
    }
    AVFrame* f = s->lav.frame;
    f->format = plan.format;
    f->width = c->width;
    f->height = c->height;
    if ((err = av_frame_get_buffer(f, 0)) < 0) {
        error = vlhost::lav::failure("out of memory for a picture", err);
        delete s;
        return false;
    }
    s->lav.sws = vlhost::lav::converter(nullptr, c->width, c->height, s->input, plan.format);
    if (!s->lav.sws) {
        error = "no conversion to the encoder's sampling";
        delete s;
        return false;
    }
    session_ = s;
    return true;
}

namespace {

// Everything the encoder has ready, in the order it hands it out.
bool drain(vlhost::lav::Context& lav, bool dv, std::uint32_t scan, std::vector<VlEncodedFrame>& out,
           std::string& error);

} // namespace

bool VlEncoder::encode(const unsigned char* picture, std::uint32_t stride, std::vector<VlEncodedFrame>& out,
                       std::string& error)
{
    Session* s = session_;
    if (!s || s->ended) {
        error = s ? "the encoder was flushed" : "the encoder is not open";
        return false;
    }
    const std::uint32_t row = s->plan.width * 2;
    if (!picture || stride < row) {
        error = "a picture of " + std::to_string(s->plan.width) + "x" + std::to_string(s->plan.height) +
                " is needed, with rows of at least " + std::to_string(row) + " bytes";
        return false;
    }
    AVFrame* f = s->lav.frame;
    int err = av_frame_make_writable(f);
    if (err < 0) {
        error = vlhost::lav::failure("out of memory for a picture", err);
        return false;
    }
    const std::uint8_t* src[4] = {picture, nullptr, nullptr, nullptr};
    const int srcStride[4] = {static_cast<int>(stride), 0, 0, 0};
    sws_scale(s->lav.sws, src, srcStride, 0, static_cast<int>(s->plan.height), f->data, f->linesize);
    f->pts = s->next++;
    f->interlaced_frame = s->scan == Vl::eUpperFieldFirst || s->scan == Vl::eLowerFieldFirst;
    f->top_field_first = s->scan == Vl::eUpperFieldFirst;
    f->pict_type = AV_PICTURE_TYPE_NONE;
    if ((err = avcodec_send_frame(s->lav.ctx, f)) < 0) {
        error = vlhost::lav::failure("the picture was not encoded", err);
        return false;
    }
    return drain(s->lav, s->dv, s->scan, out, error);
}

bool VlEncoder::flush(std::vector<VlEncodedFrame>& out, std::string& error)
{
    Session* s = session_;
    if (!s) {
        error = "the encoder is not open";
        return false;
    }
    if (s->ended)
        return true;
    s->ended = true;
    int err = avcodec_send_frame(s->lav.ctx, nullptr);
    if (err < 0) {
        error = vlhost::lav::failure("the encoder did not finish", err);
        return false;
    }
    return drain(s->lav, s->dv, s->scan, out, error);
}

namespace {

bool drain(vlhost::lav::Context& lav, bool dv, std::uint32_t scan, std::vector<VlEncodedFrame>& out,
           std::string& error)
{
    AVPacket* p = lav.packet;
    for (;;) {
        int err = avcodec_receive_packet(lav.ctx, p);
        if (err == AVERROR(EAGAIN) || err == AVERROR_EOF)
            return true;
        if (err < 0) {
            error = vlhost::lav::failure("the encoder failed", err);
            return false;
        }
        VlEncodedFrame frame;
        frame.bytes.assign(p->data, p->data + p->size);
        frame.type = kindOf(*p);
        frame.presentation = static_cast<std::uint32_t>(p->pts == AV_NOPTS_VALUE ? 0 : p->pts);
        if (dv && (scan == Vl::eProgressive || scan == Vl::eProgressiveSegmented))
            markDvProgressive(frame.bytes);
        av_packet_unref(p);
        out.push_back(std::move(frame));
    }
}

} // namespace

namespace Vl {

Vl::Ptr<VlEncoder> EncoderInfo::getEncoderFor(const VideoCompressionInfo& info)
{
    const std::uint32_t fcc = info.compression().fcc();
    {
        std::lock_guard lock(g_mutex);
        if (std::find(encoders().begin(), encoders().end(), fcc) == encoders().end())
            return nullptr;
    }
    Vl::Ptr<VlEncoder> encoder(new VlEncoder(fcc));
    return encoder->accepts(info) ? encoder : nullptr;
}

bool EncoderInfo::isEncodable(const VideoCompressionInfo& info)
{
    return static_cast<bool>(getEncoderFor(info));
}

void EncoderInfo::registerEncoder(std::uint32_t fcc)
{
    std::lock_guard lock(g_mutex);
    if (std::find(encoders().begin(), encoders().end(), fcc) == encoders().end())
        encoders().push_back(fcc);
}

void EncoderInfo::unregisterEncoder(std::uint32_t fcc)
{
    std::lock_guard lock(g_mutex);
    encoders().erase(std::remove(encoders().begin(), encoders().end(), fcc), encoders().end());
}

std::vector<std::uint32_t> EncoderInfo::installed()
{
    std::lock_guard lock(g_mutex);
    return encoders();
}

std::uint32_t EncoderInfo::panelsShown()
{
    return g_panels.load();
}

} // namespace Vl
