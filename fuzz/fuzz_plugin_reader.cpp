// The plug-in and the editor stand-in together: arbitrary bytes opened
// through the stand-in's reader resource as the editor opens a clip, its
// metadata asked for, then video frames, whole groups and audio runs
// requested in an order that the input picks, several in flight on the
// resource's request threads. Every request must end, in time and memory
// that follow the bytes read, not what a header claims.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iterator>
#include <random>
#include <string>

#include "ChunkSizeMutator.h"
#include "FuzzInput.h"
#include "PluginLoader.h"
#include "vlhost/HostStats.h"

namespace {

constexpr unsigned kMaxRequests = 48;
constexpr unsigned kMaxInFlight = 8;

velloro::PluginLoader* g_loader = nullptr;
Vl::FileReaderResource* g_reader = nullptr;
volatile std::uint64_t g_sink;

// The order of the requests comes from the input's last eight bytes (the
// end of an index in most files): a mutation there reorders the requests
// without changing what the header says.
std::uint64_t scriptSeed(const std::uint8_t* data, std::size_t size)
{
    std::uint64_t seed = size;
    for (std::size_t i = size > 8 ? size - 8 : 0; i < size; ++i)
        seed = seed * 131 + data[i];
    return seed;
}

struct InFlight
{
    Vl::Ptr<VideoReadRequest> video;
    Vl::Ptr<AudioReadRequest> audio;
};

void finish(InFlight& r)
{
    if (r.video) {
        if (r.video->wait() == RequestStatus::eCompleted)
            if (Vl::Ptr<FrameBuffer> frame = r.video->getResult())
                if (frame->size())
                    g_sink = g_sink + frame->bytes()[0] + frame->bytes()[frame->size() - 1];
    } else if (r.audio) {
        if (r.audio->wait() == RequestStatus::eCompleted) {
            const Aud::StreamBufferList& b = r.audio->result();
            if (b.samples() && b.channels() && b.bytesPerSample())
                g_sink = g_sink + b.channel(b.channels() - 1)[std::size_t(b.samples()) * b.bytesPerSample() - 1];
        }
    }
}

// What an editor asks of one clip: a frame near the last one (playback),
// anywhere (a scrub), past the end; audio near the picture or anywhere, in
// the sizes a mixer asks for and larger.
void drive(Vl::FileReaderResource& reader, const Vl::Ptr<FileReadInstance>& file, std::mt19937_64& rng)
{
    const PlayFileMetadata& md = *file->metadata();
    const unsigned frames = md.video().videoTrackCount() ? md.video().lengthInFrames() : 0;
    const std::uint32_t streams = md.audio().audioStreams();
    const std::uint64_t samples = md.audio().lengthInSamples();
    std::deque<InFlight> inFlight;
    const unsigned depth = 1 + rng() % kMaxInFlight;
    unsigned frame = 0;
    auto pick = [&](std::uint64_t n) { return n ? rng() % n : 0; };
    const unsigned requests = 1 + rng() % kMaxRequests;
    for (unsigned k = 0; k < requests; ++k) {
        InFlight r;
        const unsigned what = rng() % 8;
        const bool async = rng() % 4 != 0;
        if (what < 4) {
            switch (rng() % 4) {
            case 0: frame = static_cast<unsigned>(pick(frames + 2)); break;
            case 1: frame = frames ? frames - 1 : 0; break;
            default: ++frame; break;
            }
            const bool group = rng() % 2;
            r.video = reader.readVideoSample(file, frame, group, VideoReadRequest::eCompressed, nullptr, nullptr,
                                             async);
        } else if (what < 7) {
            const std::uint32_t stream = static_cast<std::uint32_t>(pick(streams + 2));
            std::uint64_t start = what == 4 && frames ? samples * frame / frames : pick(samples + 1024);
            static const std::uint32_t kCounts[] = {1, 7, 1920, 16384, 65536, 1u << 20};
            const std::uint32_t count = kCounts[rng() % std::size(kCounts)];
            r.audio = Vl::Ptr<AudioReadRequest>(new AudioReadRequest(
                file, stream, static_cast<std::uint32_t>(std::min<std::uint64_t>(start, UINT32_MAX)), count,
                static_cast<std::uint32_t>(rng() % 3)));
            reader.readAudioSample(r.audio, async);
        } else {
            Vl::Ptr<FileReadInstance> instance = file;
            Vl::Ptr<IndexInfo> record;
            reader.VlFileIxCache_open(instance, record, static_cast<unsigned>(pick(frames + 1)));
            if (record)
                g_sink = g_sink + record->getNumGopFrames() + record->getNumValidFrames();
            continue;
        }
        inFlight.push_back(r);
        while (inFlight.size() > depth) {
            finish(inFlight.front());
            inFlight.pop_front();
        }
    }
    // Half of the time the clip is closed with its requests still in flight.
    if (rng() % 2)
        for (InFlight& r : inFlight)
            finish(r);
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed)
{
    return fuzz::mutateChunkSizes(data, size, maxSize, seed);
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietStdout();
    vlhost::setLogEcho(false);
    // Loaded once, before the first input, as an editor loads it once.
    g_loader = new velloro::PluginLoader;
    std::string error;
    const char* path = std::getenv("VELLORO_PLUGIN");
    if (!g_loader->load(path && *path ? path : VELLORO_PLUGIN_PATH, error) ||
        !(g_reader = g_loader->findReader("AVI FileReader"))) {
        std::fprintf(stderr, "fuzz_plugin_reader: cannot load the plug-in: %s\n", error.c_str());
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::uint32_t sector = fuzz::sectorSizeOf(data, size);
    std::mt19937_64 rng(scriptSeed(data, size));
    // Now and then the drive fails past some byte: every request must still end.
    std::int64_t failFrom = rng() % 4 == 0 && size ? static_cast<std::int64_t>(rng() % size) : -1;
    fuzz::ScratchFile file("plugin", sector, failFrom);
    if (!file.write(data, size))
        return 0;
    vlhost::clearLogs();
    Vl::Ptr<FileReadInstance> clip = g_reader->openFile(VlWString(file.path()), FileReadInstance::eOpenForPlayback);
    if (!clip)
        return 0;
    g_sink = g_sink + g_reader->isFileFormatSupported(VlWString(file.path()), FileReadInstance::eOpenForPlayback,
                                                      *clip->metadata()) +
             g_reader->getOutputImageFormat(clip);
    drive(*g_reader, clip, rng);
    clip = nullptr;
    // Nothing may be left running on the clip once the editor lets it go.
    g_reader->waitForIdle();
    return 0;
}
