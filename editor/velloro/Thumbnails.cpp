#include "Thumbnails.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include "PluginLoader.h"
#include "PluginRead.h"
#include "host/DecoderInfo.h"
#include "host/FrameRates.h"
#include "util/fourcc.h"
#include "util/stringUtils.h"

namespace velloro {

namespace {

using Morvane::makeFourCC;

constexpr std::uint32_t kThumbWidth = 192;
constexpr std::uint32_t kColumns = 4;
constexpr std::uint32_t kGap = 8;
constexpr std::uint32_t kScale = 2;               // of the 5x7 digits
constexpr std::uint32_t kLabelHeight = 7 * kScale + 8;

struct Rgb
{
    unsigned char r, g, b;
};

// The digits and the separators of a timecode, 5 columns by 7 rows.
const unsigned char* glyph(char c)
{
    static const unsigned char digits[10][7] = {
        {14, 17, 19, 21, 25, 17, 14}, {4, 12, 4, 4, 4, 4, 14},   {14, 17, 1, 2, 4, 8, 31},
        {31, 2, 4, 2, 1, 17, 14},     {2, 6, 10, 18, 31, 2, 2},  {31, 16, 30, 1, 1, 17, 14},
        {6, 8, 16, 30, 17, 17, 14},   {31, 1, 2, 4, 8, 8, 8},    {14, 17, 17, 14, 17, 17, 14},
        {14, 17, 17, 15, 1, 2, 12},
    };
    static const unsigned char colon[7] = {0, 12, 12, 0, 12, 12, 0};
    static const unsigned char semicolon[7] = {0, 12, 12, 0, 12, 4, 8};
    if (c >= '0' && c <= '9')
        return digits[c - '0'];
    return c == ';' ? semicolon : colon;
}

Rgb toRgb(int y, int cb, int cr)
{
    // BT.601 studio range, as the stand-in's uncompressed pictures are.
    const double l = 1.164 * (y - 16), u = cb - 128, v = cr - 128;
    auto clip = [](double x) { return static_cast<unsigned char>(std::clamp(std::lround(x), 0L, 255L)); };
    return {clip(l + 1.596 * v), clip(l - 0.392 * u - 0.813 * v), clip(l + 2.017 * u)};
}

// The pixel at (x, y) of an uncompressed frame, or false for a layout that
// would need a decoder.
class Raster
{
public:
    Raster(std::uint32_t fcc, std::uint32_t width, std::uint32_t height) : fcc_(fcc), width_(width), height_(height) {}

    static bool known(std::uint32_t fcc)
    {
        return fcc == makeFourCC("UYVY") || fcc == makeFourCC("YUY2") || fcc == makeFourCC("M101") ||
               fcc == makeFourCC("M102") || fcc == makeFourCC("v210");
    }

    // The rows of an uncompressed frame fill its chunk: the stride is the
    // chunk's share per row, at least what a row of pixels takes.
    bool fitTo(std::uint64_t frameBytes)
    {
        const std::uint64_t least = fcc_ == makeFourCC("v210") ? (width_ + 5) / 6 * 16ull : width_ * 2ull;
        stride_ = static_cast<std::uint32_t>(std::min<std::uint64_t>(frameBytes / height_, 0xFFFFFFFFu));
        return stride_ >= least;
    }

    Rgb at(const unsigned char* frame, std::uint32_t x, std::uint32_t y) const
    {
        const unsigned char* row = frame + std::size_t(y) * stride_;
        if (fcc_ == makeFourCC("v210")) {
            // Six pixels in four little-endian words of three 10-bit values.
            const unsigned char* group = row + std::size_t(x / 6) * 16;
            int v[12];
            for (int w = 0; w < 4; ++w) {
                const std::uint32_t word = std::uint32_t(group[4 * w]) | std::uint32_t(group[4 * w + 1]) << 8 |
                                           std::uint32_t(group[4 * w + 2]) << 16 | std::uint32_t(group[4 * w + 3]) << 24;
                for (int k = 0; k < 3; ++k)
                    v[3 * w + k] = int((word >> (10 * k)) & 0x3FF) >> 2;
            }
            const int k = int(x % 6);
            return toRgb(v[2 * k + 1], v[(k & ~1) * 2], v[(k & ~1) * 2 + 2]);
        }
        const unsigned char* p = row + std::size_t(x & ~1u) * 2;
        const bool odd = x & 1;
        if (fcc_ == makeFourCC("YUY2"))
            return toRgb(p[odd ? 2 : 0], p[1], p[3]);
        return toRgb(p[odd ? 3 : 1], p[0], p[2]);
    }

    std::uint32_t width() const { return width_; }
    std::uint32_t height() const { return height_; }

private:
    std::uint32_t fcc_, width_, height_, stride_ = 0;
};

class Sheet
{
public:
    Sheet(std::uint32_t width, std::uint32_t height) : width_(width), height_(height), pixels_(std::size_t(width) * height, {24, 24, 24}) {}

