// velloro_microbench: the container's hot paths one at a time (Google
// Benchmark). Its files are written at start into $VELLORO_BENCH_DIR, or
// the working directory, on the real disk, and removed at the end.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "avi/mpeg2_codec_block.h"
#include "avi/tracks.h"
#include "util/fourcc.h"
#include "util/stringUtils.h"

using namespace Morvane::Avi;

namespace {

constexpr std::uint32_t kDvFrame = 144000;
constexpr std::uint32_t kAudioFrame = 1920 * 4;
// Past one standard index chunk (8188 entries), so lookups cross chunks.
constexpr std::uint32_t kFrames = 9000;
constexpr std::size_t kAlign = 4096;

std::string dir()
{
    const char* d = std::getenv("VELLORO_BENCH_DIR");
    return d && *d ? d : ".";
}

std::string dvPath()
{
    return dir() + "/micro_dv.avi";
}
std::string gopPath()
{
    return dir() + "/micro_gop.avi";
}

// A DV-sized file, or a long-GOP one with 12-frame groups (I P B B ...).
bool writeFile(const std::string& path, bool gop, std::uint32_t frames)
{
    std::vector<unsigned char> extra;
    TrackStructuralData tracks[2] = {avitest::videoTrack(gop ? "MMES" : "dvsd", 720, 576), avitest::audioTrack()};
    if (gop) {
        extra = testutil::mpeg2CodecBlock();
        tracks[0].pExtraData = extra.data();
        tracks[0].cbExtra = static_cast<std::uint16_t>(extra.size());
        tracks[0].Data.VInfo.gopLength = 12;
    }
    std::vector<unsigned char> v(kDvFrame, 0x5A), a(kAudioFrame, 0x11);
    FileWriter w;
    if (FAILED(w.create(Morvane::convertString(path), tracks, 2)))
        return false;
    static const std::uint32_t type[12] = {4, 16, 8, 8, 16, 8, 8, 16, 8, 8, 16, 8};
    static const std::uint32_t display[12] = {0, 3, 1, 2, 6, 4, 5, 9, 7, 8, 11, 10};
    for (std::uint32_t f = 0; f < frames; ++f) {
        std::uint32_t k = f % 12;
        TrackData td[2] = {{v.data(), gop && type[k] != 4 ? kDvFrame / 4 : kDvFrame,
                            gop ? f - k + display[k] : kDisplayNumberNotGiven, gop ? type[k] : 4, 0},
                           {a.data(), kAudioFrame, kDisplayNumberNotGiven, 4, 0}};
        if (FAILED(w.WriteSamples(td, 2)))
            return false;
    }
    w.close();
    return true;
}

struct AlignedFree
{
    void operator()(unsigned char* p) const { std::free(p); }
};

std::unique_ptr<unsigned char, AlignedFree> block(std::size_t n)
{
    n = (n + kAlign - 1) / kAlign * kAlign;
    return std::unique_ptr<unsigned char, AlignedFree>(static_cast<unsigned char*>(std::aligned_alloc(kAlign, n)));
}

bool openStream(FileReader& r, const std::string& path, bool videoStream, benchmark::State& state)
{
    if (FAILED(r.load(Morvane::convertString(path))) || FAILED(r.essenceOpen(videoStream ? 0 : 1))) {
        state.SkipWithError("cannot open the benchmark file");
        return false;
    }
    return true;
}

// Index lookups of the frames in order: within one index chunk, and, for
// the second argument, across chunks (every lookup loads another chunk).
void IndexLookup(benchmark::State& state)
{
    FileReader r;
    if (!openStream(r, dvPath(), true, state))
        return;
    const bool crossing = state.range(0) != 0;
    unsigned i = 0;
    for (auto _ : state) {
        IndexEntry* e = nullptr;
        unsigned frame = crossing ? (i & 1 ? 8500 : 10) + i % 100 : i % 8000;
        r.get_IndexEntry(frame, &e);
        benchmark::DoNotOptimize(e);
        ++i;
    }
}
BENCHMARK(IndexLookup)->Arg(0)->Arg(1);

// essenceOpen as the read adapter calls it before every video read.
void EssenceOpen(benchmark::State& state)
{
    FileReader r;
    if (!openStream(r, dvPath(), true, state))
        return;
    for (auto _ : state) {
        benchmark::DoNotOptimize(r.essenceOpen(0));
        if (state.range(0) != 0) {
            IndexEntry* e = nullptr;
            r.get_IndexEntry(8500, &e); // the frame lies in the second index chunk
        }
    }
}
BENCHMARK(EssenceOpen)->Arg(0)->Arg(1);

// One ReadVideo of a run of N consecutive frames (one seek, one read).
void ReadVideoRun(benchmark::State& state)
{
    FileReader r;
    if (!openStream(r, dvPath(), true, state))
        return;
    const unsigned run = static_cast<unsigned>(state.range(0));
    // Each frame brings its audio chunk, chunk headers and sector padding.
    const unsigned capacity = run * (kDvFrame + kAudioFrame + 2 * kAlign) + 2 * kAlign;
    auto buf = block(capacity);
    std::vector<unsigned> offsets, sizes;
    unsigned first = 0;
    for (auto _ : state) {
        offsets.clear();
        sizes.clear();
        if (FAILED(r.ReadVideo(first, run, buf.get(), capacity, offsets, sizes))) {
            state.SkipWithError("ReadVideo failed");
            return;
        }
        first = (first + run) % (8000 - run);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * run * kDvFrame);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * run);
}
BENCHMARK(ReadVideoRun)->Arg(1)->Arg(8)->Arg(32)->UseRealTime();

