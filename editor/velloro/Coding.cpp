#include "Coding.h"

#include <algorithm>
#include <cstring>

#include "PluginLoader.h"
#include "PluginWrite.h"
#include "Synth.h"
#include "host/ByteBufferImpl.h"
#include "util/fourcc.h"

namespace velloro {

using Morvane::makeFourCC;

void applyFormatDefaults(RenderOptions& o, bool sizeGiven, bool rateGiven)
{
    const bool sd = o.fcc == makeFourCC("dvsd") || o.fcc == makeFourCC("dv25") || o.fcc == makeFourCC("dv50") ||
                    o.fcc == makeFourCC("MMES");
    const bool pal = rateGiven && o.rateNum == 25 * o.rateDen;
    if (sd && !sizeGiven) {
        o.width = 720;
        o.height = pal ? 576 : 480;
    }
    if (!rateGiven && ((sd && o.height == 576) || (o.fcc == makeFourCC("dvh1") && o.width == 1440)))
        o.rateNum = 25, o.rateDen = 1;
    if (!rateGiven && o.fcc == makeFourCC("dvh1") && o.height == 720)
        o.rateNum = 60000, o.rateDen = 1001;
}

std::uint32_t writtenCode(std::uint32_t fcc, std::uint32_t width)
{
    switch (fcc) {
    case makeFourCC("mjpg"): return makeFourCC("MJPG");
    case makeFourCC("mmes"): return makeFourCC("MMES");
    case makeFourCC("m701"): return makeFourCC("M701");
    // Other writers' MPEG-2 is the editor's long-GOP MPEG-2, SD or HD by width.
    case makeFourCC("mpg2"):
    case makeFourCC("MPG2"):
        return width > 720 ? makeFourCC("M701") : makeFourCC("MMES");
    default: return fcc;
    }
}

bool BarsEncoder::open(const VideoCompressionInfo& info, const ImageDescription& input, std::string& error)
{
    encoder_ = Vl::EncoderInfo::getEncoderFor(info);
    if (!encoder_) {
        error = "the editor has no encoder for " + fourccText(info.compression().fcc()) + " at " +
                std::to_string(info.image().width) + "x" + std::to_string(info.image().height);
        return false;
    }
    input_ = input;
    if (!synthStride(input.dataFormat, input.width)) {
        error = "the encoder takes pictures render cannot paint (" + fourccText(input.dataFormat) + ")";
        return false;
    }
    if (!encoder_->open(info, error))
        return false;
    raster_.resize(std::size_t(synthStride(input.dataFormat, input.width)) * input.height);
    return true;
}

bool BarsEncoder::picture(std::uint64_t n, std::vector<VlEncodedFrame>& out, std::string& error)
{
    synthFrame(input_.dataFormat, input_.width, input_.height, n, raster_.data());
    return encoder_->encode(raster_.data(), synthStride(input_.dataFormat, input_.width), out, error);
}

bool BarsEncoder::flush(std::vector<VlEncodedFrame>& out, std::string& error)
{
    return encoder_->flush(out, error);
}

Vl::Ptr<FrameBuffer> frameOf(const std::vector<unsigned char>& bytes)
{
    Vl::Ptr<ByteBufferImpl> block(new ByteBufferImpl);
    const std::uint64_t size = bytes.size();
    if (size >= 0xFFFFFFFFu || !block->alloc(static_cast<std::uint32_t>(size) + 1))
        return nullptr;
    std::memcpy(block->data(), bytes.data(), bytes.size());
    block->setUsed(static_cast<std::uint32_t>(size));
    return Vl::Ptr<FrameBuffer>(new FrameBuffer(nullptr, block, nullptr));
}

StorageOrder::StorageOrder(Vl::FileReaderResource& reader, const Vl::Ptr<FileReadInstance>& file)
    : reader_(reader), file_(file)
{
    const ShotVideoMetadata& v = file->metadata()->video();
    mpeg2_ = Vl::DecoderInfo::isMpeg2(v.image().dataFormat);
    records_ = mpeg2_ && v.gopSize() >= 2;
}

bool StorageOrder::describe(std::uint32_t i, const FrameBuffer& frame, VlroMpeg2FrameTypes& type,
                            std::uint32_t& presentation, std::string& error)
{
    type = eVlroFrameI;
    presentation = i;
    if (!mpeg2_ || frame.isRepeat())
        return true;
    const std::vector<VlCodedFrame> coded = Vl::DecoderInfo::splitMpeg2(frame.bytes(), frame.size());
    if (coded.empty()) {
        error = "frame " + std::to_string(i) + " holds no MPEG-2 picture";
        return false;
    }
    type = coded.front().type == eVlroFrameUnknown ? eVlroFrameI : coded.front().type;
    if (records_) {
        // The file's own record of the group: the frame's place in it.
        if (!group_ || !group_->containsValidFrame(i)) {
            group_ = nullptr;
            Vl::Ptr<FileReadInstance> file = file_;
            reader_.VlFileIxCache_open(file, group_, i);
        }
        if (group_) {
            const std::vector<unsigned int>& decode = group_->decodeOrder();
            for (std::size_t k = 0; k < decode.size() && k < group_->presentationOrder().size(); ++k)
                if (decode[k] == i) {
                    presentation = group_->presentationOrder()[k];
                    return true;
                }
        }
    }
    // A group's frames take the places from its first one on, each at its
    // temporal reference.
    if (coded.front().startsGroup || i == 0)
        groupStart_ = i;
    presentation = groupStart_ + coded.front().temporalReference;
    return true;
}

} // namespace velloro
