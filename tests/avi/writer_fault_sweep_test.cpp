// Every write of a small two-RIFF file made to fail in turn: as a disk that
// fills up (overwrites still succeed, growth fails with ENOSPC), as a
// failing drive (EIO) and as a short write, the take given up or the frame
// tried again. The writer must report the failure with a code and a text;
// the file left behind must read back, through our reader and ffprobe alike,
// every frame whose write completed, byte for byte, and a take that went on
// after a retry must have lost nothing.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <set>

#include "avi/AllocationWatch.h"
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

// Frames between periodic flushes, as the plug-in sets for a 25 fps take.
constexpr std::uint32_t kFlushFrames = 25;

struct Take
{
    std::uint32_t framesWritten = 0; // WriteSamples calls that succeeded
    HRESULT failure = S_OK;          // of the first failing call
    std::string text;                // its last error
    bool atClose = false;            // the failure came from the close
    std::int64_t riffCalls = 0;      // write calls made before the second RIFF began
};

// A long-GOP MPEG-2 track (so the small IBP index limit applies) given
// intra frames only.
Take write(const std::wstring& path, bool retry, const std::function<void(FileWriter&)>& created = {})
{
    Mpeg2Track video;
    std::vector<TrackStructuralData> tracks = {video.track, audioTrack(1, 100)};
    tracks[1].Data.AInfo.blockAlign = 4;
    Take take;
    FileWriter w;
    w.set_FlushFrequency(kFlushFrames);
    auto fail = [&](HRESULT hr) {
        if (take.failure == S_OK)
            take.failure = hr, take.text = convertString(w.getLastError());
    };
    const std::uint64_t start = vlhost::fileWriteCalls();
    testutil::captureStdout([&] {
        HRESULT hr = w.create(path, tracks.data(), 2);
        if (created)
            created(w);
        bool retried = false;
        for (std::uint32_t f = 0; SUCCEEDED(hr) && f < kFrames; ++f) {
            auto sizes = [](std::size_t k) { return k == 0 ? kVideoBytes : kAudioBytes; };
            const std::uint64_t callsBefore = vlhost::fileWriteCalls();
            hr = writeFrame(w, tracks, f, sizes);
            if (w.get_RiffChunkIndex() == 1 && take.riffCalls == 0)
                take.riffCalls = static_cast<std::int64_t>(callsBefore - start);
            if (FAILED(hr) && retry && !retried) {
                fail(hr), retried = true;
                hr = writeFrame(w, tracks, f, sizes);
            }
            take.framesWritten += SUCCEEDED(hr);
        }
        if (FAILED(hr))
            fail(hr);
        else if (FAILED(hr = w.finish()))
            fail(hr), take.atClose = true;
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
// an errno after storing some of its bytes (more than a sector: stray bytes past
// the RIFF that do not end on a sector); the frame tried once more or not.
struct Mode { const char* name; bool diskFull; std::int64_t stores; int error; bool retry; };
const Mode kModes[] = {{"disk full", true, 0, ENOSPC, false},
                       {"failing drive, retried", false, 0, EIO, true},
                       {"short write", false, 5000, EIO, false},
                       {"short write, retried", false, 5000, EIO, true}};

// What ffprobe makes of the file: its complaints, then the audio packets,
// one per frame (the video payload is no real MPEG-2 for it to parse).
std::string ffprobeView(const std::wstring& path)
{
    return run("ffprobe -v error -select_streams a:0 -count_packets -show_entries stream=nb_read_packets -of csv=p=0 '" +
               convertString(path) + "' 2>&1");
}

std::string line(std::uint32_t n)
{
    return std::to_string(n).append(1, '\n');
}

TEST(WriterFaultSweep, EveryWriteFailsInTurn)
{
    testutil::TempDir dir;
    const std::wstring path = dir.file("faulty.avi");
    // A clean take, and the number of its write calls.
    const std::uint64_t before = vlhost::fileWriteCalls();
    Take clean = write(path, false);
    const std::int64_t calls = static_cast<std::int64_t>(vlhost::fileWriteCalls() - before);
    ASSERT_EQ(clean.failure, S_OK) << clean.text;
    ASSERT_EQ(checkFile(path, kFrames), kFrames);
    ASSERT_GT(calls, std::int64_t(kFrames));
    ASSERT_EQ(ffprobeView(path), line(kFrames));

    // Every k with VELLORO_FULL_SWEEP=1; otherwise the first and last 24
    // calls, those of the RIFF change and every 97th in between.
    ASSERT_GT(clean.riffCalls, 0);
    const bool full = std::getenv("VELLORO_FULL_SWEEP") != nullptr;
    std::set<std::int64_t> ks;
    for (std::int64_t k = 1; k <= calls; ++k)
        if (full || k <= 24 || k > calls - 24 || k % 97 == 0 || (k > clean.riffCalls - 8 && k < clean.riffCalls + 24))
            ks.insert(k);

    for (const Mode& mode : kModes) {
        for (std::int64_t k : ks) {
            SCOPED_TRACE(std::string(mode.name) + ", write call " + std::to_string(k));
            vlhost::FileFaults faults;
            (mode.diskFull ? faults.diskFullFromWriteCall : faults.failWriteCall) = k;
            faults.failWriteErrno = mode.error, faults.failWriteStores = mode.stores;
            vlhost::setFileFaults(path, faults);
            Take take = write(path, mode.retry);
            vlhost::clearFileFaults();
            if (take.failure != S_OK) {
                errno = mode.error;
                EXPECT_EQ(take.failure, HRFromLastError()) << take.text;
                EXPECT_FALSE(take.text.empty()) << std::hex << take.failure;
            }
            // Before the first frame there is no file to judge.
            if (take.framesWritten == 0 && !take.atClose)
                continue;
            // Every completed frame, or, when the close itself could not write
            // the indexes, all but those since the last periodic flush.
            const std::uint32_t good = checkFile(path, take.framesWritten);
            if (HasFatalFailure())
                return;
            // (A long-GOP stream is flushed between RIFF changes only in the
            // first RIFF, which ends after frame 2665.)
            const std::uint32_t least =
                take.atClose ? std::min(take.framesWritten - std::min(take.framesWritten, kFlushFrames), 2665u)
                             : take.framesWritten;
            EXPECT_GE(good, least) << "frames written " << take.framesWritten;
            if (!take.atClose) {
                EXPECT_EQ(ffprobeView(path), line(good));
                // RIFF after RIFF to the end: no hole, no stray bytes.
                EXPECT_EQ(Walk(path).problem, "");
                if (mode.retry) {
                    EXPECT_EQ(take.framesWritten, kFrames);
                }
            }
        }
    }
}

// No memory for the head of the first AVIX: the frame that needed it fails,
// the first RIFF stays whole and indexed, and the frame tried again goes on
// into an AVIX right behind it.
TEST(WriterFaultSweep, NoMemoryForTheFirstAvixHead)
{
    testutil::TempDir dir;
    const std::wstring path = dir.file("nomem.avi");
    constexpr std::uint32_t kFirstRiffFrames = 2665;
    for (bool retry : {false, true}) {
        SCOPED_TRACE(retry ? "tried again" : "given up");
        Take take = write(path, retry, [](FileWriter& w) {
            avitest::AllocationWatch::failNext(2 * CStrl::m_cbIXChunkSize + w.sectorSize());
        });
        EXPECT_EQ(take.failure, E_OUTOFMEMORY) << take.text;
        EXPECT_FALSE(take.text.empty());
        const std::uint32_t expected = retry ? kFrames : kFirstRiffFrames;
        EXPECT_EQ(take.framesWritten, expected);
        EXPECT_EQ(checkFile(path, expected), expected);
        EXPECT_EQ(ffprobeView(path), line(expected));
        EXPECT_EQ(Walk(path).problem, "");
    }
}

} // namespace
