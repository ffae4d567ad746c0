#include <gtest/gtest.h>

#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "common/TempDir.h"
#include "writer_layout_check.h"
#include "writer_readback.h"

using namespace writertest;

namespace {

struct FrameSpec { std::uint32_t type; std::uint32_t display; };

// Writes one frame: video of 100 bytes plus, when present, a 4-byte audio
// chunk; `written` records what went in.
HRESULT writeFrame(FileWriter& w, std::size_t nTracks, std::uint32_t f, FrameSpec kind, Written& written)
{
    std::vector<unsigned char> v = payload(0, f, 100), a = payload(1, f, 4);
    TrackData td[2] = {{v.data(), 100, kind.display, kind.type, 0}, {a.data(), 4, kDisplayNumberNotGiven, 4, 0}};
    HRESULT hr = w.WriteSamples(td, static_cast<short>(nTracks));
    if (SUCCEEDED(hr))
        written.add(td);
    return hr;
}

// Frame f of a stream of five-frame GOPs stored as I0 P4 B1 B2 B3.
FrameSpec longGopFrame(std::uint32_t f)
{
    const std::uint32_t type[] = {4, 16, 8, 8, 8}, display[] = {0, 4, 1, 2, 3};
    return {type[f % 5], f - f % 5 + display[f % 5]};
}

} // namespace

