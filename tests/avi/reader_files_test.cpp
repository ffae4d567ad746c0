// The reader on files that ffmpeg wrote: the headers must describe the
// streams as ffmpeg wrote them. (Their packets and sound are compared with
// ffmpeg's through the plug-in, with the rest of the corpus.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "common/FfmpegFiles.h"
#include "util/stringUtils.h"

using Morvane::makeFourCC;
using Morvane::Avi::FileReader;

namespace {

using testutil::dataPath;

struct Expected
{
    const char* file;
    unsigned streams;
    const char* fcc;
    int width, height, rate, scale;
    unsigned length;
    GUID subtype;
    std::uint64_t avgTimePerFrame;
};

// Shown by the test runner as the case's name, not its bytes.
inline void PrintTo(const Expected& c, std::ostream* os) { *os << c.file; }

class Headers : public testing::TestWithParam<Expected>
{};

TEST_P(Headers, VideoStreamAndMediaType)
{
    const Expected& e = GetParam();
    FileReader r;
    ASSERT_EQ(r.load(Morvane::convertString(dataPath(e.file))), S_OK) << Morvane::convertString(r.getLastError());
    ASSERT_EQ(r.get_StreamCount(), e.streams);
    int rate = 0, scale = 0;
    EXPECT_TRUE(r.get_RateAndScale(0, &rate, &scale));
    // video, audio, code, size, rate, length, indexed, GOP
    EXPECT_EQ(std::tuple(r.get_IsVideo(0), r.get_IsAudio(0), r.get_FCC(0), r.get_Width(0), r.get_Height(0), rate, scale,
                         r.get_Length(0), r.get_HasIndexTable(0), r.get_GopSize(0)),
              std::tuple(true, false, makeFourCC(*reinterpret_cast<const char(*)[5]>(e.fcc)), e.width, e.height, e.rate,
                         e.scale, e.length, true, 1u));
    const auto& mt = r.get_MediaType();
    EXPECT_TRUE(mt.majortype == Morvane::Avi::MEDIATYPE_Video);
    EXPECT_TRUE(mt.subtype == e.subtype);
    EXPECT_TRUE(mt.formattype == Morvane::Avi::FORMAT_VideoInfo);
    ASSERT_TRUE(mt.pbFormat != nullptr);
    Morvane::Avi::VIDEOINFOHEADER vih;
    std::memcpy(&vih, mt.pbFormat, sizeof vih);
    EXPECT_EQ(+vih.AvgTimePerFrame, e.avgTimePerFrame);
    EXPECT_EQ(+vih.bmiHeader.biWidth, e.width);
}

constexpr GUID fourcc(const char (&s)[5])
{
    return Morvane::Avi::fourccGuid(makeFourCC(s));
}

INSTANTIATE_TEST_SUITE_P(
    Reader, Headers,
    testing::Values(
        // Uncompressed: frame time in double precision, 1124-byte VIDEOINFO.
        Expected{"uyvy_pcm16.avi", 2, "UYVY", 64, 48, 25, 1, 5, fourcc("UYVY"), 400000},
        Expected{"yuy2_pcm16.avi", 2, "YUY2", 64, 48, 25, 1, 5, fourcc("YUY2"), 400000},
        // DV: integer frame time, so 30000/1001 gives 10,000,000 / 29.
        Expected{"dv_pal.avi", 2, "dvsd", 720, 576, 25, 1, 3, fourcc("dvsd"), 400000},
        Expected{"dv_ntsc.avi", 2, "dvsd", 720, 480, 30000, 1001, 3, fourcc("dvsd"), 344827},
        Expected{"dv50.avi", 2, "dv50", 720, 576, 25, 1, 2, fourcc("dv50"), 400000},
        Expected{"mjpeg.avi", 2, "MJPG", 64, 48, 25, 1, 5, fourcc("MJPG"), 400000},
        // Any other code: the uncompressed path with the FourCC's GUID.
        Expected{"mpeg2_bframes.avi", 1, "mpg2", 64, 48, 25, 1, 13, fourcc("mpg2"), 400000}));

TEST(ReaderAudio, ExtensibleFormatsKeepTheirExtensionAsExtraData)
{
    FileReader r;
    ASSERT_EQ(r.load(Morvane::convertString(dataPath("pcm24_6ch.avi"))), S_OK);
    ASSERT_EQ(r.get_StreamCount(), 3u);
    EXPECT_TRUE(r.get_IsAudio(1));
    EXPECT_EQ(r.get_FCC(1), 0xFFFEu);
    EXPECT_EQ(r.get_ChannelCount(1), 2u);
    EXPECT_EQ(r.get_BitsPerSample(1), 24u);
    EXPECT_EQ(r.get_ChannelCount(2), 6u);
    EXPECT_EQ(r.get_BitsPerSample(2), 16u);
    EXPECT_FALSE(r.get_HasIndexTable(1)); // video only
    EXPECT_EQ(r.streamGetExtraData(1, nullptr, 0), 22);
    unsigned char ext[22];
    EXPECT_EQ(r.streamGetExtraData(1, ext, 21), -4);
    ASSERT_EQ(r.streamGetExtraData(1, ext, 22), 22);
    // wValidBitsPerSample, then the channel mask, then the PCM sub-format.
    EXPECT_EQ(ext[0] | ext[1] << 8, 24);
    EXPECT_EQ(ext[6], 1);
    EXPECT_EQ(r.streamGetExtraData(0, nullptr, 0), 0);
    EXPECT_EQ(r.streamGetExtraData(3, nullptr, 0), -1);
    // (block align x rate) / 8000, as the editor expects it.
    EXPECT_EQ(r.get_ApproxDataRate(1), 6u * 48000 / 8000);
}

// A run of frames with audio between them: a buffer short of its span is
// refused before reading, and the one-frame form takes one frame only. (The
// bytes of each frame of a run are the writer read-back's check.)
TEST(ReaderVideo, RunOfFramesNeedsItsWholeSpan)
{
    FileReader r;
    ASSERT_EQ(r.load(Morvane::convertString(dataPath("mjpeg.avi"))), S_OK);
    ASSERT_EQ(r.essenceOpen(0), S_OK);
    std::vector<unsigned char> run(64 * 1024);
    std::vector<unsigned> offsets, sizes, o2, s2;
    ASSERT_EQ(r.ReadVideo(1, 3, run.data(), run.size(), offsets, sizes), S_OK);
    ASSERT_EQ(offsets.size(), 3u);
    EXPECT_GT(offsets[1], offsets[0] + sizes[0]); // audio lies between the frames
    EXPECT_EQ(r.ReadVideo(1, 3, run.data(), offsets[2] + sizes[2] - offsets[0] - 1, o2, s2), E_BUFFER_TOO_SMALL);
    unsigned a = 0, b = 0;
    EXPECT_EQ(r.essenceRead(0, 2, run.data(), run.size(), &a, &b), E_INVALIDARG);
    EXPECT_EQ(r.essenceRead(0, 1, run.data(), run.size(), &a, &b), S_OK);
    EXPECT_TRUE(b > 1000u && a < 512u);
}

// One read of the whole stream; the end, a short buffer and a video-only
// read give their codes; a reparse keeps the stream current.
TEST(ReaderAudio, WholeStreamReadEndsAndSurvivesAReparse)
{
    FileReader r;
    ASSERT_EQ(r.load(Morvane::convertString(dataPath("uyvy_pcm16.avi"))), S_OK);
    ASSERT_EQ(r.essenceOpen(1), S_OK);
    unsigned total = r.get_ResidentLength();
    ASSERT_EQ(total, 5120u);
    std::vector<unsigned char> whole(total * 4);
    unsigned offset = 7, bytes = 0;
    ASSERT_EQ(r.ReadAudio(0, total, whole.data(), whole.size(), &offset, &bytes), S_OK);
    EXPECT_EQ(offset, 0u);
    EXPECT_EQ(bytes, total * 4);
    std::vector<unsigned char> pieces(40);
    unsigned got = 0;
    EXPECT_EQ(r.ReadAudio(0, 10, pieces.data(), 39, nullptr, nullptr), E_BUFFER_TOO_SMALL);
    EXPECT_EQ(Morvane::convertString(r.getLastError()), "Buffer too small");
    EXPECT_EQ(r.ReadAudio(total, 1, pieces.data(), 4, nullptr, nullptr), E_HANDLE_EOF);
    // Past the end: the samples that exist arrive with the end-of-file code.
    std::vector<unsigned char> tail(400);
    EXPECT_EQ(r.ReadAudio(total - 30, 100, tail.data(), tail.size(), nullptr, &got), E_HANDLE_EOF);
    EXPECT_EQ(got, 30u * 4);
    EXPECT_TRUE(std::equal(tail.begin(), tail.begin() + got, whole.end() - got));
    std::vector<unsigned> o, s;
    EXPECT_EQ(r.essenceRead(0, 1, pieces.data(), 4, o, s), E_NOTIMPL);
    EXPECT_EQ(Morvane::convertString(r.getLastError()).rfind("Failed to read non video data. ", 0), 0u);
    // Parsing the header again keeps the audio stream current with its index.
    ASSERT_EQ(r.updateMetadata(), S_OK);
    EXPECT_EQ(std::tuple(r.get_CurrentStream(), r.get_StreamCount(), r.get_ResidentLength()), std::tuple(1, 2u, total));
}

} // namespace
