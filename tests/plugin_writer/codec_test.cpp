// The stand-in's encoders and decoders, and the writer thread's picture
// kinds: each encoder, at its rasters and scan modes, makes frames whose
// kinds, storage order and presentation numbers are right (ffprobe reads
// the same kinds and field flags from the bytes), and the decoder gives
// every picture back in presentation order.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "Synth.h"
#include "common/FfmpegFiles.h"
#include "common/TempDir.h"
#include "host/ByteBufferImpl.h"
#include "host/DecoderInfo.h"
#include "host/EncoderInfo.h"
#include "host/FileInfoBase.h"
#include "plugin_writer/codec_support.h"
#include "plugin_writer/writer_support.h"
#include "util/fourcc.h"

namespace {

using Morvane::makeFourCC;
using codectest::shows;
using testutil::run;
using velloro::synthFrame;
using velloro::synthStride;

std::uint32_t code(const char* fcc)
{
    return makeFourCC(reinterpret_cast<const char(&)[5]>(*fcc));
}

VideoCompressionInfo infoFor(const char* fcc, std::uint32_t width, std::uint32_t height, Vl::FrameRate rate,
                             std::uint32_t scan)
{
    VideoCompressionInfo info(CompressionFormat(code(fcc)));
    info.setWidth(width);
    info.setHeight(height);
    info.setDataFormat(code("UYVY"));
    info.setFrameRate(rate);
    info.setScanMode(scan);
    return info;
}

Vl::Ptr<FrameBuffer> bufferOf(const std::vector<unsigned char>& bytes)
{
    Vl::Ptr<ByteBufferImpl> block(new ByteBufferImpl);
    EXPECT_TRUE(block->alloc(static_cast<std::uint32_t>(bytes.size()) + 1));
    std::copy(bytes.begin(), bytes.end(), block->data());
    block->setUsed(static_cast<std::uint32_t>(bytes.size()));
    return Vl::Ptr<FrameBuffer>(new FrameBuffer(nullptr, block, nullptr));
}

char kindLetter(VlroMpeg2FrameTypes t)
{
    return t == eVlroFrameI ? 'I' : t == eVlroFrameP ? 'P' : t == eVlroFrameB ? 'B' : '?';
}

TEST(Codecs, EncodeDecodeEveryFormat)
{
    struct Case {
        const char* fcc; std::uint32_t width, height; Vl::FrameRate rate; std::uint32_t scan;
        std::uint32_t codedWidth, codedHeight; const char* raw; std::uint32_t gop;
    } cases[] = {
        {"dvsd", 720, 480, Vl::eFrameRate29_97, Vl::eLowerFieldFirst, 720, 480, "dv", 1},
        {"dvsd", 720, 576, Vl::eFrameRate25, Vl::eProgressive, 720, 576, "dv", 1},
        {"dv25", 720, 576, Vl::eFrameRate25, Vl::eLowerFieldFirst, 720, 576, "dv", 1},
        {"dv50", 720, 486, Vl::eFrameRate29_97, Vl::eUpperFieldFirst, 720, 480, "dv", 1},
        {"dvh1", 1920, 1080, Vl::eFrameRate29_97, Vl::eUpperFieldFirst, 1280, 1080, "dv", 1},
        {"dvh1", 1440, 1080, Vl::eFrameRate25, Vl::eUpperFieldFirst, 1440, 1080, "dv", 1},
        {"dvh1", 1280, 720, Vl::eFrameRate59_94, Vl::eProgressive, 960, 720, "dv", 1},
        {"MMES", 720, 576, Vl::eFrameRate25, Vl::eUpperFieldFirst, 720, 576, "mpegvideo", 12},
        {"MMES", 720, 480, Vl::eFrameRate29_97, Vl::eLowerFieldFirst, 720, 480, "mpegvideo", 15},
        {"MMES", 720, 576, Vl::eFrameRate25, Vl::eProgressiveSegmented, 720, 576, "mpegvideo", 12},
        {"M701", 1280, 720, Vl::eFrameRate50, Vl::eProgressive, 1280, 720, "mpegvideo", 12},
        {"M701", 1920, 1080, Vl::eFrameRate29_97, Vl::eUpperFieldFirst, 1920, 1080, "mpegvideo", 15},
        {"MJPG", 640, 360, Vl::eFrameRate25, Vl::eProgressive, 640, 360, "mjpeg", 1},
    };
    testutil::TempDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.fcc) + " " + std::to_string(c.width) + "x" + std::to_string(c.height) + " scan " +
                     std::to_string(c.scan));
        const VideoCompressionInfo info = infoFor(c.fcc, c.width, c.height, c.rate, c.scan);
        Vl::Ptr<VlEncoder> encoder = Vl::EncoderInfo::getEncoderFor(info);
        ASSERT_TRUE(encoder);
        const ImageDescription input = encoder->getInputImageFormat(info);
        ASSERT_EQ(std::pair(input.width, input.height), std::pair(c.codedWidth, c.codedHeight));
        std::string error;
        ASSERT_TRUE(encoder->open(info, error)) << error;

        // Two groups and a part: the last group is cut short by the flush.
        const std::uint32_t pictures = c.gop > 1 ? 2 * c.gop + 5 : 8;
        std::vector<VlEncodedFrame> frames;
        std::vector<unsigned char> raster;
        for (std::uint32_t n = 0; n < pictures; ++n) {
            synthFrame(input.dataFormat, input.width, input.height, n, raster);
            ASSERT_TRUE(encoder->encode(raster.data(), synthStride(input.dataFormat, input.width), frames, error))
                << error;
        }
        ASSERT_TRUE(encoder->flush(frames, error)) << error;
        ASSERT_EQ(frames.size(), pictures) << "frames lost or made up";

        // Presentation numbers: each picture once; a frame is stored after
        // the anchors it is predicted from, and a group is closed.
        std::set<std::uint32_t> seen;
        std::string kinds(pictures, '?');
        std::uint32_t lastAnchor = 0;
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const VlEncodedFrame& f = frames[i];
            ASSERT_LT(f.presentation, pictures);
            EXPECT_TRUE(seen.insert(f.presentation).second) << "picture " << f.presentation << " twice";
            kinds[f.presentation] = kindLetter(f.type);
            if (f.type == eVlroFrameB)
                EXPECT_LT(f.presentation, lastAnchor) << "a B frame stored before its later anchor";
            else
                lastAnchor = f.presentation;
            if (c.gop > 1) {
                // The bytes say the same: picture kind and temporal reference.
                const std::vector<VlCodedFrame> coded = Vl::DecoderInfo::splitMpeg2(f.bytes.data(), f.bytes.size());
                ASSERT_EQ(coded.size(), 1u) << "frame " << i;
                EXPECT_EQ(coded[0].type, f.type) << "frame " << i;
                EXPECT_EQ(coded[0].temporalReference, f.presentation % c.gop) << "frame " << i;
                EXPECT_EQ(coded[0].startsGroup, f.presentation % c.gop == 0) << "frame " << i;
            }
        }
        if (c.gop > 1) {
            // Closed groups of gop frames: I first and only there, with P and B frames.
            for (std::uint32_t p = 0; p < pictures; ++p) {
                const std::uint32_t k = p % c.gop;
                if (k == 0)
                    EXPECT_EQ(kinds[p], 'I') << kinds;
                else
                    EXPECT_NE(kinds[p], 'I') << kinds;
            }
            EXPECT_NE(kinds.find('P'), std::string::npos) << kinds;
            EXPECT_NE(kinds.find('B'), std::string::npos) << kinds;
        } else {
            EXPECT_EQ(kinds, std::string(pictures, 'I'));
        }

        // ffprobe reads the kinds and the field flags from the bytes alone.
        const std::string raw = dir.path().string() + "/" + c.fcc + ".raw";
        {
            std::ofstream out(raw, std::ios::binary);
            for (const VlEncodedFrame& f : frames)
                out.write(reinterpret_cast<const char*>(f.bytes.data()), std::streamsize(f.bytes.size()));
        }
        std::istringstream probed(run("ffprobe -v error -f " + std::string(c.raw) +
                                      " -show_entries frame=pict_type,interlaced_frame,top_field_first -of csv=p=0 '" +
                                      raw + "' 2>/dev/null"));
        std::string line, ffKinds;
        std::set<std::string> fields;
        while (std::getline(probed, line)) {
            if (line.empty())
                continue; // an empty side data section
            std::vector<std::string> f;
            std::stringstream ss(line);
            for (std::string v; std::getline(ss, v, ',');)
                f.push_back(v);
            ASSERT_EQ(f.size(), 3u) << line;
            ffKinds += f[0];
            fields.insert(f[1] + f[2]);
        }
        EXPECT_EQ(ffKinds, kinds);
        if (std::string(c.raw) != "mjpeg") {
            const bool interlaced = c.scan == Vl::eUpperFieldFirst || c.scan == Vl::eLowerFieldFirst;
            const std::string want = !interlaced ? "00" : c.scan == Vl::eUpperFieldFirst ? "11" : "10";
            // libavcodec's reading of 720-line DV is always progressive.
            EXPECT_EQ(fields, std::set<std::string>{want});
        }

        // Decoded in storage order, the pictures come back in presentation
        // order, each showing its own frame's box.
        PlayFileMetadata md(L"clip");
        md.video().setVideoTrackCount(1);
        md.video().setDataFormat(code(c.fcc));
        Vl::Ptr<VlDecoder> decoder = Vl::DecoderInfo::getDecoderFor(md);
        ASSERT_TRUE(decoder);
        std::vector<VlDecodedPicture> decoded;
        for (const VlEncodedFrame& f : frames)
            ASSERT_TRUE(decoder->decode(*bufferOf(f.bytes), decoded, error)) << error;
        ASSERT_TRUE(decoder->flush(decoded, error)) << error;
        ASSERT_EQ(decoded.size(), pictures);
        for (std::uint32_t n = 0; n < pictures; ++n) {
            EXPECT_EQ(decoded[n].presentation, n);
            EXPECT_EQ(std::pair(decoded[n].width, decoded[n].height), std::pair(c.codedWidth, c.codedHeight));
            EXPECT_TRUE(shows(decoded[n], n)) << "picture " << n << " shows another frame";
        }
    }
}