TEST(WriterRollover, IndexLimitOpensAnAvixOnIntraFramesOnly)
{
    testutil::TempDir dir;
    struct Case
    {
        const char* name;
        bool ibp;
        std::uint32_t opensAt;        // 1-based frame that opens the second RIFF when intra
        std::uint32_t predictedFrames; // frames at the limit that are predicted
        bool longGop;                  // I/P/B GOPs of five, two more of them in the AVIX
    } cases[] = {
        {"standard index", false, 8125, 0, false},
        {"IBP index", true, 2666, 0, false},
        {"IBP index, long GOPs", true, 2666, 0, true},
        {"standard index, predicted at the limit", false, 8125, 3, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Mpeg2Track mpeg2;
        std::vector<TrackStructuralData> tracks = {c.ibp ? mpeg2.track : videoTrack("M101", 720, 576, 25, 1),
                                                   audioTrack(1, 100)};
        tracks[1].Data.AInfo.blockAlign = 4;
        const std::wstring path = dir.file("roll.avi");
        FileWriter w;
        ASSERT_EQ(w.create(path, tracks.data(), 2), S_OK);
        EXPECT_EQ(w.get_MaxIndexEntries(), c.ibp ? 2729u : 8188u);
        Written written;
        written.start(w, tracks);
        std::uint32_t f = 0;
        auto kind = [&](std::uint32_t frame) { return c.longGop ? longGopFrame(frame) : FrameSpec{4, frame}; };
        for (; f + 1 < c.opensAt; ++f)
            ASSERT_EQ(writeFrame(w, 2, f, kind(f), written), S_OK);
        EXPECT_EQ(w.get_RiffChunkIndex(), 0u);
        for (std::uint32_t p = 0; p < c.predictedFrames; ++p, ++f) {
            ASSERT_EQ(writeFrame(w, 2, f, {16, f}, written), S_OK);
            EXPECT_EQ(w.get_RiffChunkIndex(), 0u) << "a predicted frame opened a RIFF";
        }
        ASSERT_EQ(kind(f).type, 4u);
        ASSERT_EQ(writeFrame(w, 2, f, kind(f), written), S_OK);
        ++f;
        EXPECT_EQ(w.get_RiffChunkIndex(), 1u);
        EXPECT_EQ(w.get_Stream(0)->get_SamplesInChunk(), 1u);
        for (std::uint32_t more = c.longGop ? 9 : 0; more > 0; --more, ++f)
            ASSERT_EQ(writeFrame(w, 2, f, kind(f), written), S_OK);
        w.close();
        expectReadsBack(path, written);

        Walk walk(path);
        Expected e{176640, f, {"00dc", "01wb"}};
        checkLayout(walk, e);
        auto riffs = walk.find("RIFF");
        ASSERT_EQ(riffs.size(), 2u);
        // The previous RIFF's size + 8 is exactly where the AVIX starts.
        EXPECT_EQ(riffs[1]->offset, riffs[0]->size + 8u);
    }
}

TEST(WriterRollover, ThreeRiffsGiveThreeSuperIndexEntriesPerStream)
{
    testutil::TempDir dir;
    std::vector<TrackStructuralData> tracks = {audioTrack(1, 100), videoTrack("M101", 720, 576, 25, 1),
                                               audioTrack(2, 100)};
    const std::wstring path = dir.file("three.avi");
    FileWriter w;
    w.set_FlushFrequency(1000);
    ASSERT_EQ(w.create(path, tracks.data(), 3), S_OK);
    Written written;
    written.start(w, tracks);
    const std::uint32_t frames = 2 * 8124 + 10;
    std::vector<TrackData> td(3);
    for (std::uint32_t f = 0; f < frames; ++f) {
        std::vector<unsigned char> v = payload(1, f, 200 + f % 7), a = payload(0, f, 8), b = payload(2, f, 16);
        td[0] = {a.data(), 8, kDisplayNumberNotGiven, 4, 0};
        td[1] = {v.data(), static_cast<std::uint32_t>(v.size()), kDisplayNumberNotGiven, 4, 0};
        td[2] = {b.data(), 16, kDisplayNumberNotGiven, 4, 0};
        ASSERT_EQ(w.WriteSamples(td.data(), 3), S_OK);
        written.add(td.data());
    }
    EXPECT_EQ(w.get_RiffChunkIndex(), 2u);
    w.close();
    expectReadsBack(path, written);
    Walk walk(path);
    Expected e{262656, frames, {"00dc", "01wb", "02wb"}};
    checkLayout(walk, e);
    for (const Chunk* indx : walk.find("indx"))
        EXPECT_EQ(rd32(walk.data, indx->offset + 12), 3u);
    EXPECT_EQ(walk.find("RIFF").size(), 3u);
}

TEST(WriterIbpIndex, RealLocationsFollowPresentationOrder)
{
    testutil::TempDir dir;
    Mpeg2Track mpeg2;
    const std::wstring path = dir.file("ibp.avi");
    FileWriter w;
    ASSERT_EQ(w.create(path, &mpeg2.track, 1), S_OK);
    Written written;
    written.start(w, {mpeg2.track});
    ASSERT_TRUE(written.streams[0].ibp);
    // Two GOPs stored as I0 P3 B1 B2.
    const FrameSpec frames[] = {{4, 0}, {16, 3}, {8, 1}, {8, 2}, {4, 4}, {16, 7}, {8, 5}, {8, 6}};
    std::uint32_t f = 0;
    for (FrameSpec kind : frames)
        ASSERT_EQ(writeFrame(w, 1, f++, kind, written), S_OK);
    EXPECT_EQ(w.get_Stream(0)->get_ApproxGopLen(), 4u);
    w.close();
    expectReadsBack(path, written);

    Walk walk(path);
    auto ix = walk.find("ix00");
    ASSERT_EQ(ix.size(), 1u);
    const std::uint64_t at = ix[0]->offset;
    EXPECT_EQ(walk.data[at + 10], 16u);
    ASSERT_EQ(rd32(walk.data, at + 12), 8u);
    const std::uint32_t realLocations[] = {0, 2, 3, 1, 4, 6, 7, 5};
    const std::uint32_t flags[] = {0, 0x20000000, 0x40000000, 0x40000000};
    auto chunks = walk.find("00dc");
    ASSERT_EQ(chunks.size(), 8u);
    for (std::uint32_t i = 0; i < 8; ++i) {
        const std::uint64_t entry = at + 32 + 24ull * i;
        EXPECT_EQ(rd64(walk.data, entry), chunks[i]->offset);
        EXPECT_EQ(rd32(walk.data, entry + 8), 100u | flags[i % 4]);
        EXPECT_EQ(rd32(walk.data, entry + 12), frames[i].display);
        EXPECT_EQ(rd32(walk.data, entry + 16), realLocations[i]) << i;
        EXPECT_EQ(rd32(walk.data, entry + 20), 0u);
    }
    // The writer keeps the IBP entry limit for its next file.
    TrackStructuralData plain = videoTrack("M101", 720, 576, 25, 1);
    ASSERT_EQ(w.create(dir.file("next.avi"), &plain, 1), S_OK);
    EXPECT_EQ(w.get_MaxIndexEntries(), 2729u);
}

TEST(WriterIbpIndex, GivenRealLocationsWhenTheSearchIsOff)
{
    testutil::TempDir dir;
    Mpeg2Track mpeg2;
    const std::wstring path = dir.file("given.avi");
    FileWriter w;
    ASSERT_EQ(w.create(path, &mpeg2.track, 1), S_OK);
    Written written;
    written.start(w, {mpeg2.track});
    written.realLocations = {0, 500, 501};
    w.set_FindIBPIndexRealLocation(false);
    ASSERT_EQ(writeFrame(w, 1, 0, {4, 0}, written), S_OK);
    w.set_NextIndexRealLocation(500);
    ASSERT_EQ(writeFrame(w, 1, 1, {4, 1}, written), S_OK);
    ASSERT_EQ(writeFrame(w, 1, 2, {4, 2}, written), S_OK);
    w.close();
    expectReadsBack(path, written);
    Walk walk(path);
    auto ix = walk.find("ix00");
    ASSERT_EQ(ix.size(), 1u);
    const std::uint64_t at = ix[0]->offset + 32;
    EXPECT_EQ(rd32(walk.data, at + 16), 0u);
    EXPECT_EQ(rd32(walk.data, at + 24 + 16), 500u);
    EXPECT_EQ(rd32(walk.data, at + 48 + 16), 501u);
}

TEST(WriterFlush, PeriodicFlushWaitsForCompletePresentationOrder)
{
    testutil::TempDir dir;
    Mpeg2Track mpeg2;
    const std::wstring path = dir.file("flush.avi");
    FileWriter w;
    w.set_FlushFrequency(2);
    ASSERT_EQ(w.create(path, &mpeg2.track, 1), S_OK);
    Written written;
    written.start(w, {mpeg2.track});
    auto onDisk = [&] {
        Walk walk(path);
        return rd32(walk.data, walk.find("dmlh")[0]->offset + 8);
    };
    ASSERT_EQ(writeFrame(w, 1, 0, {4, 0}, written), S_OK);
    ASSERT_EQ(writeFrame(w, 1, 1, {16, 3}, written), S_OK);
    EXPECT_EQ(onDisk(), 0u) << "flushed before frame 1 was there";
    ASSERT_EQ(writeFrame(w, 1, 2, {8, 1}, written), S_OK);
    EXPECT_EQ(onDisk(), 0u);
    ASSERT_EQ(writeFrame(w, 1, 3, {8, 2}, written), S_OK);
    EXPECT_EQ(onDisk(), 4u);
    w.close();
    expectReadsBack(path, written);
}
