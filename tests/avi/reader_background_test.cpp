// The read-ahead's background window, on a real file through the host's
// direct I/O: a forward run must keep the disk one window ahead through a
// handle of its own, and whatever the windows hand out must be the file's
// bytes, whether the run goes on, jumps away or is dropped mid-read.
#include <gtest/gtest.h>

#include <cstdio>

#include "FileFormats/AVI/avilib/avilib.ReadAhead.h"
#include "avi/readahead_support.h"
#include "common/TempDir.h"
#include "host/iFileSystem.h"

using Morvane::Avi::ReadAhead;
using namespace readaheadtest;

namespace {

// The host's handle, counting the reads made through it.
class CountingFile : public iFile
{
public:
    explicit CountingFile(Vl::Ptr<iFile> file) : file_(std::move(file)) {}
    std::uint64_t read(void* buf, std::uint64_t n) override
    {
        const std::uint64_t got = file_->read(buf, n);
        ++reads;
        bytes += got;
        return got;
    }
    bool write(const void*, std::uint64_t) override { return false; }
    bool setPosition(std::uint64_t pos) override { return file_->setPosition(pos); }
    bool sync() override { return file_->sync(); }
    std::uint64_t getPosition() const override { return file_->getPosition(); }
    std::uint64_t getSize() const override { return file_->getSize(); }
    unsigned reads = 0;
    std::uint64_t bytes = 0;

private:
    Vl::Ptr<iFile> file_;
};

// A file on disk whose every 4-byte word holds its own position.
std::wstring positionFile(const testutil::TempDir& dir, std::uint64_t size)
{
    const std::string path = (dir.path() / "words.bin").string();
    std::FILE* f = std::fopen(path.c_str(), "wb");
    std::vector<std::uint32_t> words(kMiB / 4);
    for (std::uint64_t at = 0; f && at < size; at += kMiB) {
        for (std::uint64_t k = 0; k < words.size(); ++k)
            words[k] = static_cast<std::uint32_t>(at + 4 * k);
        std::fwrite(words.data(), 1, std::min(kMiB, size - at), f);
    }
    if (f)
        std::fclose(f);
    return dir.file("words.bin");
}

// Bytes the process has read through any handle, the background's too.
std::uint64_t bytesReadByProcess()
{
    std::FILE* f = std::fopen("/proc/self/io", "r");
    unsigned long long rchar = 0;
    if (f) {
        if (std::fscanf(f, "rchar: %llu", &rchar) != 1)
            rchar = 0;
        std::fclose(f);
    }
    return rchar;
}

struct Fixture
{
    testutil::TempDir dir;
    std::wstring path;
    Vl::Ptr<CountingFile> file;
    ReadAhead ra; // after the file: its background read is joined first

    explicit Fixture(std::uint64_t size) : path(positionFile(dir, size))
    {
        Vl::Ptr<iFile> opened = OS().fileSystem().open(path, iFile::eRead, iFile::eOpenExisting,
                                                       iFile::eShareReadWrite, iFile::eUnbuffered);
        if (opened)
            file = Vl::Ptr<CountingFile>(new CountingFile(opened));
        ra.readNextInBackground(path, iFile::eUnbuffered);
    }

    // Frames first to first + count, each checked; how many the windows served.
    unsigned walk(unsigned first, unsigned count)
    {
        unsigned served = 0;
        std::vector<unsigned char> got(kDvRead);
        for (unsigned k = first; k < first + count; ++k) {
            const std::uint64_t pos = 4096 + k * kDvStep;
            if (ra.read(*file, pos, kDvRead, got.data())) {
                EXPECT_TRUE(holdsPositions(got.data(), kDvRead, pos)) << "frame " << k;
                ++served;
            }
        }
        return served;
    }
};

TEST(ReadAheadBackground, AForwardRunIsReadAheadThroughAHandleOfItsOwn)
{
    Fixture f(48 * kMiB);
    ASSERT_TRUE(f.file);
    // 300 frames, 44 MiB: two alone and a window of 1 MiB in the
    // foreground; every later window comes from the background.
    EXPECT_EQ(f.walk(0, 300), 298u);
    EXPECT_EQ(f.file->reads, 1u);
    // The same again after a jump back: the window read for the first run
    // is dropped, not left in the way of the second's.
    f.file->reads = 0;
    EXPECT_GE(f.walk(0, 290), 280u);
    EXPECT_LE(f.file->reads, 2u);
}

TEST(ReadAheadBackground, GroupsInFlightComeFromTheBackgroundWindows)
{
    // Eight groups in flight, delivered in any order within each eight: the
    // newest window moves on as soon as the first of them reaches the one
    // being read; the others still find their bytes.
    Fixture f(64 * kMiB);
    ASSERT_TRUE(f.file);
    const std::uint64_t gop = 1480 * 1024;
    std::vector<unsigned char> got(gop);
    for (unsigned g : inFlightOrder(40, 3)) {
        const std::uint64_t at = 4096 + g * gop;
        ASSERT_TRUE(f.ra.readRun(*f.file, at, gop)) << g;
        ASSERT_TRUE(f.ra.read(*f.file, at, gop, got.data())) << g;
        EXPECT_TRUE(holdsPositions(got.data(), gop, at)) << "group " << g;
    }
    // 58 MiB: the first groups alone and windows of 2, 4 and 8 MiB in the
    // foreground, then the background's (15 reads without it).
    EXPECT_LE(f.file->reads, 11u);
}

TEST(ReadAheadBackground, AScrubOfGroupsReadsNothingAhead)
{
    // Groups asked for at random, each then read frame by frame as a
    // decoder does: the frames of one group are no run to read ahead for.
    Fixture f(64 * kMiB);
    ASSERT_TRUE(f.file);
    const std::uint64_t frame = 247 * 512;
    const std::uint64_t gop = 12 * frame;
    std::mt19937 rng(5);
    std::vector<unsigned char> got(frame);
    const std::uint64_t before = bytesReadByProcess();
    if (before == 0)
        GTEST_SKIP() << "the system does not count this process's reads";
    for (int k = 0; k < 100; ++k) {
        const std::uint64_t at = 4096 + std::uniform_int_distribution<std::uint64_t>(0, 40)(rng) * gop;
        ASSERT_TRUE(f.ra.readRun(*f.file, at, gop));
        for (std::uint64_t p = at; p < at + gop; p += frame) {
            ASSERT_TRUE(f.ra.read(*f.file, p, frame, got.data()));
            EXPECT_TRUE(holdsPositions(got.data(), frame, p));
        }
    }
    f.ra.clear();
    const std::uint64_t background = bytesReadByProcess() - before - f.file->bytes;
    EXPECT_LT(background, f.file->bytes / 10);
}

TEST(ReadAheadBackground, JumpsClearsAndTheEndOfTheFileKeepTheBytesRight)
{
    Fixture f(40 * kMiB + 70000);
    ASSERT_TRUE(f.file);
    // A jump back while the next window is being read, a run from there, a
    // clear mid-run, and a run to the end, whose last frame is not whole.
    f.walk(0, 120);
    f.walk(10, 100);
    f.ra.clear();
    f.walk(110, 80);
    const unsigned last = static_cast<unsigned>((40 * kMiB + 70000 - 4096 - kDvRead) / kDvStep);
    EXPECT_GE(f.walk(190, last - 190 + 1), last - 190 - 10);
    std::vector<unsigned char> got(kDvRead);
    EXPECT_FALSE(f.ra.read(*f.file, 4096 + (last + 1) * kDvStep, kDvRead, got.data()));
}

} // namespace
