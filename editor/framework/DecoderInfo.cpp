#include "host/DecoderInfo.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>

#include "LavSupport.h"
#include "util/fourcc.h"

namespace {

using Morvane::makeFourCC;

std::mutex g_mutex;

// The decoders an installation of the editor carries.
std::set<std::uint32_t>& decoders()
{
    static std::set<std::uint32_t> fccs = {
        makeFourCC("dvsd"), makeFourCC("dv25"), makeFourCC("dv50"), makeFourCC("dvc "), makeFourCC("dvh1"),
        makeFourCC("MJPG"), makeFourCC("mjpg"), makeFourCC("mjpa"), makeFourCC("mjpb"), makeFourCC("UYVY"),
        makeFourCC("YUY2"), makeFourCC("yuy2"), makeFourCC(" RGB"), makeFourCC("ARGB"), makeFourCC("mpg2"),
        makeFourCC("MPG2"), makeFourCC("MMES"), makeFourCC("mmes"), makeFourCC("M701"), makeFourCC("M101"),
        makeFourCC("M102"), makeFourCC("v210"), makeFourCC("2vuy"),
    };
    return fccs;
}

bool registered(std::uint32_t fcc)
{
    std::lock_guard lock(g_mutex);
    return decoders().count(fcc) != 0;
}

} // namespace

struct VlDecoder::Session
{
    vlhost::lav::Context lav;
    bool mpeg2 = false;
    std::uint32_t fed = 0;        // single frames fed so far
    std::uint32_t groupStart = 0; // where the group of the last frame fed starts
};

namespace {

// The pictures the decoder has ready, as UYVY.
bool receive(vlhost::lav::Context& lav, std::vector<VlDecodedPicture>& out, std::string& error)
{
    AVFrame* f = lav.frame;
    for (;;) {
        int err = avcodec_receive_frame(lav.ctx, f);
        if (err == AVERROR(EAGAIN) || err == AVERROR_EOF)
            return true;
        if (err < 0) {
            error = vlhost::lav::failure("the frame could not be decoded", err);
            return false;
        }
        lav.sws = vlhost::lav::converter(lav.sws, f->width, f->height, static_cast<AVPixelFormat>(f->format),
                                         AV_PIX_FMT_UYVY422);
        if (!lav.sws) {
            av_frame_unref(f);
            error = "no conversion from the decoder's sampling to UYVY";
            return false;
        }
        VlDecodedPicture picture;
        picture.width = static_cast<std::uint32_t>(f->width);
        picture.height = static_cast<std::uint32_t>(f->height);
        const std::int64_t pts = f->pts != AV_NOPTS_VALUE ? f->pts : f->best_effort_timestamp;
        picture.presentation = pts == AV_NOPTS_VALUE ? 0 : static_cast<std::uint32_t>(pts);
        picture.uyvy.resize(std::size_t(picture.width) * 2 * picture.height);
        std::uint8_t* dst[4] = {picture.uyvy.data(), nullptr, nullptr, nullptr};
        const int dstStride[4] = {static_cast<int>(picture.width * 2), 0, 0, 0};
        sws_scale(lav.sws, f->data, f->linesize, 0, f->height, dst, dstStride);
        av_frame_unref(f);
        out.push_back(std::move(picture));
    }
}

bool send(vlhost::lav::Context& lav, const unsigned char* bytes, std::uint32_t size, std::int64_t pts,
          std::vector<VlDecodedPicture>& out, std::string& error)
{
    AVPacket* p = lav.packet;
    // libavcodec reads a little past the end: the copy has its padding.
    int err = av_new_packet(p, static_cast<int>(size));
    if (err < 0) {
        error = vlhost::lav::failure("out of memory for a frame", err);
        return false;
    }
    std::memcpy(p->data, bytes, size);
    p->pts = pts;
    p->dts = AV_NOPTS_VALUE;
    err = avcodec_send_packet(lav.ctx, p);
    av_packet_unref(p);
    if (err < 0 && err != AVERROR_INVALIDDATA) {
        error = vlhost::lav::failure("the frame could not be decoded", err);
        return false;
    }
    return receive(lav, out, error);
}

} // namespace

VlDecoder::VlDecoder(std::uint32_t fcc) : fcc_(fcc) {}

VlDecoder::~VlDecoder()
{
    delete session_;
}

