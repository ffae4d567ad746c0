#include <gtest/gtest.h>

#include <filesystem>

#include "common/AssertCapture.h"
#include "common/TempDir.h"
#include "writer_layout_check.h"
#include "writer_readback.h"

using namespace writertest;

namespace {

constexpr std::uint32_t kAudioBytesPerFrame = 1920 * 4; // 48 kHz stereo at 25 fps

// Writes frames of the given video size (+ 0..2 bytes), one 25 fps frame's
// worth of PCM for every audio track and 4 bytes for a timecode track.
HRESULT writeFrames(FileWriter& w, std::vector<TrackStructuralData>& tracks, std::uint32_t frames,
                    std::uint32_t videoSize, Written* written)
{
    HRESULT hr = S_OK;
    for (std::uint32_t f = 0; f < frames && SUCCEEDED(hr); ++f)
        hr = writeFrame(w, tracks, f, [&](std::size_t k) {
            return tracks[k].Type == StreamVideo ? videoSize + f % 3
                   : tracks[k].Type == StreamAudio ? kAudioBytesPerFrame
                                                   : 4u;
        }, written);
    return hr;
}

// The header as create leaves it, and where a chunk id first lies in it.
std::vector<unsigned char> header(const FileWriter& w)
{
    const auto& hb = w.get_HeaderBuffer();
    return std::vector<unsigned char>(hb.getBuffer(0), hb.getBuffer(0) + hb.getUsed());
}

std::uint64_t findId(const std::vector<unsigned char>& h, const char* id)
{
    std::uint64_t at = 0;
    while (at + 4 <= h.size() && fcc(rd32(h, at)) != id)
        at += 4;
    return at;
}

struct LayoutCase
{
    const char* name;
    std::vector<TrackStructuralData> tracks;
    std::vector<std::string> chunkIds;
    std::uint64_t capacity;
    std::uint32_t flags;
};

const TrackStructuralData kUyvy = videoTrack("UYVY", 720, 576, 25, 1);

class WriterLayout : public testing::TestWithParam<LayoutCase>
{
};

} // namespace

