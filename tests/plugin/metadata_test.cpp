// How avi::FileInfo describes a file to the editor, on hand-built files
// whose headers set exactly what each rule reads.
#include <gtest/gtest.h>

#include <tuple>

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
    std::uint32_t fcc; // 0: the file's own code
    std::uint32_t bitsPerComponent, bitsPerPixel, stride;
    bool topDown;
    std::uint32_t scan, aspect, format;
    const char* assertion = ""; // printed location
};

// Shown by the test runner as the case's name, not its bytes.
inline void PrintTo(const PictureCase& c, std::ostream* os) { *os << c.name; }

// aspect 0: no vprp.
VideoSpec picture(const char (&code)[5], std::int32_t w, std::int32_t h, std::uint16_t bits,
                  std::uint32_t aspect = 0x00040003, std::uint32_t fields = 1, Bytes extra = {})
{
    return VideoSpec{.fcc = makeFourCC(code), .width = w, .height = h, .bitCount = bits, .extra = std::move(extra),
                     .vprp = aspect ? std::optional(videoProperties(aspect, fields)) : std::nullopt};
}

Bytes matroxExtra(std::uint32_t bitsPerComponent, std::uint32_t scan, std::uint32_t layout, std::uint32_t stride)
{
    return bytesOf(std::vector<std::uint32_t>{0xAAAA, 0xBBBB, bitsPerComponent | 0x50000, scan, layout, stride});
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
              (std::vector<std::uint64_t>{1, c.fcc ? c.fcc : c.picture.fcc, std::uint64_t(c.picture.width),
                                          std::uint64_t(c.picture.height), c.bitsPerComponent, c.bitsPerPixel,
                                          c.stride, c.topDown, c.scan, c.aspect, c.format,
                                          std::uint64_t(Vl::eFrameRate25), 3, c.picture.width > 720 ? 2u : 1u}));
    if (*c.assertion)
        EXPECT_NE(printed_.find(std::string("assertion failed false at ") + c.assertion), std::string::npos)
            << printed_;
    else
        EXPECT_EQ(printed_, "");
    // An aspect not of the format also goes to both logs.
    auto both = vlhost::logLines(1);
    EXPECT_EQ(both.empty() ? "" : both.back(),
              c.assertion == std::string("AVI/FileInfo line 450") ? "Not a valid aspect ratio for format\n" : "");
}

INSTANTIATE_TEST_SUITE_P(
    FileInfo, Pictures,
    testing::Values(
        // Interlaced NTSC: lower field first; the vprp's 4:3.
        PictureCase{"DvNtsc486", picture("dvsd", 720, 486, 24, 0x00040003, 2), 0, 8, 16, 1440, true, 2, 1, 3},
        PictureCase{"DvPal169", picture("dvsd", 720, 576, 24, 0x00100009, 2), 0, 8, 16, 1440, true, 1, 2, 15},
        PictureCase{"Dv50IsLowerFirst", picture("dv50", 720, 576, 24, 0x00040003, 2), 0, 8, 16, 1440, true, 2, 1, 15},
        PictureCase{"ProgressiveMpeg2Family", picture("NPG2", 720, 576, 24), 0, 8, 16, 1440, true, 3, 1, 15},
        PictureCase{"RgbWithoutCode", picture("\0\0\0\0", 64, 48, 24), makeFourCC(" RGB"), 8, 24, 192, false, 3, 1, 0},
        PictureCase{"ArgbWithoutCode", picture("\0\0\0\0", 64, 48, 32), makeFourCC("ARGB"), 8, 32, 256, false, 3, 1, 0},
        PictureCase{"DibIsBottomUp", picture("DIB ", 64, 48, 8), 0, 8, 16, 128, false, 3, 1, 0},
        PictureCase{"TwelveBitsAreSixPerComponent", picture("IYUV", 64, 48, 12), 0, 6, 12, 96, true, 3, 1, 0},
        PictureCase{"TenBit", picture("v210", 64, 48, 30), 0, 10, 20, 160, true, 3, 1, 0},
        PictureCase{"PackedYuvAt24Bits", picture("UYVY", 64, 48, 24), 0, 8, 16, 128, true, 3, 1, 0},
        PictureCase{"OddBitCount", picture("IYUV", 64, 48, 7), 0, 0, 0, 0, true, 3, 1, 0, "AVI/FileInfo line 362"},
        // Matrox without its record: the host's stride (6 pixels in 16 bytes, rows of 128).
        PictureCase{"M101TenBitNoExtra", picture("M101", 720, 576, 30), 0, 10, 20, 1920, true, 3, 1, 15},
        PictureCase{"M101EightBitNoExtra", picture("M101", 720, 576, 16), 0, 8, 16, 1536, true, 3, 1, 15},
        PictureCase{"M101Record", picture("M101", 720, 576, 30, 0x00040003, 1, matroxExtra(10, 2, 4, 2000)), 0, 10,
                    20, 2000, true, 2, 1, 15},
        PictureCase{"M101RecordZeroStride", picture("m102", 720, 576, 16, 0x00040003, 1, matroxExtra(8, 3, 5, 0)), 0,
                    8, 16, 1440, true, 3, 1, 15},
        PictureCase{"M101BadScanCode", picture("M101", 720, 576, 16, 0x00040003, 1, matroxExtra(8, 7, 4, 1440)), 0, 8,
                    16, 1440, true, 3, 1, 15, "AVI/FileInfo line 267"},
        PictureCase{"M101BadLayoutCode", picture("M101", 720, 576, 16, 0x00040003, 1, matroxExtra(8, 1, 9, 1440)), 0,
                    8, 16, 1440, true, 1, 1, 15, "AVI/FileInfo line 292"},
        // No vprp: interlaced upper first, 16:9 above SD width.
        PictureCase{"HdWithoutVprp", picture("dvh1", 1920, 1080, 24, 0), 0, 8, 16, 3840, true, 1, 2, 28},
        PictureCase{"FilmAspect", picture("dvh1", 2048, 1080, 24, 0x01000087), 0, 8, 16, 4096, true, 3, 10, 40},
        // The format exists, the aspect is not one of its own: logged, still opens.
        PictureCase{"AspectNotOfFormat", picture("dvsd", 720, 576, 24, 0x01000087), 0, 8, 16, 1440, true, 3, 10, 15,
                    "AVI/FileInfo line 450"}),
    [](const testing::TestParamInfo<PictureCase>& i) { return std::string(i.param.name); });

