// The read-ahead window: whatever it hands out must be the file's bytes at
// the asked position, it must read ahead only for forward runs, and a failed
// or short disk read must leave the caller to read (and fail) on its own.
#include <gtest/gtest.h>

#include "FileFormats/AVI/avilib/avilib.ReadAhead.h"
#include "avi/readahead_support.h"

using Morvane::Avi::ReadAhead;
using namespace readaheadtest;

namespace {

// Requests of n bytes every step bytes from start, count of them delivered
// as inFlightOrder gives them; how many the window served.
unsigned walk(ReadAhead& ra, MemoryFile& f, std::uint64_t start, std::uint64_t step, std::uint64_t n, unsigned count,
              unsigned seed = 0)
{
    unsigned served = 0;
    std::vector<unsigned char> got(n);
    for (unsigned k : inFlightOrder(count, seed)) {
        std::uint64_t pos = start + k * step;
        if (ra.read(f, pos, n, got.data())) {
            EXPECT_TRUE(holdsPositions(got.data(), n, pos)) << "request " << k << " at " << pos;
            ++served;
        }
    }
    return served;
}

TEST(ReadAhead, ForwardFramesComeFromGrowingWindowsInAnyOrderOfDelivery)
{
    // In order: two frames alone, then windows of 1, 2, 4 and 8 MiB for the
    // rest; delivered out of order, at most eight alone.
    for (auto [seed, served] : {std::pair{0u, 398u}, {7u, 392u}}) {
        MemoryFile f(64 * kMiB);
        ReadAhead ra;
        EXPECT_GE(walk(ra, f, 4096, kDvStep, kDvRead, 400, seed), served) << seed;
        EXPECT_LE(f.reads, 12u) << seed;
    }
}

TEST(ReadAhead, RandomLargeAndSparseReadsGoToTheDisk)
{
    MemoryFile f(96 * kMiB);
    ReadAhead ra;
    std::vector<unsigned char> got(kDvRead);
    for (std::uint64_t pos : {50 * kMiB, 3 * kMiB, 70 * kMiB, 17 * kMiB, 40 * kMiB, 90 * kMiB})
        EXPECT_FALSE(ra.read(f, pos, kDvRead, got.data()));
    // Frames of uncompressed HD are read alone however they follow each
    // other, and so is the audio between them, asked for along with them.
    std::vector<unsigned char> frame(4147200), chunk(8192);
    for (std::uint64_t k = 0; k < 20; ++k) {
        EXPECT_FALSE(ra.read(f, k * 4157440, 4147200, frame.data()));
        EXPECT_FALSE(ra.read(f, k * 4157440 + 4147200, 8192, chunk.data()));
    }
    // One stream of an interleaved file: the audio chunks of a DV file on
    // their own skip 95% of what a window would hold.
    ReadAhead audio;
    EXPECT_EQ(walk(audio, f, 4096 + kDvRead, kDvStep, 8192, 300), 0u);
    EXPECT_EQ(f.reads, 0u);
}

TEST(ReadAhead, AGroupIsOneReadAndTheNextGroupsReadFurtherAhead)
{
    MemoryFile f(64 * kMiB);
    ReadAhead ra;
    const std::uint64_t gop = 1400 * 1024;
    ASSERT_TRUE(ra.readRun(f, 10 * kMiB, gop));
    EXPECT_EQ(f.reads, 1u);
    EXPECT_EQ(walk(ra, f, 10 * kMiB, gop / 12, gop / 12, 12), 12u);
    EXPECT_EQ(f.reads, 1u);
    // A held run costs nothing; each following group is read with what
    // comes after it, in windows of 2, 4 and 8 MiB.
    EXPECT_TRUE(ra.readRun(f, 10 * kMiB, gop));
    for (int g = 1; g <= 6; ++g) {
        ASSERT_TRUE(ra.readRun(f, 10 * kMiB + g * gop, gop));
        EXPECT_EQ(walk(ra, f, 10 * kMiB + g * gop, gop / 12, gop / 12, 12), 12u);
    }
    EXPECT_EQ(f.reads, 5u);
    EXPECT_FALSE(ra.readRun(f, 0, ReadAhead::kMaxRun + 512));
}

// Groups each read frame by frame: in order, with the audio asked for 8
// groups (11 MiB) behind as a player does, or eight in flight in any order.
// Either way windows growing to 8 MiB, not a read per group.
TEST(ReadAhead, GroupsComeFromWindowsBetweenAudioReadsAndInAnyOrder)
{
    const struct { std::uint64_t start, gop; unsigned groups, seed; bool audio; unsigned reads; } cases[] = {
        {4 * kMiB, 1400 * 1024, 30, 0, true, 10}, // 41 MiB
        {4096, 1480 * 1024, 48, 11, false, 20},   // 69 MiB
    };
    for (const auto& c : cases) {
        MemoryFile f(96 * kMiB);
        ReadAhead ra;
        std::vector<unsigned char> got(8192);
        for (unsigned g : inFlightOrder(c.groups, c.seed)) {
            const std::uint64_t at = c.start + g * c.gop;
            ASSERT_TRUE(ra.readRun(f, at, c.gop)) << g;
            EXPECT_EQ(walk(ra, f, at, c.gop / 12, c.gop / 12, 12), 12u) << g;
            if (c.audio && g >= 8 && ra.read(f, at - 8 * c.gop, 8192, got.data())) {
                EXPECT_TRUE(holdsPositions(got.data(), 8192, at - 8 * c.gop));
            }
        }
        EXPECT_LE(f.reads, c.reads) << c.seed;
    }
}

TEST(ReadAhead, ScrubbedGroupsAreReadAlone)
{
    // Random groups, some landing near the one before: each costs about its
    // own size, never the stretch between them.
    MemoryFile f(96 * kMiB);
    ReadAhead ra;
    const std::uint64_t gop = 1480 * 1024;
    std::mt19937 rng(5);
    std::uniform_int_distribution<unsigned> pick(0, 63);
    for (int k = 0; k < 300; ++k)
        ra.readRun(f, 4096 + pick(rng) * gop, gop);
    EXPECT_LE(f.bytesRead, 300 * gop * 5 / 4);
}

TEST(ReadAhead, ShortAndFailedReadsLeaveTheRestToTheCaller)
{
    MemoryFile f(3 * kMiB + 1000);
    ReadAhead ra;
    // Two frames alone, then windows up to the end of the file; the last
    // frame reaches past it and is not served.
    EXPECT_EQ(walk(ra, f, 0, kDvStep, kDvRead, 21), 18u);
    std::vector<unsigned char> got(kDvRead);
    EXPECT_FALSE(ra.read(f, 3 * kMiB + 512, 1024, got.data()));

    MemoryFile bad(32 * kMiB);
    bad.failFrom = 2 * kMiB + 100;
    ReadAhead rb;
    for (unsigned k = 0; k < 40; ++k) {
        std::uint64_t pos = k * kDvStep;
        bool served = rb.read(bad, pos, kDvRead, got.data());
        if (pos + kDvRead > bad.failFrom) {
            EXPECT_FALSE(served) << "request " << k << " reaches the failing offset";
        } else if (served) {
            EXPECT_TRUE(holdsPositions(got.data(), kDvRead, pos));
        }
    }
}

TEST(ReadAhead, WindowMemoryIsAlignedForDirectReads)
{
    // A window off a page would make every direct read of it go through the
    // page cache on a disk that asks for aligned memory.
    struct Owner : Vl::ReadAheadClient
    {
        bool giveBack() override { return false; }
    } owner;
    Vl::ReadAheadBudget::join(owner);
    Morvane::Avi::WindowBuffer w;
    for (auto [ask, alignment] : {std::pair<std::uint64_t, std::uint64_t>{70000, 4096}, {3u << 20, 2u << 20}}) {
        ASSERT_TRUE(w.reserve(owner, ask));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(w.data()) % alignment, 0u) << ask;
        EXPECT_GE(w.capacity(), ask);
    }
    unsigned char* kept = w.data();
    ASSERT_TRUE(w.reserve(owner, 1u << 20));
    EXPECT_EQ(w.data(), kept); // a smaller window reuses the memory
    w.reset();
    Vl::ReadAheadBudget::leave(owner);
}

} // namespace