// Only what libavcodec codes is offered: these have no encoder.
TEST(Codecs, NoEncoderWhereLibavcodecHasNone)
{
    struct Case { const char* fcc; std::uint32_t width, height; Vl::FrameRate rate; } cases[] = {
        {"dvsd", 1920, 1080, Vl::eFrameRate29_97}, {"dvsd", 720, 576, Vl::eFrameRate29_97},
        {"dv50", 720, 480, Vl::eFrameRate25},      {"dvh1", 1280, 1080, Vl::eFrameRate25},
        {"dvh1", 960, 720, Vl::eFrameRate29_97},   {"dvh1", 720, 576, Vl::eFrameRate25},
        {"MMES", 1920, 1080, Vl::eFrameRate25},    {"MMES", 720, 720, Vl::eFrameRate25},
        {"M701", 720, 576, Vl::eFrameRate25},      {"M701", 3840, 2160, Vl::eFrameRate25},
        {"XVID", 720, 576, Vl::eFrameRate25},
    };
    for (const Case& c : cases)
        EXPECT_FALSE(Vl::EncoderInfo::getEncoderFor(infoFor(c.fcc, c.width, c.height, c.rate, Vl::eProgressive)))
            << c.fcc << " " << c.width << "x" << c.height;
    // Misuse is an error, never a crash.
    VlEncoder idle(code("MMES"));
    std::vector<VlEncodedFrame> out;
    std::string error;
    unsigned char pixel[4] = {};
    EXPECT_FALSE(idle.encode(pixel, 4, out, error));
    EXPECT_FALSE(error.empty());
    VlEncoder wrong(code("dvsd"));
    EXPECT_FALSE(wrong.open(infoFor("dvsd", 720, 576, Vl::eFrameRate29_97, Vl::eProgressive), error));
}

