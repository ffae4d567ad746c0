// velloro_benchfiles: writes the benchmark's AVI files with the container
// writer and reports how fast WriteSamples put them on disk.
//
//   velloro_benchfiles uyvy|dv|gop OUT FRAMES
//
// uyvy: 1920x1080 UYVY at 25 fps; dv: 144000-byte "dvsd" frames at 25 fps;
// gop: MPEG-2 in 12-frame GOPs (I P B B ...) with the frame-type index.
// Every file carries stereo 48 kHz 16-bit PCM, 1920 samples per frame.
// Prints one JSON object: bytes, frames, seconds, MB/s, frames/s.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "avi/mpeg2_codec_block.h"
#include "avi/tracks.h"
#include "util/fourcc.h"
#include "util/stringUtils.h"
#include "vlhost/HostStats.h"

using namespace Morvane::Avi;
using avitest::audioTrack;
using avitest::videoTrack;

namespace {

constexpr std::uint32_t kAudioBytesPerFrame = 1920 * 4;

std::vector<unsigned char> pattern(std::size_t n, std::uint32_t seed)
{
    std::vector<unsigned char> v(n);
    std::uint32_t x = seed * 2654435761u + 1;
    for (auto& b : v) {
        x = x * 1664525u + 1013904223u;
        b = static_cast<unsigned char>(x >> 24);
    }
    return v;
}

// Frame f of a 12-frame GOP stored as I0 P3 B1 B2 P6 B4 B5 P9 B7 B8 P11 B10.
void gopFrame(std::uint32_t f, std::uint32_t& type, std::uint32_t& display, std::uint32_t& size)
{
    static const std::uint32_t kType[12] = {4, 16, 8, 8, 16, 8, 8, 16, 8, 8, 16, 8};
    static const std::uint32_t kDisplay[12] = {0, 3, 1, 2, 6, 4, 5, 9, 7, 8, 11, 10};
    static const std::uint32_t kSize[3] = {400000, 150000, 60000}; // I, P, B
    std::uint32_t k = f % 12;
    type = kType[k];
    display = f - k + kDisplay[k];
    size = kSize[type == 4 ? 0 : type == 16 ? 1 : 2] + (f % 7) * 2;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4 && argc != 5) {
        std::fprintf(stderr, "usage: velloro_benchfiles uyvy|dv|gop OUT FRAMES [FLUSH_FRAMES]\n");
        return 2;
    }
    const std::string kind = argv[1];
    const std::wstring out = Morvane::convertString(argv[2]);
    const std::uint32_t frames = static_cast<std::uint32_t>(std::strtoul(argv[3], nullptr, 10));
    std::vector<unsigned char> extra;
    TrackStructuralData tracks[2];
    std::uint32_t frameSize = 0;
    if (kind == "uyvy") {
        tracks[0] = videoTrack("UYVY", 1920, 1080, 25, 1, 0x00100009);
        frameSize = 1920 * 1080 * 2;
    } else if (kind == "dv") {
        tracks[0] = videoTrack("dvsd", 720, 576);
        tracks[0].Data.VInfo.aspectRatio = 0x00040003;
        frameSize = 144000;
    } else if (kind == "gop") {
        tracks[0] = videoTrack("MMES", 1920, 1080, 25, 1, 0x00100009);
        extra = testutil::mpeg2CodecBlock();
        tracks[0].pExtraData = extra.data();
        tracks[0].cbExtra = static_cast<std::uint16_t>(extra.size());
        tracks[0].Data.VInfo.gopLength = 12;
        frameSize = 400000 + 16;
    } else {
        std::fprintf(stderr, "velloro_benchfiles: unknown kind %s\n", kind.c_str());
        return 2;
    }
    tracks[1] = audioTrack();

    // A few distinct frames, so that making the bytes costs nothing.
    std::vector<std::vector<unsigned char>> video;
    for (std::uint32_t k = 0; k < 4; ++k)
        video.push_back(pattern(frameSize, k));
    std::vector<unsigned char> audio = pattern(kAudioBytesPerFrame, 99);

    FileWriter w;
    // The periodic flush of the indexes and header, as the plug-in sets it.
    w.set_FlushFrequency(argc == 5 ? static_cast<std::uint32_t>(std::strtoul(argv[4], nullptr, 10)) : 0);
    const std::uint64_t callsBefore = vlhost::fileWriteCalls();
    auto t0 = std::chrono::steady_clock::now();
    HRESULT hr = w.create(out, tracks, 2);
    if (FAILED(hr)) {
        std::fprintf(stderr, "velloro_benchfiles: create: %s\n", Morvane::convertString(w.getLastError()).c_str());
        return 1;
    }
    std::uint64_t bytes = 0;
    for (std::uint32_t f = 0; f < frames; ++f) {
        std::uint32_t type = 4;
        std::uint32_t display = kDisplayNumberNotGiven;
        std::uint32_t size = frameSize;
        if (kind == "gop")
            gopFrame(f, type, display, size);
        std::vector<unsigned char>& v = video[f % video.size()];
        std::memcpy(v.data(), &f, sizeof f); // every frame differs from its neighbours
        TrackData td[2] = {{v.data(), size, display, type, 0},
                           {audio.data(), kAudioBytesPerFrame, kDisplayNumberNotGiven, 4, 0}};
        hr = w.WriteSamples(td, 2);
        if (FAILED(hr)) {
            std::fprintf(stderr, "velloro_benchfiles: frame %u: %s\n", f,
                         Morvane::convertString(w.getLastError()).c_str());
            return 1;
        }
        bytes += size + kAudioBytesPerFrame;
    }
    w.close();
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    struct rusage ru = {};
    getrusage(RUSAGE_SELF, &ru);
    std::printf("{\"kind\": \"%s\", \"frames\": %u, \"essence_bytes\": %llu, \"seconds\": %.6f, "
                "\"mb_per_s\": %.1f, \"frames_per_s\": %.1f, \"peak_rss_kb\": %ld, \"write_calls\": %llu}\n",
                kind.c_str(), frames, static_cast<unsigned long long>(bytes), seconds, bytes / seconds / 1e6,
                frames / seconds, ru.ru_maxrss,
                static_cast<unsigned long long>(vlhost::fileWriteCalls() - callsBefore));
    return 0;
}
