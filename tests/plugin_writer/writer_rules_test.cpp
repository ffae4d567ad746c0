// The writer resource's rules on its objects linked in directly: track
// descriptions, codec blocks, format negotiation and the writer thread.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <vector>

#include "AVI/CodecExtraData.h"
#include "AVI/FileWriter.h"
#include "AVI/FileWriterFileInfo.h"
#include "AVI/TrackDescriptions.h"
#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "common/AssertCapture.h"
#include "common/TempDir.h"
#include "host/ByteBufferImpl.h"
#include "host/EncoderInfo.h"
#include "plugin_writer/writer_support.h"

namespace {

using Morvane::makeFourCC;
using Morvane::Avi::TrackStructuralData;
using pluginwritertest::params;

// The codes as FourCC words, in order.
std::vector<std::uint32_t> codes(std::initializer_list<const char*> names)
{
    std::vector<std::uint32_t> out;
    for (const char* n : names)
        out.push_back(makeFourCC(reinterpret_cast<const char(&)[5]>(*n)));
    return out;
}

struct Described
{
    std::vector<TrackStructuralData> tracks;
    std::string printed;
    ~Described()
    {
        for (auto& t : tracks)
            delete[] t.pExtraData;
    }
};

void describe(const Vl::FileWriterParams& p, Described& d)
{
    d.tracks.assign(avi::trackCount(p), TrackStructuralData{});
    d.printed = testutil::captureStdout([&] { ASSERT_EQ(avi::describeTracks(p, d.tracks.data()), 1); });
}

std::uint32_t u32(const unsigned char* p, std::size_t at)
{
    std::uint32_t v;
    std::memcpy(&v, p + at, 4);
    return v;
}

TEST(WriterTracks, HeightsFollowTheCompression)
{
    struct Case { const char* fcc; std::uint32_t height, described; const char* assertion; } cases[] = {
        {"GIMX", 486, 512, ""}, {"GIMX", 576, 608, ""},
        {"GIMX", 480, 0, "assertion failed false at AVI/FileWriter line 649\n"},
        {"dvsd", 486, 480, ""}, {"dv25", 486, 480, ""}, {"dv50", 486, 480, ""}, {"PPG2", 486, 480, ""},
        {"dvsd", 576, 576, ""}, {"dvh1", 1080, 1080, ""}, {"UYVY", 486, 486, ""},
    };
    for (const Case& c : cases) {
        Described d;
        describe(params(c.fcc, 720, c.height), d);
        EXPECT_EQ(d.tracks[1].Data.VInfo.height, c.described) << c.fcc << " " << c.height;
        // PPG2 brings its MPEG-2 block, which asserts nothing.
        EXPECT_EQ(d.printed, c.assertion) << c.fcc << " " << c.height;
    }
}

TEST(WriterTracks, VideoAndAudioWords)
{
    Described d;
    describe(params("dvsd", 720, 486, 2), d);
    ASSERT_EQ(d.tracks.size(), 4u);
    // The header track: rate, then scale, in its first word.
    EXPECT_EQ(std::tuple(d.tracks[0].Type, d.tracks[0].Data.Words[0], d.tracks[0].pExtraData),
              std::tuple(Morvane::Avi::StreamTimecode, 30000u | std::uint64_t(1001) << 32, nullptr));
    const auto& v = d.tracks[1].Data.VInfo;
    // type, width, code, bits, fields, aspect, rate, scale, the two reserved words, the frame size word
    EXPECT_EQ((std::vector<std::uint64_t>{d.tracks[1].Type, v.width, v.fourcc, v.bitCount, v.fieldCode, v.aspectRatio,
                                          v.rate, v.scale, v.reserved10, v.reserved11, v.gopLength}),
              (std::vector<std::uint64_t>{Morvane::Avi::StreamVideo, 720, makeFourCC("dvsd"), 24, 3, 0x00100009, 30000,
                                          1001, 1, 1, 120000}));
    for (int i : {2, 3}) {
        const auto& a = d.tracks[i].Data.AInfo;
        EXPECT_EQ((std::vector<std::uint64_t>{d.tracks[i].Type, a.formatTag, a.channels, a.samplesPerSec, a.blockAlign,
                                              a.avgBytesPerSec, u32(reinterpret_cast<const unsigned char*>(&d.tracks[i].Data), 20)}),
                  (std::vector<std::uint64_t>{Morvane::Avi::StreamAudio, 1, 2, 48000, 4, 192000, 1}));
    }
}

TEST(WriterTracks, OddCodesAndValues)
{
    Vl::FileWriterParams p = params("UYVY", 1920, 1080, 0);
    p.videoCompressionInfo_.compression().setFcc(1244);
    p.videoCompressionInfo_.setScanMode(Vl::eProgressive);
    p.videoCompressionInfo_.setAspectRatio(Vl::eAspect256x135);
    Described d;
    describe(p, d);
    ASSERT_EQ(d.tracks.size(), 2u); // no audio: header and video only
    const auto& v = d.tracks[1].Data.VInfo;
    EXPECT_EQ(std::tuple(v.width, v.fieldCode, v.aspectRatio), std::tuple(1440u, 4u, 0x00010001u));
    EXPECT_EQ(d.printed, "assertion failed false at AVI/FileWriter line 766\n");

    p = params("UYVY", 720, 576, 1);
    p.videoCompressionInfo_.setScanMode(0);
    p.audioSettings_.setDataType(Aud::eDataFloat);
    describe(p, d);
    EXPECT_EQ(d.tracks[1].Data.VInfo.fieldCode, 3u);
    EXPECT_EQ(d.tracks[2].Data.AInfo.formatTag, 1u);
    EXPECT_EQ(d.printed, "assertion failed false at AVI/FileWriter line 682\n"
                         "assertion failed params.audioSettings_.getDataType() == Aud::keAudioDataTypePCM at "
                         "AVI/FileWriter line 773\n");
}

TEST(WriterCodecBlocks, Mpeg2ByWidth)
{
    struct Case {
        const char* fcc; std::uint32_t width, height; bool high; const char* tag; std::uint32_t profile, level;
    } cases[] = {
        {"MMES", 720, 576, false, "MMES", 2, 2},  {"M701", 1920, 1080, false, "M701", 2, 4},
        {"MMES", 721, 576, true, "M701", 6, 4},   {"NPG2", 720, 486, false, "MMES", 2, 2},
        {"WPG2", 1280, 720, true, "M701", 6, 4},
    };
    for (const Case& c : cases) {
        Vl::FileWriterParams p = params(c.fcc, c.width, c.height);
        p.mpeg2BitRate_ = 50;
        p.mpeg2HighProfile_ = c.high;
        Described d;
        describe(p, d);
        const auto& t = d.tracks[1];
        ASSERT_EQ(t.cbExtra, 212) << c.fcc;
        const unsigned char* b = t.pExtraData;
        const std::pair<std::size_t, std::uint32_t> words[] = {
            {0, 44},        {4, makeFourCC("vids")}, {20, 0xE06D8026u}, {48, 0xE06D80E3u},        {68, 136},
            {108, 50000000}, {116, 333667},         {120, 0},           {148, 40},                 {152, c.width},
            {156, c.height}, {160, 24u << 16}, {196, c.profile},   {200, c.level},
            {164, codes({c.tag})[0]}};
        for (auto [at, want] : words)
            EXPECT_EQ(u32(b, at), want) << c.fcc << " at " << at;
        std::size_t nonZero = 0;
        for (std::size_t i = 0; i < 212; ++i)
            nonZero += b[i] != 0;
        EXPECT_LE(nonZero, 4u + 16 + 16 + 16 + 2 + 4 + 4 + 8 + 2 + 4 + 4 + 4 + 4 + 4 + 4) << "stray bytes";
        EXPECT_EQ(u32(b, 36) | u32(b, 40) | u32(b, 44) | u32(b, 112) | u32(b, 188) | u32(b, 192), 0u);
    }
    Described none;
    describe(params("MPG2", 720, 576), none);
    EXPECT_EQ(none.tracks[1].pExtraData, nullptr); // only N..W PG2 codes carry a block
}

TEST(WriterCodecBlocks, MatroxStrides)
{
    struct Case {
        const char* fcc; std::uint32_t width, height, dataFormat, stride, scan, expected, w3, w4; bool asserts;
    } cases[] = {
        {"M103", 1920, 1080, makeFourCC("UYVY"), 0, 1, 5760, 1, 5, false},
        {"M101", 1920, 1080, makeFourCC("UYVY"), 0, 1, 3840, 1, 5, false},
        {"M101", 720, 486, makeFourCC("M101"), 0x5A0, 2, 0x5A0, 2, 5, false},
        {"M102", 1280, 720, makeFourCC("M102"), 0xA00, 3, 0xA00, 3, 4, false},
        // The scan asked for, whatever the height usually has; PsF kept apart.
        {"M101", 64, 480, makeFourCC("M101"), 128, 1, 128, 1, 5, true},
        {"M102", 1920, 1080, makeFourCC("M102"), 0xF00, 4, 0xF00, 4, 4, false},
        {"M101", 720, 486, makeFourCC("UYVY"), 0, 0, 1440, 2, 5, false},
        {"M101", 720, 576, makeFourCC("M101"), 0, 1, 1440, 1, 5, true},
    };
    for (const Case& c : cases) {
        Vl::FileWriterParams p = params(c.fcc, c.width, c.height);
        p.videoCompressionInfo_.image().dataFormat = c.dataFormat;
        p.videoCompressionInfo_.image().bitsPerComponent = 10;
        p.videoCompressionInfo_.setScanMode(c.scan);
        p.stride_ = c.stride;
        Described d;
        describe(p, d);
        ASSERT_EQ(d.tracks[1].cbExtra, 24) << c.fcc;
        const unsigned char* b = d.tracks[1].pExtraData;
        for (std::uint32_t i = 0, want[] = {1, 5, 10, c.w3, c.w4, c.expected}; i < 6; ++i)
            EXPECT_EQ(u32(b, 4 * i), want[i]) << c.fcc << " " << c.width << "x" << c.height << " word " << i;
        EXPECT_EQ(d.printed.find("AVI/FileWriter line 574") != std::string::npos, c.asserts) << d.printed;
    }
}

class Negotiation : public testing::Test
{
protected:
    void TearDown() override
    {
        for (std::uint32_t f : codes({"dvsd", "dv25", "dv50"}))
            Vl::EncoderInfo::registerEncoder(f);
    }
    // The codes offered for a file type, each with its raster table's rows.
    using Offers = std::vector<std::pair<std::uint32_t, std::size_t>>;
    Offers offered(const char* type)
    {
        VectorExt<Compression::SupportedFormatT> out;
        writer_.getSupportedFileFormats(type, out);
        Offers offers;
        for (const auto& f : out)
            offers.emplace_back(f.fcc, f.imageFormats.size());
        return offers;
    }
    avi::FileWriter writer_;
};

// In order, with their raster tables (SD 10 rows, DVCPRO HD 13, HD 15); no
// DV while the DV encoder is gone.
TEST_F(Negotiation, OfferedFormatsAndTheirRasters)
{
    const auto fccs = codes({"dvsd", "dv25", "dv50", "dvh1", "YUY2", "UYVY", "M101", "M102", "MMES", "M701"});
    const std::size_t rows[] = {10, 10, 10, 13, 25, 25, 10, 15, 10, 15};
    Offers all;
    for (std::size_t i = 0; i < fccs.size(); ++i)
        all.emplace_back(fccs[i], rows[i]);
    EXPECT_EQ(offered("AVI"), all);
    Vl::EncoderInfo::unregisterEncoder(makeFourCC("dvsd"));
    EXPECT_EQ(offered("AVI"), Offers(all.begin() + 3, all.end()));
    EXPECT_TRUE(offered("MOV").empty());
}

TEST_F(Negotiation, PerPictureList)
{
    auto list = [&](std::uint32_t width, std::uint32_t height, const char* data) {
        ShotVideoMetadata m;
        m.setWidth(width);
        m.setHeight(height);
        m.setDataFormat(codes({data})[0]);
        std::vector<std::uint32_t> v;
        for (auto f : writer_.getSupportedFileFormats("AVI", m))
            v.push_back(f);
        return v;
    };
    EXPECT_EQ(list(720, 576, "UYVY"), codes({"dvsd", "dv25", "dv50", "MMES", "MJPG", "M101", "ARGB"}));
    // No encoder takes an odd width.
    EXPECT_EQ(list(721, 576, "M101"), codes({"M102"}));
    EXPECT_EQ(list(722, 576, "M101"), codes({"M701", "MJPG", "M102"}));
    EXPECT_EQ(list(1920, 1080, "YUY2"), codes({"dvh1", "M701", "MJPG", "M102"}));
    ShotVideoMetadata m;
    EXPECT_TRUE(writer_.getSupportedFileFormats("WAV", m).empty());

    // A supported code, at a supported size, for AVI only.
    for (auto [fcc, width, type, ok] : {std::tuple{"M101", 720u, "AVI", true}, {"M101", 5000u, "AVI", false},
                                        {"UYVY", 720u, "AVI", false}, {"M101", 720u, "MOV", false}}) {
        Vl::FileWriterParams p = params(fcc, 720, 576);
        p.image_.width = width;
        p.typeName_ = type;
        EXPECT_EQ(writer_.isSupportedFileFormat(p), ok) << fcc << " " << width << " " << type;
    }
}

TEST_F(Negotiation, InputImageAndPanels)
{
    Vl::FileWriterParams p = params("v210", 1920, 1080);
    p.image_.bitsPerComponent = 10;
    Vl::Image::Core::Object in = writer_.getInputImageFormat(p);
    EXPECT_EQ(std::tuple(in.dataFormat, in.bitsPerComponent, in.bitsPerPixel), std::tuple(makeFourCC("v210"), 10u, 20u));
    EXPECT_EQ(writer_.getInputImageFormat(params("dvsd", 720, 480)).dataFormat, makeFourCC("YUY2"));
    // DV at 576 lines is 25 frames a second only: no encoder at 29.97.
    EXPECT_EQ(writer_.getInputImageFormat(params("dvsd", 720, 576)).dataFormat, 0xFFFFFFFFu);
    p = params("XVID", 720, 576);
    EXPECT_EQ(writer_.getInputImageFormat(p).dataFormat, 0xFFFFFFFFu);
    EXPECT_FALSE(writer_.formatHasConfigPanel(p.videoCompressionInfo_));
    EXPECT_FALSE(writer_.showConfigPanel(p.videoCompressionInfo_));
    p = params("MMES", 720, 576);
    std::uint32_t shown = Vl::EncoderInfo::panelsShown();
    EXPECT_TRUE(writer_.formatHasConfigPanel(p.videoCompressionInfo_));
    EXPECT_TRUE(writer_.showConfigPanel(p.videoCompressionInfo_));
    EXPECT_EQ(Vl::EncoderInfo::panelsShown(), shown + 1);
}

// Frames whose audio cannot be had are not written.
TEST(WriterFile, AudioFailureLeavesTheFrameUnwritten)
{
    testutil::TempDir dir;
    avi::FileWriter writer;
    Vl::FileWriterParams p = params("UYVY", 64, 48);
    p.videoCompressionInfo_.setScanMode(Vl::eProgressive);
    Vl::Ptr<FileWriteInstance> instance;
    ASSERT_EQ(writer.openFile(VlWString(dir.file("a.avi")), p, instance), 1);
    auto* file = dynamic_cast<avi::FileWriter::FileInfo*>(instance.get());
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(file->trackCount(), 3u);
    std::vector<unsigned char> frame(64 * 48 * 2 + 1, 0x80);
    writer.cancelAll(instance);
    EXPECT_EQ(file->writeSurface(frame.data(), 64 * 48 * 2, eVlroFrameI), 0);
    EXPECT_EQ(file->trackData()[1].cbData, 64u * 48 * 2); // filled, then given up
    instance = nullptr;
    Morvane::Avi::FileReader reader;
    HRESULT hr = 0;
    testutil::captureStdout([&] { hr = reader.load(dir.file("a.avi")); });
    if (SUCCEEDED(hr)) {
        EXPECT_EQ(reader.get_Length(0), 0u);
    }
}
}