// The groups as the reader hands them: frames back to back, split again
// with their kinds; a whole group decodes to its record's places.
TEST(Codecs, WholeGroupDecodesInPresentationOrder)
{
    const VideoCompressionInfo info = infoFor("MMES", 720, 576, Vl::eFrameRate25, Vl::eUpperFieldFirst);
    Vl::Ptr<VlEncoder> encoder = Vl::EncoderInfo::getEncoderFor(info);
    ASSERT_TRUE(encoder);
    std::string error;
    ASSERT_TRUE(encoder->open(info, error)) << error;
    std::vector<VlEncodedFrame> frames;
    std::vector<unsigned char> raster;
    for (std::uint32_t n = 0; n < 24; ++n) {
        synthFrame(code("YUY2"), 720, 576, n, raster);
        ASSERT_TRUE(encoder->encode(raster.data(), 1440, frames, error)) << error;
    }
    ASSERT_TRUE(encoder->flush(frames, error)) << error;
    ASSERT_EQ(frames.size(), 24u);

    PlayFileMetadata md(L"clip");
    md.video().setVideoTrackCount(1);
    md.video().setDataFormat(code("MMES"));
    Vl::Ptr<VlDecoder> decoder = Vl::DecoderInfo::getDecoderFor(md);
    ASSERT_TRUE(decoder);
    for (std::uint32_t group = 0; group < 2; ++group) {
        std::vector<unsigned char> bytes;
        Vl::Ptr<IndexInfo> record(new IndexInfo);
        for (std::uint32_t i = 12 * group; i < 12 * group + 12; ++i) {
            bytes.insert(bytes.end(), frames[i].bytes.begin(), frames[i].bytes.end());
            record->decodeOrder().push_back(i);
            record->presentationOrder().push_back(frames[i].presentation);
        }
        const std::vector<VlCodedFrame> coded = Vl::DecoderInfo::splitMpeg2(bytes.data(), bytes.size());
        ASSERT_EQ(coded.size(), 12u);
        std::uint32_t offset = 0;
        for (std::uint32_t k = 0; k < 12; ++k) {
            EXPECT_EQ(coded[k].offset, offset);
            EXPECT_EQ(coded[k].size, frames[12 * group + k].bytes.size());
            EXPECT_EQ(coded[k].type, frames[12 * group + k].type);
            offset += coded[k].size;
        }
        Vl::Ptr<ByteBufferImpl> block(new ByteBufferImpl);
        ASSERT_TRUE(block->alloc(static_cast<std::uint32_t>(bytes.size())));
        std::copy(bytes.begin(), bytes.end(), block->data());
        block->setUsed(static_cast<std::uint32_t>(bytes.size()));
        FrameBuffer whole(nullptr, block, record);
        std::vector<VlDecodedPicture> pictures;
        ASSERT_TRUE(decoder->decode(whole, pictures, error)) << error;
        ASSERT_EQ(pictures.size(), 12u);
        for (std::uint32_t k = 0; k < 12; ++k) {
            EXPECT_EQ(pictures[k].presentation, 12 * group + k);
            EXPECT_TRUE(shows(pictures[k], 12 * group + k)) << "picture " << 12 * group + k;
        }
    }
    // A group whose record names more frames than it holds is refused.
    std::vector<VlDecodedPicture> none;
    Vl::Ptr<IndexInfo> record(new IndexInfo);
    record->decodeOrder() = {0, 1};
    record->presentationOrder() = {0, 1};
    Vl::Ptr<ByteBufferImpl> block(new ByteBufferImpl);
    ASSERT_TRUE(block->alloc(static_cast<std::uint32_t>(frames[0].bytes.size())));
    std::copy(frames[0].bytes.begin(), frames[0].bytes.end(), block->data());
    block->setUsed(static_cast<std::uint32_t>(frames[0].bytes.size()));
    EXPECT_FALSE(decoder->decode(FrameBuffer(nullptr, block, record), none, error));
    EXPECT_NE(error.find("holds 1 pictures"), std::string::npos) << error;
}