bool VlDecoder::decode(const FrameBuffer& frame, std::vector<VlDecodedPicture>& out, std::string& error)
{
    if (!session_) {
        vlhost::lav::quiet();
        const AVCodec* codec = avcodec_find_decoder(vlhost::lav::codecFor(fcc_));
        auto* s = new Session;
        if (!codec || !s->lav.make(codec)) {
            delete s;
            error = codec ? "out of memory" : "libavcodec has no decoder for this compression";
            return false;
        }
        s->mpeg2 = codec->id == AV_CODEC_ID_MPEG2VIDEO;
        s->lav.ctx->thread_count = 1; // pictures come out as soon as they can
        int err = avcodec_open2(s->lav.ctx, codec, nullptr);
        if (err < 0) {
            error = vlhost::lav::failure("the decoder did not open", err);
            delete s;
            return false;
        }
        session_ = s;
    }
    Session& s = *session_;
    const unsigned char* bytes = frame.bytes();
    const std::uint32_t size = frame.size();
    if (!bytes || size == 0) {
        error = "an empty frame";
        return false;
    }
    const Vl::Ptr<IndexInfo>& group = frame.indexInfo();
    if (!s.mpeg2 || !group) {
        std::int64_t pts = s.fed;
        if (s.mpeg2) {
            const std::vector<VlCodedFrame> coded = Vl::DecoderInfo::splitMpeg2(bytes, size);
            if (coded.empty()) {
                error = "the frame holds no MPEG-2 picture";
                return false;
            }
            if (coded.front().startsGroup)
                s.groupStart = s.fed;
            pts = std::int64_t(s.groupStart) + coded.front().temporalReference;
        }
        ++s.fed;
        return send(s.lav, bytes, size, pts, out, error);
    }
    // A whole group: its pictures, numbered by the group record, come out
    // whole, and the decoder is ready for another group after.
    const std::vector<VlCodedFrame> coded = Vl::DecoderInfo::splitMpeg2(bytes, size);
    const std::size_t n = group->getNumValidFrames();
    if (coded.size() != n) {
        error = "the group holds " + std::to_string(coded.size()) + " pictures where its record names " +
                std::to_string(n);
        return false;
    }
    std::vector<VlDecodedPicture> pictures;
    for (std::size_t i = 0; i < n; ++i)
        if (!send(s.lav, bytes + coded[i].offset, coded[i].size, group->presentationOrder()[i], pictures, error))
            return false;
    int err = avcodec_send_packet(s.lav.ctx, nullptr);
    if (err < 0 && err != AVERROR_EOF) {
        error = vlhost::lav::failure("the group could not be decoded", err);
        return false;
    }
    const bool ok = receive(s.lav, pictures, error);
    avcodec_flush_buffers(s.lav.ctx);
    if (!ok)
        return false;
    std::stable_sort(pictures.begin(), pictures.end(),
                     [](const VlDecodedPicture& a, const VlDecodedPicture& b) { return a.presentation < b.presentation; });
    for (VlDecodedPicture& p : pictures)
        out.push_back(std::move(p));
    return true;
}

bool VlDecoder::flush(std::vector<VlDecodedPicture>& out, std::string& error)
{
    if (!session_)
        return true;
    int err = avcodec_send_packet(session_->lav.ctx, nullptr);
    if (err < 0 && err != AVERROR_EOF) {
        error = vlhost::lav::failure("the decoder did not finish", err);
        return false;
    }
    const bool ok = receive(session_->lav, out, error);
    avcodec_flush_buffers(session_->lav.ctx);
    return ok;
}

namespace Vl {

bool DecoderInfo::isDecodable(const PlayFileMetadata& metadata)
{
    if (metadata.video().videoTrackCount() == 0)
        return false;
    return registered(metadata.video().image().dataFormat);
}

Vl::Ptr<VlDecoder> DecoderInfo::getDecoderFor(const PlayFileMetadata& metadata)
{
    const std::uint32_t fcc = metadata.video().image().dataFormat;
    if (metadata.video().videoTrackCount() == 0 || !registered(fcc) ||
        vlhost::lav::codecFor(fcc) == AV_CODEC_ID_NONE)
        return nullptr;
    return Vl::Ptr<VlDecoder>(new VlDecoder(fcc));
}

bool DecoderInfo::isMpeg2(std::uint32_t fcc)
{
    return vlhost::lav::codecFor(fcc) == AV_CODEC_ID_MPEG2VIDEO;
}

std::vector<VlCodedFrame> DecoderInfo::splitMpeg2(const unsigned char* bytes, std::uint32_t size)
{
    // A frame is the sequence and group headers before a picture, the
    // picture and its slices: it ends where the next such header starts.
    std::vector<VlCodedFrame> frames;
    VlCodedFrame current;
    bool havePicture = false;
    bool groupSeen = false;
    auto close = [&](std::uint32_t end) {
        current.size = end - current.offset;
        frames.push_back(current);
        current = VlCodedFrame();
        current.offset = end;
        havePicture = false;
        groupSeen = false;
    };
    for (std::uint32_t i = 0; bytes && i + 3 < size; ++i) {
        if (bytes[i] != 0 || bytes[i + 1] != 0 || bytes[i + 2] != 1)
            continue;
        const unsigned char code = bytes[i + 3];
        const bool header = code == 0xB3 || code == 0xB8 || code == 0x00;
        if (!header)
            continue;
        if (havePicture)
            close(i);
        if (code == 0xB8)
            groupSeen = true;
        if (code == 0x00) {
            if (i + 5 >= size)
                break;
            havePicture = true;
            current.temporalReference = (std::uint32_t(bytes[i + 4]) << 2) | (bytes[i + 5] >> 6);
            switch ((bytes[i + 5] >> 3) & 7) {
            case 1: current.type = eVlroFrameI; break;
            case 2: current.type = eVlroFrameP; break;
            case 3: current.type = eVlroFrameB; break;
            default: current.type = eVlroFrameUnknown; break;
            }
            current.startsGroup = groupSeen;
        }
        i += 3;
    }
    if (havePicture)
        close(size);
    else if (!frames.empty())
        frames.back().size = size - frames.back().offset; // a sequence end code, or trailing bytes
    return frames;
}

void DecoderInfo::registerDecoder(std::uint32_t fcc)
{
    std::lock_guard lock(g_mutex);
    decoders().insert(fcc);
}

void DecoderInfo::unregisterDecoder(std::uint32_t fcc)
{
    std::lock_guard lock(g_mutex);
    decoders().erase(fcc);
}

} // namespace Vl