TEST_P(WriterLayout, FileMatchesTheFixedLayout)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    LayoutCase c = GetParam();
    const std::wstring path = dir.file("layout.avi");
    FileWriter w;
    ASSERT_EQ(w.create(path, c.tracks.data(), static_cast<std::uint16_t>(c.tracks.size())), S_OK);
    ASSERT_EQ(w.sectorSize(), 512u) << "the layout numbers assume 512-byte sectors";
    EXPECT_EQ(w.get_HeaderBuffer().getCapacity(), c.capacity);
    EXPECT_EQ(w.get_StreamCount(), c.chunkIds.size());
    EXPECT_EQ(w.get_MaxFrames(), 25u * 86400u);
    Written written;
    written.start(w, c.tracks);
    ASSERT_EQ(writeFrames(w, c.tracks, 40, 5000, &written), S_OK);
    w.close();
    expectReadsBack(path, written);

    Walk walk(path);
    Expected e{c.capacity, 40, c.chunkIds};
    checkLayout(walk, e);

    auto avih = walk.find("avih");
    ASSERT_EQ(avih.size(), 1u);
    const std::uint64_t a = avih[0]->offset + 8;
    EXPECT_EQ(rd32(walk.data, a), 40000u); // microseconds per frame at 25 fps
    EXPECT_EQ(rd32(walk.data, a + 8), 512u);
    EXPECT_EQ(rd32(walk.data, a + 12), c.flags);
    EXPECT_EQ(rd32(walk.data, a + 24), c.chunkIds.size());
    EXPECT_EQ(rd32(walk.data, a + 32), 720u);
    EXPECT_EQ(rd32(walk.data, a + 36), 576u);
    auto strh = walk.find("strh");
    EXPECT_EQ(fcc(rd32(walk.data, strh[0]->offset + 8)), "vids");
    for (std::size_t k = 1; k < strh.size(); ++k) {
        EXPECT_EQ(fcc(rd32(walk.data, strh[k]->offset + 8)), "auds");
        // Sample blocks: every frame carried kAudioBytesPerFrame bytes.
        const std::uint32_t blockAlign = rd16(walk.data, walk.find("strf")[k]->offset + 8 + 12);
        EXPECT_EQ(rd32(walk.data, strh[k]->offset + 8 + 32), 40u * kAudioBytesPerFrame / blockAlign);
    }
    // Suggested buffer: the largest chunk + 8 on a sector, or the DV frame size.
    const std::uint32_t suggested = rd32(walk.data, strh[0]->offset + 8 + 36);
    if (c.chunkIds[0] == "00dc")
        EXPECT_EQ(suggested, 144384u);
    else
        EXPECT_EQ(suggested, 5120u); // 5002 + 8 on a sector
    EXPECT_EQ(rd32(walk.data, a + 28), suggested);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, WriterLayout,
    testing::Values(LayoutCase{"VideoOnly", {kUyvy}, {"00db"}, 86016 + 4096 + 512, 0x10030},
                    LayoutCase{"VideoAndAudio", {audioTrack(), kUyvy}, {"00db", "01wb"}, 176640, 0x10130},
                    // The host's order: audio, timecode, video, audio; a second video track is ignored.
                    LayoutCase{"VideoTimecodeAndTwoAudio",
                               {audioTrack(), timecodeTrack(0), videoTrack("dvsd", 720, 576, 25000, 1000),
                                audioTrack(1, 44100), kUyvy},
                               {"00dc", "01wb", "02wb"},
                               262656,
                               0x10130}),
    [](const testing::TestParamInfo<LayoutCase>& i) { return std::string(i.param.name); });

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

    struct Case
    {
        std::uint64_t endsShortBy; // bytes before the sector boundary
        bool junk;
        std::uint32_t junkTotal;
    } cases[] = {{0, false, 0}, {4, true, 512 + 4}, {12, true, 12}, {200, true, 200}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.endsShortBy);
        const std::uint64_t extra = (512 - c.endsShortBy + 512 * 8 - unpadded % 512) % 512;
        std::vector<unsigned char> bytes(extra, 0xAB);
        TrackStructuralData t = probe;
        t.pExtraData = extra ? bytes.data() : nullptr;
        t.cbExtra = static_cast<std::uint16_t>(extra);
        ASSERT_EQ(w.create(dir.file("junk.avi"), &t, 1), S_OK);
        std::vector<unsigned char> h = header(w);
        ASSERT_EQ((unpadded + extra) % 512, (512 - c.endsShortBy) % 512);
        EXPECT_EQ(h.size() % 512, 0u);
        if (!c.junk) {
            EXPECT_EQ(h.size(), unpadded + extra);
        } else {
            ASSERT_EQ(h.size(), unpadded + extra + c.junkTotal);
            EXPECT_EQ(fcc(rd32(h, unpadded + extra)), "JUNK");
            EXPECT_EQ(rd32(h, unpadded + extra + 4), c.junkTotal - 8);
        }
        EXPECT_EQ(rd32(h, 4), h.size() - 8);
        w.close();
    }
}

TEST(WriterHeader, InfoTextsAndStartTimecode)
{
    testutil::TempDir dir;
    struct Case { std::uint32_t start; const char* text; } cases[] = {{0, "00:00:00.00"}, {90061, "01:00:02.11"}};
    for (const Case& c : cases) {
        std::vector<TrackStructuralData> tracks = {timecodeTrack(c.start), videoTrack("UYVY", 720, 576, 25, 1)};
        FileWriter w;
        ASSERT_EQ(w.create(dir.file("info.avi"), tracks.data(), 2), S_OK);
        EXPECT_EQ(w.get_StreamCount(), 1u);
        ASSERT_EQ(writeFrames(w, tracks, 1, 100, nullptr), S_OK);
        w.close();
        Walk walk(dir.file("info.avi"));
        auto isft = walk.find("ISFT"), ismp = walk.find("ISMP");
        ASSERT_TRUE(walk.ok && isft.size() == 1 && ismp.size() == 1) << walk.problem;
        EXPECT_EQ(isft[0]->size, 22u);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(&walk.data[isft[0]->offset + 8]), 22),
                  std::string("Morvane AVI v3.0.0.0 \0", 22));
        EXPECT_EQ(ismp[0]->size, 12u);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(&walk.data[ismp[0]->offset + 8])), c.text);
    }
}

