// How avi::FileInfo describes a file to the editor, on hand-built files
// whose headers set exactly what each rule reads.
#include <gtest/gtest.h>

#include <cstring>

#include "AVI/FileInfo.h"
#include "AVI/FileReader.h"
#include "common/AssertCapture.h"
#include "common/TempDir.h"
#include "host/CurrentProject.h"
#include "plugin/avi_files.h"
#include "util/stringUtils.h"
#include "vlhost/HostStats.h"

using namespace plugintest;
using Morvane::makeFourCC;

namespace {

// A file whose timecode the container does not describe: the test says
// which stream carries timecode and where it starts.
class TimecodeFile : public avi::FileInfo
{
public:
    TimecodeFile(const VlWString& path, int tcStream, std::uint32_t start)
        : PlayFile(path), FileInfo(path, eOpenForPlayback), tcStream_(tcStream), start_(start)
    {
    }

protected:
    bool isTimeCodeStream(int stream) const override { return stream == tcStream_; }
    std::uint32_t streamStartTimecode(int) const override { return start_; }

private:
    int tcStream_;
    std::uint32_t start_;
};

class Metadata : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.ok());
        Vl::CurrentProject::setOutputImageFormat({1920, 1080, Vl::eUpperFieldFirst, Vl::eFrameRate25, 28});
        Vl::CurrentProject::setFrameRate(Vl::eFrameRate25);
        vlhost::clearLogs();
    }
    VlWString write(const Bytes& b, const char* name = "t.avi")
    {
        std::string path = (dir_.path() / name).string();
        writeFile(path, b);
        return VlWString(Morvane::convertString(path));
    }
    // Opens and reads the metadata; what was printed lands in printed_.
    Vl::Ptr<avi::FileInfo> open(const Bytes& b, bool expectOk = true)
    {
        Vl::Ptr<avi::FileInfo> f(new avi::FileInfo(write(b), FileReadInstance::eOpenForPlayback));
        bool ok = false;
        printed_ = testutil::captureStdout([&] { ok = f->readMetadata(); });
        EXPECT_EQ(ok, expectOk);
        return f;
    }
    testutil::TempDir dir_;
    std::string printed_;
};

struct PictureCase
{
    const char* name;
    VideoSpec picture;
    std::uint32_t fcc;
    std::uint32_t bitsPerComponent, bitsPerPixel, stride;
    bool topDown;
    std::uint32_t scan, aspect, format;
    const char* assertion; // printed location, or ""
};

VideoSpec picture(const char (&code)[5], std::int32_t w, std::int32_t h, std::uint16_t bits,
               std::optional<AVIVIDEOPROPERTIES> vprp = videoProperties(0x00040003, 1), Bytes extra = {})
{
    VideoSpec s;
    s.fcc = makeFourCC(code);
    s.width = w;
    s.height = h;
    s.bitCount = bits;
    s.vprp = vprp;
    s.extra = std::move(extra);
    return s;
}

VideoSpec zeroCode(std::uint16_t bits)
{
    VideoSpec s = picture("dvsd", 64, 48, bits);
    s.fcc = 0;
    return s;
}

Bytes matroxExtra(std::uint32_t bitsPerComponent, std::uint32_t scan, std::uint32_t layout, std::uint32_t stride)
{
    std::uint32_t words[6] = {0xAAAA, 0xBBBB, bitsPerComponent | 0x50000, scan, layout, stride};
    Bytes b(24);
    std::memcpy(b.data(), words, 24);
    return b;
}

class Pictures : public Metadata, public testing::WithParamInterface<PictureCase>
{};

TEST_P(Pictures, FormatScanAspectAndLayout)
{
    const PictureCase& c = GetParam();
    Vl::Ptr<avi::FileInfo> f = open(buildFile(c.picture, std::nullopt));
    const ShotVideoMetadata& v = f->metadata()->video();
    EXPECT_TRUE(v.image().coreDataSet);
    // tracks, code, size, bits per component and pixel, stride, top-down, scan, aspect, format, rate, length, matrix
    EXPECT_EQ((std::vector<std::uint64_t>{v.videoTrackCount(), v.image().dataFormat, v.image().width, v.image().height,
                                          v.image().bitsPerComponent, v.image().bitsPerPixel, v.layout().stride,
                                          v.layout().topDown, v.scanMode(), v.aspectRatio(), v.videoFormatUID(),
                                          std::uint64_t(v.frameRate()), v.lengthInFrames(), v.colour().matrix}),
              (std::vector<std::uint64_t>{1, c.fcc, std::uint64_t(c.picture.width), std::uint64_t(c.picture.height),
                                          c.bitsPerComponent, c.bitsPerPixel, c.stride, c.topDown, c.scan, c.aspect,
                                          c.format, std::uint64_t(Vl::eFrameRate25), 3, c.picture.width > 720 ? 2u : 1u}));
    if (*c.assertion)
        EXPECT_NE(printed_.find(std::string("assertion failed false at ") + c.assertion), std::string::npos)
            << printed_;
    else
        EXPECT_EQ(printed_, "");
}

