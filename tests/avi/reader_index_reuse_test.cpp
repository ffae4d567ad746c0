// Making a stream current again reuses index chunks parsed before: the
// reader must end up exactly where a fresh load would leave it.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "common/TempDir.h"
#include "vlhost/HostStats.h"
#include "writer_readback.h"

using namespace writertest;

namespace {

// Writes `frames` frames of video (100 + f % 9 bytes) and 4-byte audio; a
// long-GOP file stores GOPs of gopA frames up to `switchAt`, then of gopB,
// each as I P B B ... with the P shown last.
void writeFile(const std::wstring& path, bool longGop, std::uint32_t frames, std::uint32_t switchAt = 0,
               std::uint32_t gopA = 4, std::uint32_t gopB = 10)
{
    Mpeg2Track mpeg2;
    std::vector<TrackStructuralData> tracks = {longGop ? mpeg2.track : videoTrack("M101", 720, 576, 25, 1),
                                               audioTrack(1, 100)};
    tracks[1].Data.AInfo.blockAlign = 4;
    FileWriter w;
    ASSERT_EQ(w.create(path, tracks.data(), 2), S_OK);
    std::uint32_t gopStart = 0;
    for (std::uint32_t f = 0; f < frames; ++f) {
        std::uint32_t gop = f < switchAt ? gopA : gopB;
        if (f - gopStart == gop || (f == switchAt && f != gopStart))
            gopStart = f;
        std::uint32_t k = f - gopStart;
        std::uint32_t type = 4, display = kDisplayNumberNotGiven;
        if (longGop) {
            std::uint32_t length = std::min(gop, (f < switchAt ? switchAt : frames) - gopStart);
            type = k == 0 ? 4 : k == 1 ? 16 : 8;
            display = gopStart + (k == 0 ? 0 : k == 1 ? length - 1 : k - 1);
        }
        ASSERT_EQ(writeFrame(w, tracks, f, [f](std::size_t k) { return k == 0 ? 100 + f % 9 : 4u; }, nullptr, type,
                             display),
                  S_OK)
            << "frame " << f;
    }
    w.close();
}

struct Resident
{
    std::uint32_t start, length, count, maxGop;
    std::vector<std::uint64_t> offsets;
    std::vector<std::uint32_t> sizes, locations;

    bool operator==(const Resident&) const = default;
};

Resident resident(FileReader& r, unsigned sample)
{
    Resident x{};
    IndexEntry* e = nullptr;
    EXPECT_EQ(r.get_IndexEntry(sample, &e), S_OK) << "sample " << sample;
    x.start = r.get_IndexStartSample();
    x.length = r.get_ResidentLength();
    x.count = r.get_IndexCount();
    x.maxGop = r.get_MaxGopLength();
    for (unsigned i = 0; i < x.count; i += 97) {
        if (r.get_IndexEntry(x.start + i, &e) != S_OK) {
            ADD_FAILURE() << "no record " << x.start + i;
            break;
        }
        // Copies: the record is packed, so its fields may not bind to references.
        x.offsets.push_back(std::uint64_t{e->offset});
        x.sizes.push_back(std::uint32_t{e->size});
        x.locations.push_back(std::uint32_t{e->realLocation});
    }
    return x;
}

// The state a reader that has never loaded anything reaches.
Resident fresh(const std::wstring& path, int stream, unsigned sample, bool reordering = false)
{
    FileReader r;
    EXPECT_EQ(r.load(path), S_OK);
    EXPECT_EQ(r.essenceOpen(stream), S_OK);
    if (reordering) {
        EXPECT_TRUE(r.set_TemporalReordering(true));
    }
    return resident(r, sample);
}

} // namespace

