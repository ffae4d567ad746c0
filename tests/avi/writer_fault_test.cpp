// A full disk and short system writes while a file grows.
#include <gtest/gtest.h>

#include <cerrno>

#include "common/TempDir.h"
#include "vlhost/FileFaults.h"
#include "vlhost/HostStats.h"
#include "writer_readback.h"

using namespace writertest;

namespace {

constexpr std::uint64_t kCapacity = 176640; // header buffer of two streams on 512-byte sectors
// One frame on disk: 5000 + 8 -> 5120 bytes, 7680 + 8 -> 8192 bytes.
constexpr std::uint64_t kFrameBytes = 5120 + 8192;

std::vector<TrackStructuralData> tracks()
{
    return {videoTrack("UYVY", 320, 240, 25, 1), audioTrack()};
}

HRESULT writeFrame(FileWriter& w, std::uint32_t f, Written* written = nullptr)
{
    return writertest::writeFrame(w, tracks(), f, [](std::size_t k) { return k == 0 ? 5000u : 1920u * 4; }, written);
}

} // namespace

// A disk that fills up in the middle of a frame; a failing drive is tried
// at every write call by the fault sweep.
TEST(WriterFaults, FailedWriteKeepsEveryEarlierFrame)
{
    testutil::TempDir dir;
    const std::wstring path = dir.file("fault.avi");
    const std::uint32_t good = 6;
    // Write calls up to the end of the good frames, each followed by a flush.
    std::uint64_t callsBefore = 0;
    {
        auto t = tracks();
        FileWriter w;
        w.set_FlushFrequency(1);
        const std::uint64_t start = vlhost::fileWriteCalls();
        ASSERT_EQ(w.create(dir.file("count.avi"), t.data(), 2), S_OK);
        for (std::uint32_t f = 0; f < good; ++f)
            ASSERT_EQ(writeFrame(w, f), S_OK);
        callsBefore = vlhost::fileWriteCalls() - start;
    }
    // The next frame stores half its bytes and the disk is full from then on:
    // the idx1 at close must go over that half frame, not after it.
    vlhost::FileFaults faults;
    faults.failWriteCall = static_cast<std::int64_t>(callsBefore + 1);
    faults.failWriteErrno = ENOSPC;
    faults.failWriteStores = static_cast<std::int64_t>(kFrameBytes / 2);
    faults.diskFullFromWriteCall = faults.failWriteCall + 1;
    vlhost::setFileFaults(path, faults);
    auto t = tracks();
    FileWriter w;
    w.set_FlushFrequency(1);
    ASSERT_EQ(w.create(path, t.data(), 2), S_OK);
    Written written;
    written.start(w, t);
    for (std::uint32_t f = 0; f < good; ++f)
        ASSERT_EQ(writeFrame(w, f, &written), S_OK) << f;
    // The host maps ENOSPC to its disk-full code.
    EXPECT_EQ(writeFrame(w, good), static_cast<HRESULT>(0x80070070u));
    EXPECT_EQ(w.getLastError().rfind(L"WriteNextFrame failed to write data. ", 0), 0u) << convertString(w.getLastError());
    w.close();
    vlhost::clearFileFaults();

    // What the last flush put on disk: the header and the index of the good
    // frames, which our reader and ffprobe both find.
    Walk walk(path);
    ASSERT_FALSE(walk.find("ix00").empty());
    EXPECT_EQ(rd32(walk.data, walk.find("dmlh")[0]->offset + 8), good);
    EXPECT_EQ(rd32(walk.data, walk.find("ix00")[0]->offset + 12), good);
    expectReadsBack(path, written);
    EXPECT_EQ(run("ffprobe -v error '" + convertString(path) + "' 2>&1"), "");
    EXPECT_EQ(probeStream(path, 0, "nb_read_packets")["nb_read_packets"], std::to_string(good));
}

TEST(WriterFaults, ShortSystemWritesGiveTheSameFile)
{
    testutil::TempDir dir;
    auto t = tracks();
    for (const char* name : {"plain.avi", "short.avi"}) {
        const std::wstring path = dir.file(name);
        vlhost::FileFaults faults;
        faults.maxBytesPerWriteCall = 1000;
        if (std::string(name) == "short.avi")
            vlhost::setFileFaults(path, faults);
        FileWriter w;
        w.set_FlushFrequency(3);
        ASSERT_EQ(w.create(path, t.data(), 2), S_OK);
        for (std::uint32_t f = 0; f < 10; ++f)
            ASSERT_EQ(writeFrame(w, f), S_OK);
        w.close();
    }
    vlhost::clearFileFaults();
    Walk plain(dir.file("plain.avi")), shortWrites(dir.file("short.avi"));
    EXPECT_TRUE(plain.data == shortWrites.data);
    checkLayout(shortWrites, Expected{kCapacity, 10, {"00db", "01wb"}});
}

// A sync that fails is reported, never swallowed: at close the close fails,
// at a RIFF change the frame that opens the new RIFF does. Either way every
// frame written before stays readable.
TEST(WriterFaults, FailedSyncIsReported)
{
    testutil::TempDir dir;
    struct Case { const char* name; std::uint32_t frames; int error; std::uint32_t failingFrame; HRESULT close; } cases[] = {
        {"at close", 10, EIO, 10, static_cast<HRESULT>(0x80070005u)},
        {"at close, disk full", 10, ENOSPC, 10, static_cast<HRESULT>(0x80070070u)},
        {"at the RIFF change", 2666, EIO, 2665, S_OK}, // past the IBP index's 2666 entries
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::wstring path = dir.file("sync.avi");
        vlhost::FileFaults faults;
        faults.failSyncCall = 1, faults.failSyncErrno = c.error;
        vlhost::setFileFaults(path, faults);
        Mpeg2Track video;
        std::vector<TrackStructuralData> t = {video.track, audioTrack(1, 100)};
        t[1].Data.AInfo.blockAlign = 4;
        FileWriter w;
        ASSERT_EQ(w.create(path, t.data(), 2), S_OK);
        Written written;
        written.start(w, t);
        for (std::uint32_t f = 0; f < c.frames; ++f) {
            const HRESULT hr = writertest::writeFrame(w, t, f, [](std::size_t k) { return k == 0 ? 100u : 4u; }, &written);
            ASSERT_EQ(hr, f == c.failingFrame ? static_cast<HRESULT>(0x80070005u) : S_OK) << f;
            EXPECT_TRUE(SUCCEEDED(hr) || w.getLastError().rfind(L"Failed to sync file to disk. ", 0) == 0)
                << convertString(w.getLastError());
            if (FAILED(hr))
                break;
        }
        EXPECT_EQ(w.finish(), c.close);
        EXPECT_TRUE(SUCCEEDED(c.close) || w.getLastError().rfind(L"Failed to sync file to disk. ", 0) == 0)
            << convertString(w.getLastError());
        vlhost::clearFileFaults();
        expectReadsBack(path, written);
    }
}
