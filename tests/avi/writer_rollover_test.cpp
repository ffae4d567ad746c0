#include <gtest/gtest.h>

#include "common/TempDir.h"
#include "vlhost/HostStats.h"
#include "writer_readback.h"

using namespace writertest;

namespace {

struct FrameSpec { std::uint32_t type; std::uint32_t display; };

// Writes one frame: video of 100 bytes plus, when present, a 4-byte audio chunk.
HRESULT writeFrame(FileWriter& w, const std::vector<TrackStructuralData>& tracks, std::uint32_t f, FrameSpec kind,
                   Written& written)
{
    return writertest::writeFrame(w, tracks, f, [](std::size_t k) { return k == 0 ? 100u : 4u; }, &written,
                                  kind.type, kind.display);
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
        std::uint32_t opensAt;         // 1-based frame that opens the second RIFF when intra
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
        Written written;
        written.start(w, tracks);
        const std::uint64_t syncs = vlhost::fileSyncCalls();
        auto kind = [&](std::uint32_t frame) { return c.longGop ? longGopFrame(frame) : FrameSpec{4, frame}; };
        std::uint32_t f = 0;
        for (; f + 1 < c.opensAt; ++f)
            ASSERT_EQ(writeFrame(w, tracks, f, kind(f), written), S_OK);
        for (std::uint32_t p = 0; p < c.predictedFrames; ++p, ++f)
            ASSERT_EQ(writeFrame(w, tracks, f, {16, f}, written), S_OK);
        EXPECT_EQ(w.get_RiffChunkIndex(), 0u) << "a predicted frame opened a RIFF";
        EXPECT_EQ(vlhost::fileSyncCalls() - syncs, 0u) << "synced per frame";
        ASSERT_EQ(kind(f).type, 4u);
        for (const std::uint32_t opening = f; f < opening + (c.longGop ? 10 : 1); ++f) {
            ASSERT_EQ(writeFrame(w, tracks, f, kind(f), written), S_OK);
            EXPECT_EQ(w.get_RiffChunkIndex(), 1u);
        }
        // Once when the first RIFF was complete, once at close.
        EXPECT_EQ(vlhost::fileSyncCalls() - syncs, 1u);
        EXPECT_EQ(w.finish(), S_OK);
        EXPECT_EQ(vlhost::fileSyncCalls() - syncs, 2u);
        expectReadsBack(path, written);
        Walk walk(path);
        checkLayout(walk, Expected{176640, f, {"00dc", "01wb"}});
        EXPECT_EQ(walk.find("RIFF").size(), 2u);
    }
}

// Two GOPs stored as I0 P3 B1 B2, flushed every second frame: a flush
// before its GOP is complete would leave frames with no place, so the
// first GOP reaches the disk whole; the index entries give each frame's
// type, display number and real location.
TEST(WriterIbpIndex, FlushWaitsForTheGopAndRealLocationsFollowPresentationOrder)
{
    testutil::TempDir dir;
    Mpeg2Track mpeg2;
    const std::wstring path = dir.file("ibp.avi");
    FileWriter w;
    w.set_FlushFrequency(2);
    ASSERT_EQ(w.create(path, &mpeg2.track, 1), S_OK);
    Written written;
    written.start(w, {mpeg2.track});
    ASSERT_TRUE(written.streams[0].ibp);
    const FrameSpec frames[] = {{4, 0}, {16, 3}, {8, 1}, {8, 2}, {4, 4}, {16, 7}, {8, 5}, {8, 6}};
    const std::uint32_t onDisk[] = {0, 0, 0, 4}; // frames in dmlh after each of the first GOP
    auto framesOnDisk = [&] { Walk now(path); return rd32(now.data, now.find("dmlh")[0]->offset + 8); };
    for (std::uint32_t f = 0; f < 8; ++f) {
        ASSERT_EQ(writeFrame(w, {mpeg2.track}, f, frames[f], written), S_OK);
        if (f < 4) {
            EXPECT_EQ(framesOnDisk(), onDisk[f]) << "after frame " << f;
        }
    }
    w.close();
    expectReadsBack(path, written);

    Walk walk(path);
    auto ix = walk.find("ix00");
    auto chunks = walk.find("00dc");
    ASSERT_TRUE(ix.size() == 1 && chunks.size() == 8);
    const std::uint64_t at = ix[0]->offset;
    ASSERT_EQ(std::pair(walk.data[at + 10], rd32(walk.data, at + 12)), (std::pair<unsigned char, std::uint32_t>(16, 8)));
    const std::uint32_t realLocations[] = {0, 2, 3, 1, 4, 6, 7, 5};
    const std::uint32_t flags[] = {0, 0x20000000, 0x40000000, 0x40000000};
    for (std::uint32_t i = 0; i < 8; ++i) {
        // offset, size with the frame-type flags, display number, real location, reserved
        const std::uint64_t entry = at + 32 + 24ull * i;
        EXPECT_EQ((std::vector<std::uint64_t>{rd64(walk.data, entry), rd32(walk.data, entry + 8),
                                              rd32(walk.data, entry + 12), rd32(walk.data, entry + 16),
                                              rd32(walk.data, entry + 20)}),
                  (std::vector<std::uint64_t>{chunks[i]->offset, 100u | flags[i % 4], frames[i].display,
                                              realLocations[i], 0}))
            << i;
    }
}