TEST(ReaderIndexReuse, ReopeningAStreamGivesTheStateOfAFreshLoad)
{
    testutil::TempDir dir;
    struct Case
    {
        const char* name;
        bool longGop;
        std::uint32_t frames, switchAt, later; // `later` lies in the second index chunk
    } cases[] = {
        {"standard index", false, 8300, 0, 8250},
        // GOPs of 4 in the first frame-type chunk, of 10 in the second: the
        // maximum GOP length belongs to the resident chunk.
        {"frame-type index", true, 2900, 2728, 2800},
    };
    // One reader for both files: the second never sees the records of the first.
    FileReader r;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::wstring path = dir.file(c.longGop ? "ibp.avi" : "std.avi");
        writeFile(path, c.longGop, c.frames, c.switchAt);
        const Resident first = fresh(path, 0, 0), second = fresh(path, 0, c.later);
        ASSERT_NE(first.start, second.start);
        if (c.longGop) {
            EXPECT_NE(first.maxGop, second.maxGop);
        }

        ASSERT_EQ(r.load(path), S_OK);
        EXPECT_EQ(r.get_Length(0), c.frames);
        for (int round = 0; round < 3; ++round) {
            SCOPED_TRACE(round);
            ASSERT_EQ(r.essenceOpen(0), S_OK);
            EXPECT_EQ(resident(r, c.later), second);
            ASSERT_EQ(r.essenceOpen(0), S_OK);
            EXPECT_EQ(r.get_IndexStartSample(), 0u);
            EXPECT_EQ(r.get_MaxGopLength(), first.maxGop);
            EXPECT_EQ(resident(r, 0), first);
            // The audio stream in between takes the resident place.
            ASSERT_EQ(r.essenceOpen(1), S_OK);
            EXPECT_EQ(resident(r, 0), fresh(path, 1, 0));
        }
        if (c.longGop) {
            // Reordered records are other records: the flag is part of what a
            // reused chunk must match, both ways.
            const Resident reordered = fresh(path, 0, 0, true);
            ASSERT_NE(reordered.offsets, first.offsets);
            ASSERT_EQ(r.essenceOpen(0), S_OK);
            EXPECT_TRUE(r.set_TemporalReordering(true));
            EXPECT_EQ(resident(r, 0), reordered);
            for (bool on : {true, false}) {
                EXPECT_TRUE(r.set_TemporalReordering(on));
                ASSERT_EQ(r.essenceOpen(1), S_OK);
                ASSERT_EQ(r.essenceOpen(0), S_OK);
                EXPECT_EQ(resident(r, 0), on ? reordered : first);
            }
        }
        r.close();
    }
}

// A scrub across a long file jumps between index chunks far apart and back:
// once each chunk has been parsed, no jump reads one from the disk again.
TEST(ReaderIndexReuse, JumpsAcrossALongFileReadEachIndexChunkOnce)
{
    testutil::TempDir dir;
    const std::wstring path = dir.file("long.avi");
    const std::uint32_t frames = 19000; // seven frame-type index chunks
    writeFile(path, true, frames, frames);
    FileReader r;
    ASSERT_EQ(r.load(path), S_OK);
    ASSERT_EQ(r.essenceOpen(0), S_OK);
    std::vector<unsigned> jumps;
    for (unsigned k = 0; k < 14; ++k)
        jumps.push_back(k * 5 % 14 * (frames / 14) + 17);
    std::set<std::uint32_t> chunks;
    std::vector<std::uint64_t> offsets;
    for (unsigned sample : jumps) {
        IndexEntry* e = nullptr;
        ASSERT_EQ(r.get_IndexEntry(sample, &e), S_OK) << "sample " << sample;
        chunks.insert(r.get_IndexStartSample());
        offsets.push_back(std::uint64_t{e->offset}); // a copy: the record is packed
    }
    ASSERT_EQ(chunks.size(), 7u);
    const std::uint64_t reads = vlhost::fileReadCalls();
    for (int round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < jumps.size(); ++i) {
            IndexEntry* e = nullptr;
            ASSERT_EQ(r.get_IndexEntry(jumps[i], &e), S_OK) << "sample " << jumps[i];
            EXPECT_EQ(std::uint64_t{e->offset}, offsets[i]) << "sample " << jumps[i];
        }
    }
    EXPECT_EQ(vlhost::fileReadCalls(), reads);
}