TEST_F(Metadata, ColourLayoutFollowsHeightThenScan)
{
    struct Case { VideoSpec picture; std::uint32_t layout; };
    for (const Case& c : {Case{picture("dvsd", 720, 480, 24), 3}, Case{picture("dvsd", 720, 576, 24), 4},
                          Case{picture("dvsd", 720, 576, 24, 0x00040003, 2), 3}}) {
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
        // streams, channels, bits, stride, rate, endianness, data type, length (three frames at 25 a second)
        EXPECT_EQ((std::vector<std::uint64_t>{m.audioStreams(), m.channelsPerStream(), m.bitsPerSample(), m.stride(),
                                              m.samplesPerSec(), m.endianType(), m.dataType(), m.lengthInSamples()}),
                  (std::vector<std::uint64_t>{1, 2, c.bits, c.bits / 8u, 48000, 0, c.dataType, 5760}))
            << c.tag;
        EXPECT_EQ(m.sampleTypeNumber() != Aud::kInvalidSampleType, c.validSampleType) << c.tag;
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

// Which stream the start timecode counts in, and the label it gives at
// the project's output frame rate.
TEST_F(Metadata, StartLabelFromTheBaseStream)
{
    const struct { const char* name; bool video; int tcStream; std::uint32_t start; Vl::FrameRate projectRate;
                   double baseRate; std::uint32_t frames; const char* text; } cases[] = {
        // Stream 1 (audio, 48 kHz) carries the timecode, 2 s in; 48000 is no frame rate: the project's.
        {"TimecodeStreamEvenWithVideo", true, 1, 96000, Vl::eFrameRate25, 48000.0, 50, "00:00:02:00"},
        {"VideoWithoutTimecodeStream", true, -1, 75, Vl::eFrameRate25, 25.0, 75, "00:00:03:00"},
        {"AudioOnlyAt25", false, -1, 96000, Vl::eFrameRate25, 48000.0, 50, nullptr},
        {"AudioOnlyAt50", false, -1, 96000, Vl::eFrameRate50, 48000.0, 100, nullptr},
        {"ZeroStartGivesNoLabel", true, -1, 0, Vl::eFrameRate25, 25.0, 0, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Vl::CurrentProject::setOutputImageFormat({1920, 1080, Vl::eProgressive, c.projectRate, 28});
        auto video = c.video ? std::optional(picture("dvsd", 720, 576, 24)) : std::nullopt;
        Vl::Ptr<TimecodeFile> f(new TimecodeFile(write(buildFile(video, AudioSpec{})), c.tcStream, c.start));
        ASSERT_TRUE(f->readMetadata());
        EXPECT_EQ(f->timecodeStreamCount(), c.tcStream >= 0 ? 1u : 0u);
        EXPECT_DOUBLE_EQ(f->baseRate(), c.baseRate);
        EXPECT_EQ(f->startTimecode(), c.frames);
        const edit_label& label = f->metadata()->startLabel();
        ASSERT_EQ(label.valid(), c.frames != 0);
        if (!label.valid())
            continue;
        // The rate is the base stream's, else the project's own (25), not its output format's.
        EXPECT_EQ(std::tuple(label.frames(), label.scanMode(), label.frameRate()),
                  std::tuple(c.frames, 3u, Vl::eFrameRate25));
        if (c.text) {
            EXPECT_EQ(label.text(), c.text);
        }
    }
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
    auto supported = [&](const wchar_t* path, const Vl::Ptr<PlayFileMetadata>& md) {
        return reader.isFileFormatSupported(VlWString(path), FileReadInstance::eOpenForPlayback, *md);
    };
    EXPECT_EQ(supported(L"/media/Clip.AVI", metadata(201, makeFourCC("dvsd"))), 3);
    EXPECT_EQ(supported(L"/media/Clip.AVI", metadata(232, makeFourCC("dvsd"))), 1);
    EXPECT_EQ(supported(L"/media/Clip.AVI", metadata(201, makeFourCC("xxxx"))), 2);
    EXPECT_EQ(supported(L"/media/clip.mov", metadata(201, makeFourCC("dvsd"))), 0);
    auto marked = metadata(201, makeFourCC("dvsd"));
    marked->config().set("avi_type", static_cast<std::int64_t>(0));
    EXPECT_EQ(supported(L"/media/Clip.AVI", marked), 0);
}

} // namespace