    void put(std::uint32_t x, std::uint32_t y, Rgb c)
    {
        if (x < width_ && y < height_)
            pixels_[std::size_t(y) * width_ + x] = c;
    }

    void text(std::uint32_t x, std::uint32_t y, const std::string& s)
    {
        for (char c : s) {
            const unsigned char* rows = glyph(c);
            for (std::uint32_t r = 0; r < 7 * kScale; ++r)
                for (std::uint32_t col = 0; col < 5 * kScale; ++col)
                    if (rows[r / kScale] & (16 >> (col / kScale)))
                        put(x + col, y + r, {235, 235, 235});
            x += 6 * kScale;
        }
    }

    bool writePng(const std::string& path, std::string& error) const
    {
        std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "wb"), std::fclose);
        if (!file) {
            error = "cannot create " + path;
            return false;
        }
        png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        png_infop info = png ? png_create_info_struct(png) : nullptr;
        if (!info || setjmp(png_jmpbuf(png))) {
            png_destroy_write_struct(&png, info ? &info : nullptr);
            error = "cannot write " + path;
            return false;
        }
        png_init_io(png, file.get());
        png_set_IHDR(png, info, width_, height_, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        for (std::uint32_t y = 0; y < height_; ++y)
            png_write_row(png, reinterpret_cast<png_const_bytep>(&pixels_[std::size_t(y) * width_]));
        png_write_end(png, nullptr);
        png_destroy_write_struct(&png, &info);
        return true;
    }

private:
    std::uint32_t width_, height_;
    std::vector<Rgb> pixels_;
};

std::string timecode(std::uint64_t frame, double fps)
{
    const std::uint64_t base = std::max<std::uint64_t>(1, std::llround(fps));
    const std::uint64_t s = frame / base;
    char text[32];
    std::snprintf(text, sizeof text, "%02llu:%02llu:%02llu:%02llu", static_cast<unsigned long long>(s / 3600 % 100),
                  static_cast<unsigned long long>(s / 60 % 60), static_cast<unsigned long long>(s % 60),
                  static_cast<unsigned long long>(frame % base));
    return text;
}

// One frame read as the editor reads it; null when it cannot be.
Vl::Ptr<FrameBuffer> readFrame(Vl::FileReaderResource& reader, const Vl::Ptr<FileReadInstance>& file,
                               std::uint32_t n, bool wholeGroup)
{
    Vl::Ptr<VideoReadRequest> request =
        reader.readVideoSample(file, n, wholeGroup, VideoReadRequest::eCompressed, nullptr, nullptr, false);
    if (request && request->wait() == RequestStatus::eCompleted)
        return request->getResult();
    return nullptr;
}

// Picture n of a compressed clip. A long-GOP frame needs its group: whole
// from the reader where the file has group records, or else fed frame by
// frame from the group's first frame, found by its picture headers.
bool decodeFrame(Vl::FileReaderResource& reader, const Vl::Ptr<FileReadInstance>& file, std::uint32_t n,
                 VlDecodedPicture& picture, std::string& error)
{
    const PlayFileMetadata& md = *file->metadata();
    Vl::Ptr<VlDecoder> decoder = Vl::DecoderInfo::getDecoderFor(md);
    if (!decoder) {
        error = "no decoder here for " + fourccText(md.video().image().dataFormat) + " pictures";
        return false;
    }
    const std::uint32_t frames = md.video().lengthInFrames();
    const bool mpeg2 = Vl::DecoderInfo::isMpeg2(md.video().image().dataFormat);
    const bool records = mpeg2 && md.video().gopSize() >= 2;
    auto groupStarts = [](const Vl::Ptr<FrameBuffer>& f) {
        std::vector<VlCodedFrame> coded = Vl::DecoderInfo::splitMpeg2(f->bytes(), f->size());
        return !coded.empty() && coded.front().startsGroup;
    };
    std::uint32_t first = n;
    if (mpeg2 && !records) {
        // At most a few groups back: a stream without group headers starts at 0.
        for (std::uint32_t steps = 0; first > 0 && steps < 1024; --first, ++steps) {
            Vl::Ptr<FrameBuffer> f = readFrame(reader, file, first, false);
            if (!f) {
                error = "frame " + std::to_string(first) + " could not be read";
                return false;
            }
            if (groupStarts(f))
                break;
        }
    }
    std::vector<VlDecodedPicture> pictures;
    const std::uint32_t wanted = records ? n : n - first;
    bool done = false;
    auto found = [&] {
        for (VlDecodedPicture& p : pictures)
            if (!done && (p.presentation == wanted || !mpeg2)) {
                picture = std::move(p);
                done = true;
            }
        pictures.clear();
        return done;
    };
    for (std::uint32_t k = first; k < frames; ++k) {
        Vl::Ptr<FrameBuffer> f = readFrame(reader, file, k, records);
        if (!f) {
            error = "frame " + std::to_string(k) + " could not be read";
            return false;
        }
        if (mpeg2 && !records && k > first && groupStarts(f))
            break;
        if (!decoder->decode(*f, pictures, error))
            return false;
        if (found() || records || !mpeg2)
            break;
    }
    if (!found() && (!decoder->flush(pictures, error) || !found())) {
        if (error.empty())
            error = "the decoder gave no picture for frame " + std::to_string(n);
        return false;
    }
    return true;
}

} // namespace

