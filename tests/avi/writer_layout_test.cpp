#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "common/AssertCapture.h"
#include "common/TempDir.h"
#include "writer_readback.h"

using namespace writertest;

namespace {

// The header as create leaves it, and where a chunk id first lies in it.
std::vector<unsigned char> header(const FileWriter& w)
{
    const auto& hb = w.get_HeaderBuffer();
    return std::vector<unsigned char>(hb.getBuffer(0), hb.getBuffer(0) + hb.getUsed());
}

std::uint64_t findId(const std::vector<unsigned char>& h, const char* id)
{
    return static_cast<std::uint64_t>(std::search(h.begin(), h.end(), id, id + 4) - h.begin());
}

struct FileCase
{
    const char* name;
    std::vector<TrackStructuralData> tracks; // the first video track is the one written
    std::vector<std::string> chunkIds;
    std::uint64_t capacity;
    std::uint32_t flags;     // of avih
    std::uint32_t frames, riffs;
    std::uint32_t audioSamples; // per frame and stream, give or take a few
    std::uint32_t suggested;    // the video's suggested buffer
};

// Shown by the test runner as the case's name, not its bytes.
inline void PrintTo(const FileCase& c, std::ostream* os) { *os << c.name; }

const TrackStructuralData kUyvy = videoTrack("UYVY", 720, 576, 25, 1), kQvga = videoTrack("UYVY", 320, 240, 25, 1);

class WriterFile : public testing::TestWithParam<FileCase>
{
};

} // namespace

// The file as our reader, the fixed layout, the headers and ffmpeg see it.
TEST_P(WriterFile, ReadsBackInTheFixedLayoutAndOpensInFfmpeg)
{
    testutil::TempDir dir;
    FileCase c = GetParam();
    const std::wstring path = dir.file("file.avi");
    const auto video = std::find_if(c.tracks.begin(), c.tracks.end(), [](auto& t) { return t.Type == StreamVideo; });
    const std::uint32_t width = static_cast<std::uint32_t>(video->Data.VInfo.width);
    const std::uint32_t height = static_cast<std::uint32_t>(video->Data.VInfo.height);
    const bool dv = video->Data.VInfo.fourcc == Morvane::makeFourCC("dvsd");
    Written written;
    {
        FileWriter w;
        w.set_FlushFrequency(50);
        ASSERT_EQ(w.create(path, c.tracks.data(), static_cast<std::uint16_t>(c.tracks.size())), S_OK);
        ASSERT_EQ(w.sectorSize(), 512u) << "the layout numbers assume 512-byte sectors";
        written.start(w, c.tracks);
        for (std::uint32_t f = 0; f < c.frames; ++f) {
            // Audio: a few samples more or less so that frames and streams differ.
            ASSERT_EQ(writeFrame(w, c.tracks, f, [&](std::size_t k) -> std::uint32_t {
                          if (c.tracks[k].Type == StreamAudio)
                              return (c.audioSamples + f % 3 + k % 2) * c.tracks[k].Data.AInfo.blockAlign;
                          return c.tracks[k].Type == StreamTimecode ? 4 : dv ? 5000 + f % 3 : width * height * 2;
                      }, &written), S_OK);
        }
        EXPECT_EQ(w.get_RiffChunkIndex() + 1, c.riffs);
    }
    // The writer's destructor closed the file.
    expectReadsBack(path, written);
    Walk walk(path);
    checkLayout(walk, Expected{c.capacity, c.frames, c.chunkIds});
    const std::uint64_t a = walk.find("avih")[0]->offset + 8;
    // microseconds per frame at 25 fps, padding granularity, flags, streams, suggested buffer, width, height
    EXPECT_EQ((std::vector<std::uint32_t>{rd32(walk.data, a), rd32(walk.data, a + 8), rd32(walk.data, a + 12),
                                          rd32(walk.data, a + 24), rd32(walk.data, a + 28), rd32(walk.data, a + 32),
                                          rd32(walk.data, a + 36)}),
              (std::vector<std::uint32_t>{40000, 512, c.flags, static_cast<std::uint32_t>(c.chunkIds.size()), c.suggested,
                                          width, height}));
    auto strh = walk.find("strh");
    EXPECT_EQ(fcc(rd32(walk.data, strh[0]->offset + 8)), "vids");
    EXPECT_EQ(rd32(walk.data, strh[0]->offset + 8 + 36), c.suggested);
    for (std::size_t k = 1; k < strh.size(); ++k) {
        EXPECT_EQ(fcc(rd32(walk.data, strh[k]->offset + 8)), "auds");
        std::uint64_t bytes = 0;
        for (std::uint32_t size : written.streams[k].sizes)
            bytes += size;
        EXPECT_EQ(rd32(walk.data, strh[k]->offset + 8 + 32), bytes / written.streams[k].blockAlign) << "samples";
    }
    if (dv)
        return; // ffmpeg would decode the made-up DV frames

    EXPECT_EQ(run("ffprobe -v error '" + convertString(path) + "' 2>&1"), "");
    using Fields = std::map<std::string, std::string>;
    EXPECT_EQ(probeStream(path, 0, "codec_tag_string,width,height,r_frame_rate,nb_read_packets,nb_frames"),
              (Fields{{"codec_tag_string", "UYVY"}, {"width", std::to_string(width)}, {"height", std::to_string(height)},
                      {"r_frame_rate", "25/1"}, {"nb_frames", std::to_string(c.frames)},
                      {"nb_read_packets", std::to_string(c.frames)}}));
    for (std::uint32_t k = 1; k < written.streams.size(); ++k) {
        const auto& t = c.tracks[written.streams[k].track].Data.AInfo;
        EXPECT_EQ(probeStream(path, static_cast<int>(k), "codec_name,sample_rate,channels"),
                  (Fields{{"codec_name", "pcm_s16le"}, {"sample_rate", std::to_string(t.samplesPerSec)},
                          {"channels", std::to_string(t.channels)}}));
    }
    // ffmpeg's copy of each stream is exactly the bytes written, in order
    // (the frames are all one size, and counted above).
    for (std::uint32_t k = 0; k < written.streams.size(); ++k) {
        std::string bytes;
        for (std::uint32_t f = 0; f < c.frames; ++f) {
            const std::vector<unsigned char> chunk = written.chunk(k, f);
            bytes.append(chunk.begin(), chunk.end());
        }
        EXPECT_TRUE(copied(path, "0:" + std::to_string(k)) == bytes) << "stream " << k;
    }
}