// The writer thread hands the plug-in each frame's kind and presentation
// number in the order the frames were queued; frames queued without them
// are I frames numbered in queue order.
TEST(Codecs, WriterThreadPassesKindsAndPlaces)
{
    struct Seen
    {
        VlroMpeg2FrameTypes type;
        std::uint32_t place;
        std::uint32_t size;
    };
    struct Recorder : Vl::FileInfoBase
    {
        using Vl::FileInfoBase::FileInfoBase;
        using Vl::FileInfoBase::writeSurface;
        ~Recorder() override { finishWriterThread(); }
        int initialise() override { return 1; }
        void deinitialise() override {}
        int writeSurface(unsigned char*, unsigned int size, VlroMpeg2FrameTypes type) override
        {
            seen.push_back({type, currentFrameValue(), size});
            return 1;
        }
        std::vector<Seen> seen;
    };
    Vl::FileWriterParams p = pluginwritertest::params("MMES", 720, 576, 0);
    Vl::Ptr<Recorder> file(new Recorder(L"unused", p, false));
    struct Queued { VlroMpeg2FrameTypes type; std::uint32_t place; } queued[] = {
        {eVlroFrameI, 0}, {eVlroFrameP, 3}, {eVlroFrameB, 1}, {eVlroFrameB, 2},
        {eVlroFrameP, 6}, {eVlroFrameB, 4}, {eVlroFrameB, 5}, {eVlroFrameI, 7},
    };
    std::uint32_t size = 100;
    for (const Queued& q : queued) {
        Vl::Ptr<FrameBuffer> frame = bufferOf(std::vector<unsigned char>(size++, 0));
        ASSERT_EQ(file->writeSurface(frame, q.type, q.place), 1);
    }
    for (int k = 0; k < 2; ++k) {
        Vl::Ptr<FrameBuffer> frame = bufferOf(std::vector<unsigned char>(size++, 0));
        ASSERT_EQ(file->writeSurface(frame), 1);
    }
    ASSERT_EQ(file->writeFinish(), 1);
    ASSERT_EQ(file->seen.size(), std::size(queued) + 2);
    for (std::size_t i = 0; i < file->seen.size(); ++i) {
        const Seen& s = file->seen[i];
        EXPECT_EQ(s.size, 100 + i) << "frame " << i << " out of order";
        if (i < std::size(queued)) {
            EXPECT_EQ(s.type, queued[i].type) << "frame " << i;
            EXPECT_EQ(s.place, queued[i].place) << "frame " << i;
        } else {
            EXPECT_EQ(s.type, eVlroFrameI);
            EXPECT_EQ(s.place, i) << "the running count";
        }
    }
}

} // namespace