INSTANTIATE_TEST_SUITE_P(
    FileInfo, Pictures,
    testing::Values(
        // Interlaced NTSC: lower field first; the vprp's 4:3.
        PictureCase{"DvNtsc486", picture("dvsd", 720, 486, 24, videoProperties(0x00040003, 2)), makeFourCC("dvsd"), 8,
                    16, 1440, true, 2, 1, 3, ""},
        PictureCase{"DvPal169", picture("dvsd", 720, 576, 24, videoProperties(0x00100009, 2)), makeFourCC("dvsd"), 8,
                    16, 1440, true, 1, 2, 15, ""},
        PictureCase{"Dv50IsLowerFirst", picture("dv50", 720, 576, 24, videoProperties(0x00040003, 2)),
                    makeFourCC("dv50"), 8, 16, 1440, true, 2, 1, 15, ""},
        PictureCase{"ProgressiveMpeg2Family", picture("NPG2", 720, 576, 24), 0x3247504Eu, 8, 16, 1440, true, 3, 1, 15,
                    ""},
        PictureCase{"RgbWithoutCode", zeroCode(24), makeFourCC(" RGB"), 8, 24, 192, false, 3, 1, 0, ""},
        PictureCase{"ArgbWithoutCode", zeroCode(32), makeFourCC("ARGB"), 8, 32, 256, false, 3, 1, 0, ""},
        PictureCase{"DibIsBottomUp", picture("DIB ", 64, 48, 8), makeFourCC("DIB "), 8, 16, 128, false, 3, 1, 0, ""},
        PictureCase{"TwelveBitsAreSixPerComponent", picture("IYUV", 64, 48, 12), makeFourCC("IYUV"), 6, 12, 96, true,
                    3, 1, 0, ""},
        PictureCase{"TenBit", picture("v210", 64, 48, 30), makeFourCC("v210"), 10, 20, 160, true, 3, 1, 0, ""},
        PictureCase{"PackedYuvAt24Bits", picture("UYVY", 64, 48, 24), makeFourCC("UYVY"), 8, 16, 128, true, 3, 1, 0,
                    ""},
        PictureCase{"OddBitCount", picture("IYUV", 64, 48, 7), makeFourCC("IYUV"), 0, 0, 0, true, 3, 1, 0,
                    "AVI/FileInfo line 362"},
        // Matrox without its record: the host's stride (6 pixels in 16 bytes, rows of 128).
        PictureCase{"M101TenBitNoExtra", picture("M101", 720, 576, 30), makeFourCC("M101"), 10, 20, 1920, true, 3, 1,
                    15, ""},
        PictureCase{"M101EightBitNoExtra", picture("M101", 720, 576, 16), makeFourCC("M101"), 8, 16, 1536, true, 3, 1,
                    15, ""},
        PictureCase{"M101Record", picture("M101", 720, 576, 30, videoProperties(0x00040003, 1), matroxExtra(10, 2, 4, 2000)),
                    makeFourCC("M101"), 10, 20, 2000, true, 2, 1, 15, ""},
        PictureCase{"M101RecordZeroStride",
                    picture("m102", 720, 576, 16, videoProperties(0x00040003, 1), matroxExtra(8, 3, 5, 0)),
                    makeFourCC("m102"), 8, 16, 1440, true, 3, 1, 15, ""},
        PictureCase{"M101BadScanCode",
                    picture("M101", 720, 576, 16, videoProperties(0x00040003, 1), matroxExtra(8, 7, 4, 1440)),
                    makeFourCC("M101"), 8, 16, 1440, true, 3, 1, 15, "AVI/FileInfo line 267"},
        PictureCase{"M101BadLayoutCode",
                    picture("M101", 720, 576, 16, videoProperties(0x00040003, 1), matroxExtra(8, 1, 9, 1440)),
                    makeFourCC("M101"), 8, 16, 1440, true, 1, 1, 15, "AVI/FileInfo line 292"},
        // No vprp: interlaced upper first, 16:9 above SD width.
        PictureCase{"HdWithoutVprp", picture("dvh1", 1920, 1080, 24, std::nullopt), makeFourCC("dvh1"), 8, 16, 3840,
                    true, 1, 2, 28, ""},
        PictureCase{"FilmAspect", picture("dvh1", 2048, 1080, 24, videoProperties(0x01000087, 1)), makeFourCC("dvh1"), 8,
                    16, 4096, true, 3, 10, 40, ""},
        // The format exists, the aspect is not one of its own: logged, still opens.
        PictureCase{"AspectNotOfFormat", picture("dvsd", 720, 576, 24, videoProperties(0x01000087, 1)),
                    makeFourCC("dvsd"), 8, 16, 1440, true, 3, 10, 15, "AVI/FileInfo line 450"}),
    [](const testing::TestParamInfo<PictureCase>& i) { return std::string(i.param.name); });