// Suggested buffer: the largest chunk + 8 on a sector, or the DV frame size.
INSTANTIATE_TEST_SUITE_P(
    Streams, WriterFile,
    testing::Values(FileCase{"Video", {timecodeTrack(0), kQvga}, {"00db"}, 86016 + 4096 + 512, 0x10030, 30, 1, 0, 154112},
                    FileCase{"VideoAndTwoAudio", {audioTrack(), kQvga, audioTrack(1, 44100)}, {"00db", "01wb", "02wb"},
                             262656, 0x10130, 30, 1, 1920, 154112},
                    // The host's order: audio, timecode, video, audio; a second video track is ignored.
                    FileCase{"DvTimecodeAndTwoAudio",
                             {audioTrack(), timecodeTrack(0), videoTrack("dvsd", 720, 576, 25000, 1000),
                              audioTrack(1, 44100), kUyvy},
                             {"00dc", "01wb", "02wb"}, 262656, 0x10130, 40, 1, 1920, 144384},
                    FileCase{"ThreeRiffs", {timecodeTrack(0), videoTrack("UYVY", 16, 8, 25, 1), audioTrack(), audioTrack()},
                             {"00db", "01wb", "02wb"}, 262656, 0x10130, 2 * 8124 + 5, 3, 48, 512}),
    [](const testing::TestParamInfo<FileCase>& i) { return std::string(i.param.name); });