TEST(WriterHeader, VideoPropertiesByFormat)
{
    testutil::TempDir dir;
    struct Case { TrackStructuralData track; bool vprp; std::uint32_t token, standard, aspect, fields; } cases[] = {
        {videoTrack("dvsd", 720, 576, 25, 1), true, 2, 1, 0x00040003, 1},
        {videoTrack("MJPG", 720, 480, 30000, 1001), true, 4, 2, 0x00040003, 2},
        {videoTrack("UYVY", 1920, 1080, 25, 1), true, 5, 4, 0x00100009, 1},
        {videoTrack("M101", 1280, 720, 60000, 1001), true, 7, 14, 0x00100009, 1},
        {videoTrack("M101", 1280, 720, 50, 1), false, 0, 0, 0, 0},
    };
    for (auto& c : cases) {
        FileWriter w;
        ASSERT_EQ(w.create(dir.file("vprp.avi"), &c.track, 1), S_OK);
        const std::vector<unsigned char> h = header(w);
        const std::uint64_t at = findId(h, "vprp");
        ASSERT_EQ(at + 4 <= h.size(), c.vprp);
        if (c.vprp) {
            // size, format token, standard, aspect, frame width, fields
            EXPECT_EQ((std::vector<std::uint32_t>{rd32(h, at + 4), rd32(h, at + 8), rd32(h, at + 12), rd32(h, at + 28),
                                                  rd32(h, at + 32), rd32(h, at + 40)}),
                      (std::vector<std::uint32_t>{40, c.token, c.standard, c.aspect,
                                                  static_cast<std::uint32_t>(c.track.Data.VInfo.width), c.fields}));
        }
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
    EXPECT_NE(printed.find("assertion failed FALSE at FileFormats/AVI/avilib/avilib.FileWriter line"),
              std::string::npos);
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
    std::vector<TrackStructuralData> tracks = {audio, videoTrack("UYVY", 720, 576, 25, 1)};
    ASSERT_EQ(w.create(dir.file("short.avi"), tracks.data(), 2), S_OK);
    TrackData td[2] = {};
    EXPECT_EQ(w.WriteSamples(nullptr, 2), E_INVALIDARG);
    EXPECT_EQ(w.WriteSamples(td, 1), E_INVALIDARG);
}

TEST(WriterClose, FileWithoutFramesIsDeletedAndTheWriterIsReusable)
{
    testutil::TempDir dir;
    std::vector<TrackStructuralData> tracks = {videoTrack("UYVY", 720, 576, 25, 1), audioTrack()};
    FileWriter w;
    ASSERT_EQ(w.create(dir.file("empty.avi"), tracks.data(), 2), S_OK);
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "empty.avi"));
    w.close();
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "empty.avi"));

    for (const char* name : {"first.avi", "second.avi"}) {
        ASSERT_EQ(w.create(dir.file(name), tracks.data(), 2), S_OK);
        Written written;
        written.start(w, tracks);
        ASSERT_EQ(writeFrames(w, tracks, 7, 3000, &written), S_OK);
        w.close();
        expectReadsBack(dir.file(name), written);
        Expected e{176640, 7, {"00db", "01wb"}};
        checkLayout(Walk(dir.file(name)), e);
    }
}

TEST(WriterSamples, OddSizesAndTinyChunksKeepTheSectorLayout)
{
    testutil::TempDir dir;
    std::vector<TrackStructuralData> tracks = {videoTrack("UYVY", 720, 576, 25, 1), audioTrack(1, 8000)};
    tracks[1].Data.AInfo.blockAlign = 1;
    FileWriter w;
    ASSERT_EQ(w.create(dir.file("odd.avi"), tracks.data(), 2), S_OK);
    Written written;
    written.start(w, tracks);
    // Sizes around the sector edge: 492 + 8 leaves room for the smallest JUNK,
    // 500 + 8 ends 4 bytes short, 504 + 8 ends on it.
    const std::uint32_t sizes[] = {1, 492, 500, 501, 504, 511, 512, 1023};
    const std::uint32_t frames = sizeof sizes / sizeof sizes[0];
    for (std::uint32_t f = 0; f < frames; ++f)
        ASSERT_EQ(writeFrame(w, tracks, f, [&](std::size_t k) { return k == 0 ? sizes[f] : 1u; }, &written), S_OK);
    w.close();
    expectReadsBack(dir.file("odd.avi"), written);
    checkLayout(Walk(dir.file("odd.avi")), Expected{176640, frames, {"00db", "01wb"}});
}
