// A file past 4 GiB with real-sized frames: several RIFFs, 64-bit offsets.
#include <gtest/gtest.h>

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer's own count, since it replaces malloc; gcc ships no header for it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

#include "common/TempDir.h"
#include "writer_readback.h"

using namespace writertest;

namespace {

constexpr std::uint32_t kWidth = 1920, kHeight = 1080;
constexpr std::uint32_t kFrameBytes = kWidth * kHeight * 2; // UYVY
constexpr std::uint32_t kFrames = 1060;                      // about 4.1 GiB of video
constexpr std::uint32_t kAudioBytes = 1920 * 4;

// Frame f: only the first bytes change, enough to tell frames apart cheaply.
std::vector<unsigned char> videoFrame(std::uint32_t f)
{
    std::vector<unsigned char> v = payload(0, f, 4096);
    v.resize(kFrameBytes);
    return v;
}

// Heap bytes in use and the resident set, in bytes.
struct Memory { std::uint64_t heap; std::uint64_t resident; };

Memory memoryNow()
{
    Memory m = {};
#if defined(__SANITIZE_ADDRESS__)
    m.heap = __sanitizer_get_current_allocated_bytes();
#else
    struct mallinfo2 mi = mallinfo2();
    m.heap = mi.uordblks + mi.hblkhd;
#endif
    std::ifstream statm("/proc/self/statm");
    std::uint64_t pages = 0, resident = 0;
    statm >> pages >> resident;
    m.resident = resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    return m;
}

std::uint32_t readWord(std::ifstream& in, std::uint64_t at)
{
    std::uint32_t v = 0;
    in.seekg(static_cast<std::streamoff>(at));
    in.read(reinterpret_cast<char*>(&v), 4);
    return v;
}

} // namespace

TEST(WriterLarge, FilePastFourGigabytes)
{
    testutil::TempDir dir;
    const std::wstring path = dir.file("large.avi");
    std::vector<TrackStructuralData> tracks = {videoTrack("UYVY", kWidth, kHeight, 25, 1), audioTrack()};
    Written written;
    written.bytes = [](std::uint32_t k, std::uint32_t f) { return k == 0 ? videoFrame(f) : payload(1, f, kAudioBytes); };
    {
        FileWriter w;
        w.set_FlushFrequency(100);
        ASSERT_EQ(w.create(path, tracks.data(), 2), S_OK);
        written.start(w, tracks);
        // Once the first frames are in, the writer's memory must not grow
        // with the file: beyond the current RIFF's index lists it keeps no
        // per-frame state.
        constexpr std::uint32_t kEarly = 40;
        Memory early = {};
        // One frame buffer, its tag rewritten: a new one per frame would sit in
        // the sanitizer's quarantine and count as growth.
        std::vector<unsigned char> v(kFrameBytes);
        for (std::uint32_t f = 0; f < kFrames; ++f) {
            const std::vector<unsigned char> tag = payload(0, f, 4096), a = payload(1, f, kAudioBytes);
            std::copy(tag.begin(), tag.end(), v.begin());
            TrackData td[2] = {{v.data(), kFrameBytes, kDisplayNumberNotGiven, 4, 0},
                               {a.data(), kAudioBytes, kDisplayNumberNotGiven, 4, 0}};
            ASSERT_EQ(w.WriteSamples(td, 2), S_OK) << f;
            written.add(td);
            if (f == kEarly)
                early = memoryNow();
        }
        const Memory late = memoryNow();
        EXPECT_GE(w.get_RiffChunkIndex(), 2u);
        // Allowed: the AVIX head buffer (R + S bytes) and a RIFF's index
        // lists, some 500 entries of 40 bytes per stream.
        EXPECT_LT(late.heap, early.heap + 512 * 1024) << "heap " << early.heap << " -> " << late.heap;
        EXPECT_LT(late.resident, early.resident + 16 * 1024 * 1024)
            << "resident " << early.resident << " -> " << late.resident;
    }
    const std::uint64_t size = std::filesystem::file_size(std::filesystem::path(convertString(path)));
    ASSERT_GT(size, 0x100000000ull);

    // Walk the RIFF chain: each starts where the previous one ends, on a sector.
    std::ifstream in(convertString(path), std::ios::binary);
    std::uint64_t pos = 0;
    int riffs = 0;
    for (; pos < size; pos += 8ull + readWord(in, pos + 4), ++riffs) {
        ASSERT_EQ(fcc(readWord(in, pos)), "RIFF") << pos;
        EXPECT_EQ(fcc(readWord(in, pos + 8)), riffs == 0 ? "AVI " : "AVIX");
        EXPECT_EQ(pos % 512, 0u);
    }
    EXPECT_EQ(pos, size);
    EXPECT_GE(riffs, 3);

    // Our reader: every frame's size and bytes, past 4 GiB included, and all audio.
    expectReadsBack(path, written);

    EXPECT_EQ(run("ffprobe -v error '" + convertString(path) + "' 2>&1"), "");
    EXPECT_EQ(probeStream(path, 0, "codec_tag_string,width,height,nb_frames,nb_read_packets"),
              (std::map<std::string, std::string>{{"codec_tag_string", "UYVY"}, {"width", "1920"}, {"height", "1080"},
                                                  {"nb_frames", std::to_string(kFrames)},
                                                  {"nb_read_packets", std::to_string(kFrames)}}));
    // ffmpeg's copy of the video, frame by frame as it streams out, frames
    // past 4 GiB included.
    FILE* copy = ::popen(("ffmpeg -v error -i '" + convertString(path) + "' -map 0:0 -c copy -f data -").c_str(), "r");
    ASSERT_NE(copy, nullptr);
    std::vector<unsigned char> got(kFrameBytes);
    std::uint32_t f = 0;
    for (; std::fread(got.data(), 1, got.size(), copy) == got.size(); ++f)
        if (got != videoFrame(f))
            break;
    ::pclose(copy);
    EXPECT_EQ(f, kFrames) << "ffmpeg's copy differs from frame " << f << " on";
}