TEST(WriterHeader, JunkPadsTheHeaderToASector)
{
    testutil::TempDir dir;
    // First find the unpadded header length with no extra data.
    TrackStructuralData probe = videoTrack("M101", 720, 576, 25, 1);
    FileWriter w;
    ASSERT_EQ(w.create(dir.file("probe.avi"), &probe, 1), S_OK);
    std::vector<unsigned char> head = header(w);
    const std::uint64_t hdrlEnd = 12 + 8 + rd32(head, 16);
    const std::uint64_t unpadded = hdrlEnd + 8 + rd32(head, hdrlEnd + 4);
    w.close();

    // Bytes the header ends short of the sector, and the JUNK that pads it.
    for (auto [endsShortBy, junk] : {std::pair{0u, 0u}, {4u, 512u + 4}, {12u, 12u}, {200u, 200u}}) {
        SCOPED_TRACE(endsShortBy);
        const std::uint64_t extra = (512 - endsShortBy + 512 * 8 - unpadded % 512) % 512;
        std::vector<unsigned char> bytes(extra, 0xAB);
        TrackStructuralData t = probe;
        t.pExtraData = extra ? bytes.data() : nullptr;
        t.cbExtra = static_cast<std::uint16_t>(extra);
        ASSERT_EQ(w.create(dir.file("junk.avi"), &t, 1), S_OK);
        std::vector<unsigned char> h = header(w);
        ASSERT_EQ(h.size(), unpadded + extra + junk);
        EXPECT_EQ(h.size() % 512, 0u);
        if (junk) {
            EXPECT_EQ(fcc(rd32(h, unpadded + extra)), "JUNK");
            EXPECT_EQ(rd32(h, unpadded + extra + 4), junk - 8);
        }
        EXPECT_EQ(rd32(h, 4), h.size() - 8);
        w.close();
    }
}

TrackStructuralData scanned(TrackStructuralData t, std::uint64_t scan, std::uint64_t fieldCode = 0)
{
    t.Data.VInfo.scanMode = scan;
    t.Data.VInfo.fieldCode = fieldCode;
    return t;
}

// The video properties each format and scan gets (the field descriptions'
// start lines say which field comes first), and the start timecode in
// INFO only when one was given.
TEST(WriterHeader, VideoPropertiesAndInfoTexts)
{
    testutil::TempDir dir;
    constexpr std::uint32_t kGiven = Morvane::Avi::kTimecodeGiven, kDrop = Morvane::Avi::kTimecodeDropFrame;
    struct Case {
        TrackStructuralData track; std::uint32_t token, standard, refresh, aspect, fields;
        std::vector<std::uint32_t> startLines; std::uint32_t start, flags; const char* ismp;
    } cases[] = {
        {scanned(videoTrack("dvsd", 720, 576, 25, 1), 2), 2, 1, 50, 0x00040003, 2, {1, 0}, 90061, kGiven, "01:00:02:11"},
        {scanned(videoTrack("MJPG", 720, 480, 30000, 1001), 0), 4, 2, 60, 0x00040003, 2, {0, 1}, 1800, kGiven | kDrop,
         "00:01:00;02"},
        {scanned(videoTrack("UYVY", 1920, 1080, 25, 1), 1), 5, 4, 50, 0x00100009, 2, {0, 1}, 0, kGiven, "00:00:00:00"},
        {scanned(videoTrack("UYVY", 1920, 1080, 25, 1), 4), 5, 4, 50, 0x00100009, 1, {0, 1}, 0, 0, nullptr},
        {scanned(videoTrack("M101", 1280, 720, 60000, 1001), 3), 7, 14, 60, 0x00100009, 1, {0}, 0, 0, nullptr},
        // No standard raster: the picture is its own total; field code 3 is interlaced.
        {scanned(videoTrack("M101", 1280, 720, 50, 1), 0, 3), 0, 0, 100, 0x00040003, 2, {0, 1}, 0, kDrop, nullptr},
        // Drop frame only where the rate has it.
        {scanned(videoTrack("UYVY", 640, 360, 25, 1), 3), 0, 0, 25, 0x00040003, 1, {0}, 30, kGiven | kDrop, "00:00:01:05"},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.token) + " " + std::to_string(c.track.Data.VInfo.scanMode));
        std::vector<TrackStructuralData> tracks = {timecodeTrack(c.start, c.flags), c.track};
        FileWriter w;
        ASSERT_EQ(w.create(dir.file("vprp.avi"), tracks.data(), 2), S_OK);
        EXPECT_EQ(w.get_StreamCount(), 1u);
        const std::vector<unsigned char> h = header(w);
        const std::uint64_t at = findId(h, "vprp");
        ASSERT_LE(at + 48, h.size());
        const std::uint32_t described = static_cast<std::uint32_t>(c.startLines.size());
        std::vector<std::uint32_t> lines;
        for (std::uint32_t i = 0; i < described; ++i)
            lines.push_back(rd32(h, at + 8 + 36 + 32 * i + 28));
        // size, format token, standard, refresh, aspect, frame width, fields, field heights
        EXPECT_EQ((std::vector<std::uint32_t>{rd32(h, at + 4), rd32(h, at + 8), rd32(h, at + 12), rd32(h, at + 16),
                                              rd32(h, at + 28), rd32(h, at + 32), rd32(h, at + 40), rd32(h, at + 44)}),
                  (std::vector<std::uint32_t>{36 + 32 * described, c.token, c.standard, c.refresh, c.aspect,
                                              static_cast<std::uint32_t>(c.track.Data.VInfo.width), c.fields,
                                              static_cast<std::uint32_t>(c.track.Data.VInfo.height) / c.fields}));
        EXPECT_EQ(lines, c.startLines);
        const std::uint64_t isft = findId(h, "ISFT"), ismp = findId(h, "ISMP");
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(&h[isft + 4]), 4 + 22),
                  std::string("\x16\0\0\0Morvane AVI v3.0.0.0 \0", 26));
        if (c.ismp)
            EXPECT_EQ(std::string(reinterpret_cast<const char*>(&h[ismp + 4]), 4 + 12),
                      std::string("\x0C\0\0\0", 4) + c.ismp + std::string(1, '\0'));
        else
            EXPECT_GE(ismp + 4, h.size()) << "an ISMP without a start timecode";
        w.close();
    }
}

