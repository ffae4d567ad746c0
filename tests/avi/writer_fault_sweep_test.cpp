// Every write of a small two-RIFF file made to fail in turn: as a disk that
// fills up (overwrites still succeed, growth fails with ENOSPC), as a
// failing drive (EIO) and as a short write. The writer must report the
// failure with a code and a text, and the file left behind must be refused
// cleanly or read back every frame whose write completed, byte for byte.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <set>

#include "common/AssertCapture.h"
#include "common/TempDir.h"
#include "vlhost/FileFaults.h"
#include "vlhost/HostStats.h"
#include "writer_readback.h"

using namespace writertest;

namespace {

// Past the IBP index's 2666 entries the writer opens an AVIX.
constexpr std::uint32_t kFrames = 2700;
constexpr std::uint32_t kVideoBytes = 100;
constexpr std::uint32_t kAudioBytes = 4;

struct Take
{
    std::uint32_t framesWritten = 0; // WriteSamples calls that succeeded
    HRESULT failure = S_OK;          // of the first failing call
    std::string text;                // its last error
};

// A long-GOP MPEG-2 track (so the small IBP index limit applies) given
// intra frames only.
Take write(const std::wstring& path)
{
    Mpeg2Track video;
    std::vector<TrackStructuralData> tracks = {video.track, audioTrack(1, 100)};
    tracks[1].Data.AInfo.blockAlign = 4;
    Take take;
    FileWriter w;
    testutil::captureStdout([&] {
        HRESULT hr = w.create(path, tracks.data(), 2);
        for (std::uint32_t f = 0; SUCCEEDED(hr) && f < kFrames; ++f)
            if (SUCCEEDED(hr = writeFrame(w, tracks, f, [](std::size_t k) { return k == 0 ? kVideoBytes : kAudioBytes; })))
                ++take.framesWritten;
        if (FAILED(hr))
            take.failure = hr, take.text = convertString(w.getLastError());
        w.close();
    });
    return take;
}

// The file is refused with a text, or every frame read gives its own bytes
// and every completed frame is there. Returns the frames that read back.
std::uint32_t checkFile(const std::wstring& path, std::uint32_t completed)
{
    Morvane::Avi::FileReader r;
    std::uint32_t good = 0;
    testutil::captureStdout([&] {
        HRESULT hr = r.load(path);
        if (FAILED(hr) || FAILED(hr = r.essenceOpen(0))) {
            EXPECT_FALSE(r.getLastError().empty()) << std::hex << hr;
            return;
        }
        std::vector<unsigned char> buf(8192);
        const std::uint32_t length = r.get_Length(0);
        for (std::uint32_t f = 0; f < std::max(length, completed); ++f) {
            unsigned offset = 0, size = 0;
            if (FAILED(r.ReadVideo(f, buf.data(), static_cast<unsigned>(buf.size()), &offset, &size)))
                continue;
            std::vector<unsigned char> want = payload(0, f, kVideoBytes);
            ASSERT_TRUE(size == kVideoBytes && std::equal(want.begin(), want.end(), buf.begin() + offset))
                << "frame " << f << " reads other bytes";
            ++good;
        }
        // The audio that reads, chunk by chunk.
        const std::uint32_t samples = SUCCEEDED(r.essenceOpen(1)) ? r.get_Length(1) : 0;
        std::vector<unsigned char> audio(std::size_t(samples) * kAudioBytes + 4);
        unsigned offset = 0, bytes = 0;
        if (samples && SUCCEEDED(r.ReadAudio(0, samples, audio.data(), static_cast<unsigned>(audio.size()), &offset, &bytes)))
            for (std::uint32_t f = 0; f < bytes / kAudioBytes; ++f) {
                std::vector<unsigned char> want = payload(1, f, kAudioBytes);
                ASSERT_TRUE(std::equal(want.begin(), want.end(), audio.begin() + std::size_t(f) * kAudioBytes))
                    << "audio of frame " << f;
            }
    });
    return good;
}

// A disk that fills up from write call k on, or write call k failing with
// an errno after storing some of its bytes.
struct Mode { const char* name; bool diskFull; std::int64_t stores; int error; };
const Mode kModes[] = {{"disk full", true, 0, ENOSPC}, {"failing drive", false, 0, EIO}, {"short write", false, 256, EIO}};

TEST(WriterFaultSweep, EveryWriteFailsInTurn)
{
    testutil::TempDir dir;
    const std::wstring path = dir.file("faulty.avi");
    // A clean take, and the number of its write calls.
    const std::uint64_t before = vlhost::fileWriteCalls();
    Take clean = write(path);
    const std::int64_t calls = static_cast<std::int64_t>(vlhost::fileWriteCalls() - before);
    ASSERT_EQ(clean.failure, S_OK) << clean.text;
    ASSERT_EQ(checkFile(path, kFrames), kFrames);
    ASSERT_GT(calls, std::int64_t(kFrames));

    // Every k with VELLORO_FULL_SWEEP=1; otherwise the first and last 48
    // calls, those around the second RIFF and every 53rd in between.
    const bool full = std::getenv("VELLORO_FULL_SWEEP") != nullptr;
    std::set<std::int64_t> ks;
    for (std::int64_t k = 1; k <= calls; ++k)
        if (full || k <= 48 || k > calls - 48 || k % 53 == 0 || (k > 2640 && k < 2700))
            ks.insert(k);

    for (const Mode& mode : kModes) {
        for (std::int64_t k : ks) {
            SCOPED_TRACE(std::string(mode.name) + ", write call " + std::to_string(k));
            vlhost::FileFaults faults;
            (mode.diskFull ? faults.diskFullFromWriteCall : faults.failWriteCall) = k;
            faults.failWriteErrno = mode.error, faults.failWriteStores = mode.stores;
            vlhost::setFileFaults(path, faults);
            Take take = write(path);
            vlhost::clearFileFaults();
            if (take.failure != S_OK) {
                errno = mode.error;
                EXPECT_EQ(take.failure, HRFromLastError()) << take.text;
                EXPECT_FALSE(take.text.empty()) << std::hex << take.failure;
            }
            std::uint32_t good = checkFile(path, take.framesWritten);
            if (HasFatalFailure())
                return;
            // A file that opens gives every frame whose write completed,
            // unless the failure hit the index or header writes of close.
            if (good > 0 && take.failure != S_OK) {
                EXPECT_GE(good, take.framesWritten);
            }
        }
    }
}

} // namespace