TEST_F(Metadata, AspectNotOfTheFormatIsLoggedToBothLogs)
{
    open(buildFile(picture("dvsd", 720, 576, 24, videoProperties(0x01000087, 1)), std::nullopt));
    auto both = vlhost::logLines(1);
    ASSERT_FALSE(both.empty());
    EXPECT_EQ(both.back(), "Not a valid aspect ratio for format\n");
}

TEST_F(Metadata, ColourLayoutFollowsHeightThenScan)
{
    struct Case { VideoSpec picture; std::uint32_t layout; };
    for (const Case& c : {Case{picture("dvsd", 720, 480, 24, videoProperties(0x00040003, 1)), 3},
                          Case{picture("dvsd", 720, 576, 24, videoProperties(0x00040003, 1)), 4},
                          Case{picture("dvsd", 720, 576, 24, videoProperties(0x00040003, 2)), 3}}) {
        Vl::Ptr<avi::FileInfo> f = open(buildFile(c.picture, std::nullopt));
        EXPECT_EQ(f->metadata()->video().colour().layout, c.layout) << c.picture.height;
    }
}

struct AudioCase { std::uint16_t tag; std::uint16_t bits; std::uint32_t dataType; bool validSampleType; };

TEST_F(Metadata, AudioBesideVideo)
{
    for (const AudioCase& c : {AudioCase{1, 16, 201, true}, AudioCase{1, 24, 201, true}, AudioCase{2, 4, 233, false},
                               AudioCase{3, 32, 2, true}, AudioCase{17, 4, 232, false}, AudioCase{80, 16, 131, false},
                               AudioCase{0xFFFE, 24, 0, false}}) {
        AudioSpec a;
        a.formatTag = c.tag;
        a.bits = c.bits;
        Vl::Ptr<avi::FileInfo> f = open(buildFile(picture("dvsd", 720, 576, 24), a));
        const Aud::Metadata& m = f->metadata()->audio();
        EXPECT_EQ(m.audioStreams(), 1u);
        EXPECT_EQ(m.channelsPerStream(), 2u);
        EXPECT_EQ(m.bitsPerSample(), c.bits);
        EXPECT_EQ(m.stride(), c.bits / 8u);
        EXPECT_EQ(m.samplesPerSec(), 48000u);
        EXPECT_EQ(m.endianType(), 0u);
        EXPECT_EQ(m.dataType(), c.dataType) << c.tag;
        EXPECT_EQ(m.sampleTypeNumber() != Aud::kInvalidSampleType, c.validSampleType) << c.tag;
        // Three frames at 25 frames a second.
        EXPECT_EQ(m.lengthInSamples(), 5760u);
        int set = 0;
        EXPECT_EQ(f->metadata()->config().in("useAudioImportSettings", set), 0);
    }
}

TEST_F(Metadata, AudioOnlyTakesTheProjectsScanModeAndImportSettings)
{
    Vl::CurrentProject::setOutputImageFormat({720, 576, Vl::eLowerFieldFirst, Vl::eFrameRate25, 15});
    Vl::Ptr<avi::FileInfo> f = open(buildFile(std::nullopt, AudioSpec{}));
    const PlayFileMetadata& md = *f->metadata();
    EXPECT_EQ(md.video().videoTrackCount(), 0u);
    EXPECT_EQ(md.video().scanMode(), 2u);
    EXPECT_EQ(md.audio().lengthInSamples(), 3u * 1920);
    int set = 0;
    EXPECT_EQ(md.config().in("useAudioImportSettings", set), 1);
    EXPECT_EQ(set, 1);
    EXPECT_FALSE(md.startLabel().valid()); // the container gives no timecode
}

TEST_F(Metadata, TimecodeStreamIsTheBaseEvenWithVideo)
{
    // Stream 1 (audio, 48 kHz) carries the timecode, 2 s in.
    Vl::Ptr<TimecodeFile> f(new TimecodeFile(write(buildFile(picture("dvsd", 720, 576, 24), AudioSpec{})), 1, 96000));
    ASSERT_TRUE(f->readMetadata());
    EXPECT_EQ(f->timecodeStreamCount(), 1u);
    EXPECT_DOUBLE_EQ(f->baseRate(), 48000.0);
    const edit_label& label = f->metadata()->startLabel();
    ASSERT_TRUE(label.valid());
    EXPECT_EQ(label.frames(), 50u); // at the project's 25 frames a second
    EXPECT_EQ(label.text(), "00:00:02:00");
    EXPECT_EQ(label.frameRate(), Vl::eFrameRate25); // 48000 is no frame rate: the project's
}