TEST(WriterCreate, RefusesBadTrackAndSampleArrays)
{
    testutil::TempDir dir;
    FileWriter w;
    TrackStructuralData audio = audioTrack();
    EXPECT_EQ(w.create(dir.file("none.avi"), &audio, 0), E_INVALIDARG);
    std::string printed = testutil::captureStdout([&] { EXPECT_EQ(w.create(dir.file("a.avi"), &audio, 1), E_INVALIDARG); });
    EXPECT_EQ(w.getLastError(), L"Cannot create file with no video track.");
    EXPECT_TRUE(testutil::isAssertion(printed, "FALSE", "FileFormats/AVI/avilib/avilib.FileWriter")) << printed;
    w.close();
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "a.avi"));

    // More than 4096 bytes of codec data in all.
    std::vector<unsigned char> big(4097);
    TrackStructuralData v = videoTrack("M101", 720, 576, 25, 1);
    v.pExtraData = big.data();
    v.cbExtra = 4097;
    EXPECT_EQ(w.create(dir.file("big.avi"), &v, 1), E_FAIL);
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "big.avi"));

    // Samples for fewer tracks than the file has.
    std::vector<TrackStructuralData> tracks = {audio, kUyvy};
    ASSERT_EQ(w.create(dir.file("short.avi"), tracks.data(), 2), S_OK);
    TrackData td[2] = {};
    EXPECT_EQ(w.WriteSamples(nullptr, 2), E_INVALIDARG);
    EXPECT_EQ(w.WriteSamples(td, 1), E_INVALIDARG);
}

// A file without frames is deleted; the same writer then writes sizes
// around the sector edge with one-byte audio chunks (ordinary frames are
// the layout table's).
TEST(WriterClose, EmptyFileIsDeletedAndTheWriterIsReusable)
{
    testutil::TempDir dir;
    std::vector<TrackStructuralData> tracks = {kUyvy, audioTrack(1, 8000)};
    tracks[1].Data.AInfo.blockAlign = 1;
    FileWriter w;
    ASSERT_EQ(w.create(dir.file("empty.avi"), tracks.data(), 2), S_OK);
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "empty.avi"));
    w.close();
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "empty.avi"));

    // 492 + 8 leaves room for the smallest JUNK, 500 + 8 ends 4 bytes short, 504 + 8 ends on it.
    const std::uint32_t oddSizes[] = {1, 492, 500, 501, 504, 511, 512, 1023};
    const std::wstring path = dir.file("odd.avi");
    ASSERT_EQ(w.create(path, tracks.data(), 2), S_OK);
    Written written;
    written.start(w, tracks);
    for (std::uint32_t f = 0; f < 8; ++f)
        ASSERT_EQ(writeFrame(w, tracks, f, [&](std::size_t k) { return k == 0 ? oddSizes[f] : 1u; }, &written), S_OK);
    w.close();
    expectReadsBack(path, written);
    checkLayout(Walk(path), Expected{176640, 8, {"00db", "01wb"}});
}