// The GOP record of a key frame: decode order and presentation order.
void GopRecord(benchmark::State& state)
{
    FileReader r;
    if (!openStream(r, gopPath(), true, state))
        return;
    std::vector<unsigned> gop, presentation;
    unsigned key = 0;
    for (auto _ : state) {
        gop.clear();
        presentation.clear();
        benchmark::DoNotOptimize(r.getGopAndPresentationOrder(key, gop, presentation));
        key = (key + 12) % 2400;
    }
}
BENCHMARK(GopRecord);

// Sequential audio reads of one frame's worth (1920 samples) each.
void AudioRead(benchmark::State& state)
{
    FileReader r;
    if (!openStream(r, dvPath(), false, state))
        return;
    auto buf = block(kAudioFrame);
    unsigned first = 0;
    for (auto _ : state) {
        unsigned offset = 0, bytes = 0;
        if (FAILED(r.ReadAudio(first, 1920, buf.get(), kAudioFrame, &offset, &bytes))) {
            state.SkipWithError("ReadAudio failed");
            return;
        }
        first = (first + 1920) % (1920 * 8000);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * kAudioFrame);
}
BENCHMARK(AudioRead)->UseRealTime();

// WriteSamples of one DV frame with its audio into a file on disk, with
// the indexes and header flushed every state.range(0) frames (25: every
// second of PAL material, as the plug-in does) or only at the end (0).
void WriteSamples(benchmark::State& state)
{
    const std::string path = dir() + "/micro_write.avi";
    TrackStructuralData tracks[2] = {avitest::videoTrack("dvsd", 720, 576), avitest::audioTrack()};
    std::vector<unsigned char> v(kDvFrame, 0x3C), a(kAudioFrame, 0x22);
    FileWriter w;
    w.set_FlushFrequency(static_cast<std::uint32_t>(state.range(0)));
    if (FAILED(w.create(Morvane::convertString(path), tracks, 2))) {
        state.SkipWithError("cannot create the file");
        return;
    }
    for (auto _ : state) {
        TrackData td[2] = {{v.data(), kDvFrame, kDisplayNumberNotGiven, 4, 0},
                           {a.data(), kAudioFrame, kDisplayNumberNotGiven, 4, 0}};
        if (FAILED(w.WriteSamples(td, 2))) {
            state.SkipWithError("WriteSamples failed");
            break;
        }
    }
    w.close();
    std::remove(path.c_str());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * (kDvFrame + kAudioFrame));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(WriteSamples)->Arg(0)->Arg(25)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (!writeFile(dvPath(), false, kFrames) || !writeFile(gopPath(), true, 2400)) {
        std::fprintf(stderr, "velloro_microbench: cannot write the files in %s\n", dir().c_str());
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::remove(dvPath().c_str());
    std::remove(gopPath().c_str());
    return 0;
}