TEST_F(Metadata, VideoIsTheBaseWithoutTimecodeStream)
{
    Vl::Ptr<TimecodeFile> f(new TimecodeFile(write(buildFile(picture("dvsd", 720, 576, 24), AudioSpec{})), -1, 75));
    ASSERT_TRUE(f->readMetadata());
    EXPECT_EQ(f->timecodeStreamCount(), 0u);
    EXPECT_DOUBLE_EQ(f->baseRate(), 25.0);
    EXPECT_EQ(f->metadata()->startLabel().frames(), 75u);
    EXPECT_EQ(f->metadata()->startLabel().scanMode(), 3u);
    EXPECT_EQ(f->metadata()->startLabel().text(), "00:00:03:00");
}

TEST_F(Metadata, AudioOnlyStartLabelCountsProjectFrames)
{
    for (auto [rate, frames] : {std::pair{Vl::eFrameRate25, 50u}, std::pair{Vl::eFrameRate50, 100u}}) {
        Vl::CurrentProject::setOutputImageFormat({1920, 1080, Vl::eProgressive, rate, 28});
        Vl::Ptr<TimecodeFile> f(new TimecodeFile(write(buildFile(std::nullopt, AudioSpec{})), -1, 96000));
        ASSERT_TRUE(f->readMetadata());
        EXPECT_EQ(f->startTimecode(), frames);
        EXPECT_EQ(f->metadata()->startLabel().frames(), frames);
        EXPECT_EQ(f->metadata()->startLabel().scanMode(), 3u);
    }
}

TEST_F(Metadata, ZeroStartTimecodeGivesNoLabel)
{
    Vl::Ptr<TimecodeFile> f(new TimecodeFile(write(buildFile(picture("dvsd", 720, 576, 24), std::nullopt)), -1, 0));
    ASSERT_TRUE(f->readMetadata());
    EXPECT_FALSE(f->metadata()->startLabel().valid());
}

TEST_F(Metadata, FilesWithNothingPlayableFail)
{
    VideoSpec empty = picture("dvsd", 720, 576, 24);
    empty.frames = 0;
    open(buildFile(empty, std::nullopt), false);

    Vl::Ptr<avi::FileInfo> missing(new avi::FileInfo(VlWString(L"/nonexistent/x.avi"), FileReadInstance::eOpenForInfo));
    EXPECT_FALSE(missing->isOpen());
    EXPECT_FALSE(missing->readMetadata());
    auto log = vlhost::logLines(0);
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back().rfind("AVI: Failed to open source file ", 0), 0u) << log.back();
}

TEST(FormatSupport, BitsFromExtensionConfigAudioTypeAndDecoders)
{
    avi::FileReader reader;
    auto metadata = [](std::uint32_t dataType, std::uint32_t fcc) {
        Vl::Ptr<PlayFileMetadata> md(new PlayFileMetadata(L"clip.avi"));
        md->audio().setDataType(dataType);
        md->audio().setBitsPerSample(16);
        md->audio().calculateSampleTypeNumber();
        md->video().setVideoTrackCount(1);
        md->video().setDataFormat(fcc);
        return md;
    };
    const VlWString path(L"/media/Clip.AVI");
    EXPECT_EQ(reader.isFileFormatSupported(path, FileReadInstance::eOpenForPlayback, *metadata(201, makeFourCC("dvsd"))), 3);
    EXPECT_EQ(reader.isFileFormatSupported(path, FileReadInstance::eOpenForPlayback, *metadata(232, makeFourCC("dvsd"))), 1);
    EXPECT_EQ(reader.isFileFormatSupported(path, FileReadInstance::eOpenForPlayback, *metadata(201, makeFourCC("xxxx"))), 2);
    EXPECT_EQ(reader.isFileFormatSupported(VlWString(L"/media/clip.mov"), FileReadInstance::eOpenForPlayback,
                                           *metadata(201, makeFourCC("dvsd"))),
              0);
    auto marked = metadata(201, makeFourCC("dvsd"));
    marked->config().set("avi_type", static_cast<std::int64_t>(0));
    EXPECT_EQ(reader.isFileFormatSupported(path, FileReadInstance::eOpenForPlayback, *marked), 0);
    EXPECT_EQ(reader.priority(), 100);
    EXPECT_EQ(reader.getMaxRequests(), 32u);
}

} // namespace