bool pluginThumbnails(Vl::FileReaderResource& reader, const std::wstring& path, const std::string& png,
                      std::uint32_t count, std::string& error)
{
    Vl::Ptr<FileReadInstance> file = openThrough(reader, path, error);
    if (!file)
        return false;
    const ShotVideoMetadata& v = file->metadata()->video();
    const ImageDescription& im = v.image();
    if (!v.videoTrackCount() || v.lengthInFrames() == 0 || im.width == 0 || im.height == 0) {
        error = "no video frames";
        return false;
    }
    // Compressed frames are decoded to UYVY first.
    const bool decoded = !Raster::known(im.dataFormat);
    if (decoded && !Vl::DecoderInfo::getDecoderFor(*file->metadata())) {
        error = "no decoder here for " + fourccText(im.dataFormat) + " pictures";
        return false;
    }
    Raster raster(im.dataFormat, im.width, im.height);
    const std::uint32_t frames = v.lengthInFrames();
    count = std::clamp<std::uint32_t>(count, 1, std::min<std::uint32_t>(frames, 64));
    const std::uint32_t thumbHeight = std::max<std::uint32_t>(1, kThumbWidth * im.height / im.width);
    const std::uint32_t columns = std::min(count, kColumns), rows = (count + columns - 1) / columns;
    Sheet sheet(kGap + columns * (kThumbWidth + kGap), kGap + rows * (thumbHeight + kLabelHeight + kGap));
    const double fps = Vl::getFramesPerSecond(v.frameRate());

    for (std::uint32_t k = 0; k < count; ++k) {
        const std::uint32_t n = count > 1 ? std::uint32_t(std::uint64_t(frames - 1) * k / (count - 1)) : 0;
        VlDecodedPicture picture;
        if (decoded) {
            if (!decodeFrame(reader, file, n, picture, error)) {
                error = "frame " + std::to_string(n) + ": " + error;
                reader.waitForIdle();
                return false;
            }
            raster = Raster(makeFourCC("UYVY"), picture.width, picture.height);
        }
        Vl::Ptr<FrameBuffer> frame = decoded ? nullptr : readFrame(reader, file, n, false);
        const std::uint64_t bytes = decoded ? picture.uyvy.size() : (frame ? frame->size() : 0);
        if ((!decoded && !frame) || !raster.fitTo(bytes)) {
            error = "frame " + std::to_string(n) + " could not be read whole";
            reader.waitForIdle();
            return false;
        }
        const unsigned char* pixels = decoded ? picture.uyvy.data() : frame->bytes();
        const std::uint32_t width = raster.width(), height = raster.height();
        const std::uint32_t left = kGap + (k % columns) * (kThumbWidth + kGap);
        const std::uint32_t top = kGap + (k / columns) * (thumbHeight + kLabelHeight + kGap);
        for (std::uint32_t y = 0; y < thumbHeight; ++y) {
            const std::uint32_t sy = std::min(height - 1, std::uint32_t(std::uint64_t(y) * height / thumbHeight));
            // Decoded pictures are top first.
            const std::uint32_t row = decoded || v.layout().topDown ? sy : height - 1 - sy;
            for (std::uint32_t x = 0; x < kThumbWidth; ++x)
                sheet.put(left + x, top + y,
                          raster.at(pixels, std::min(width - 1, std::uint32_t(std::uint64_t(x) * width / kThumbWidth)), row));
        }
        sheet.text(left, top + thumbHeight + 4, timecode(n, fps));
    }
    reader.waitForIdle();
    return sheet.writePng(png, error);
}

int thumbnailsCommand(const char* path, const char* png, std::uint32_t count)
{
    PluginLoader loader;
    if (!loader.loadForCommand("thumbnails", path))
        return 1;
    Vl::FileReaderResource* reader = loader.findReader("AVI FileReader");
    std::string error = "the plug-in has no \"AVI FileReader\"";
    if (!reader || !pluginThumbnails(*reader, Morvane::convertString(path), png, count, error)) {
        std::fprintf(stderr, "velloro thumbnails: %s: %s\n", path, error.c_str());
        return 1;
    }
    std::printf("velloro thumbnails: wrote %s\n", png);
    return 0;
}

} // namespace velloro
