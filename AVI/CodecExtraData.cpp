#include "AVI/CodecExtraData.h"

#include <cstring>
#include <new>

#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "host/FrameDuration.h"
#include "util/fourcc.h"
#include "util/linux/platform.h"

namespace avi {

namespace {

using Morvane::makeFourCC;

void put32(unsigned char* p, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<unsigned char>(v >> (8 * i));
}

void put16(unsigned char* p, std::uint16_t v)
{
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
}

void put64(unsigned char* p, std::uint64_t v)
{
    for (int i = 0; i < 8; ++i)
        p[i] = static_cast<unsigned char>(v >> (8 * i));
}

void putGuid(unsigned char* p, const GUID& g)
{
    put32(p, g.Data1);
    put16(p + 4, g.Data2);
    put16(p + 6, g.Data3);
    std::memcpy(p + 8, g.Data4, 8);
}

// A 76-byte media-type header, then an MPEG2VIDEOINFO of 136 bytes.
int fillMpeg2Block(const Vl::FileWriterParams& params, unsigned char*& data, unsigned short& size)
{
    data = new (std::nothrow) unsigned char[kMpeg2BlockSize];
    if (!data) {
        size = 0;
        return 1;
    }
    size = kMpeg2BlockSize;
    std::memset(data, 0, kMpeg2BlockSize);
    const std::uint32_t width = params.videoCompressionInfo_.image().width;
    const std::uint32_t height = params.videoCompressionInfo_.image().height;
    const bool sd = width < 721;

    put32(data + 0, 44);
    putGuid(data + 4, Morvane::Avi::MEDIATYPE_Video);
    putGuid(data + 20, Morvane::Avi::MEDIASUBTYPE_MPEG2_VIDEO);
    putGuid(data + 48, Morvane::Avi::FORMAT_MPEG2_VIDEO);
    put32(data + 68, 136);

    put32(data + 108, static_cast<std::uint32_t>(std::uint64_t(params.mpeg2BitRate_) * 1000000u));
    double duration = Vl::getFrameDuration(params.videoCompressionInfo_.frameRate());
    put64(data + 116, static_cast<std::uint64_t>(duration * 10000000.0 + 0.5));
    put32(data + 148, 40);
    put32(data + 152, width);
    put32(data + 156, height);
    // The header's planes word would be 1, and after the height's two zero
    // high bytes that makes 00 00 01 00, a picture start code, which MPEG-2
    // decoders that take this block as codec data (ffmpeg) stop at for want
    // of a sequence header. 0 says as much to every reader.
    put16(data + 160, 0);
    put16(data + 162, 24);
    put32(data + 164, sd ? makeFourCC("MMES") : makeFourCC("M701"));
    put32(data + 196, params.mpeg2HighProfile_ ? 6 : 2);
    put32(data + 200, sd ? 2 : 4);
    return 1;
}

} // namespace

int setMpeg2Params(const Vl::FileWriterParams& params, unsigned char*& data, unsigned short& size)
{
    return fillMpeg2Block(params, data, size);
}

int setMatroxMpeg2Params(const Vl::FileWriterParams& params, unsigned char*& data, unsigned short& size)
{
    return fillMpeg2Block(params, data, size);
}

std::uint32_t matroxRowStride(const Vl::FileWriterParams& params)
{
    const ImageDescription& picture = params.videoCompressionInfo_.image();
    const std::uint32_t fcc = params.videoCompressionInfo_.compression().fcc();
    if (picture.dataFormat == fcc) {
        const std::uint16_t stride = static_cast<std::uint16_t>(params.stride_);
        MORVANE_ASSERT_AT(stride == 0x5A0 || stride == 0x600 || stride == 0x708 || stride == 0x780 ||
                              stride == 0x900 || stride == 0xA00 || stride == 0xc80 || stride == 0xB40 ||
                              stride == 0xF00 || stride == 0x1300 || stride == 0x1300,
                          "AVI/FileWriter line 574");
        if (stride != 0)
            return stride;
    }
    const std::uint64_t width = picture.width;
    const std::uint64_t bytes = (fcc == makeFourCC("M103") || fcc == makeFourCC("M104")) ? width * 3 : width * 2;
    return bytes > 0xFFFFFFFFu ? 0 : static_cast<std::uint32_t>(bytes);
}

int setMatroxYUYVdata(const Vl::FileWriterParams& params, unsigned char*& data, unsigned short& size)
{
    data = new (std::nothrow) unsigned char[kMatroxYUYVBlockSize];
    if (!data)
        return 0;
    size = kMatroxYUYVBlockSize;
    const ShotVideoMetadata& picture = params.videoCompressionInfo_;
    const std::uint32_t scan = picture.scanMode();
    const std::uint32_t height = picture.image().height;
    // The record's scan word is read back as the picture's scan: it carries
    // the editor's own, PsF and the field order included. Without one, the
    // field order that the height usually has.
    std::uint32_t fieldWord = 1;
    std::uint32_t layoutWord = 5;
    if (scan == 3 || scan == 4) {
        fieldWord = scan;
        layoutWord = 4;
    } else if (scan == 1 || scan == 2) {
        fieldWord = scan;
    } else if (height == 480 || height == 486) {
        fieldWord = 2;
    }
    put32(data + 0, 1);
    put32(data + 4, 5);
    put32(data + 8, picture.image().bitsPerComponent & 0xFFFF);
    put32(data + 12, fieldWord);
    put32(data + 16, layoutWord);
    put32(data + 20, matroxRowStride(params));
    return 1;
}

} // namespace avi
