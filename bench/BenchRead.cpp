// velloro_benchread: the read side's timed passes, one per command, each
// printing one JSON object (scripts/bench.sh runs them and builds the table).
//
//   velloro_benchread container FILE      every frame and all audio through the container reader
//   velloro_benchread plugin FILE         the same through the plug-in's reader component, in
//                                         requests as velloro's framemd5 makes them
//   velloro_benchread playback FILE       the same with the audio asked for a little ahead
//   velloro_benchread scrub FILE N SEED   N random frames (GOPs on long-GOP files) through the
//                                         plug-in, then pread(O_DIRECT) of the same byte ranges
//   velloro_benchread open FILE N [drop]  openFile and metadata N times (drop: page cache dropped first)
//   velloro_benchread many OPEN PLAYED FILE...
//                                         OPEN files open at once (the FILEs in turn), the first
//                                         PLAYED of them played at the same time in playback
//                                         order, one thread each; memory before, during and after
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "Play.h"
#include "PluginLoader.h"
#include "util/stringUtils.h"
#include "vlhost/HostStats.h"

namespace {

using Clock = std::chrono::steady_clock;
using Morvane::Avi::FileReader;
using Morvane::Avi::IndexEntry;

constexpr std::size_t kAlign = 4096;

struct FreeBlock
{
    void operator()(unsigned char* p) const { std::free(p); }
};
using Block = std::unique_ptr<unsigned char, FreeBlock>;

Block alignedBlock(std::size_t n)
{
    n = (n + kAlign - 1) / kAlign * kAlign;
    return Block(static_cast<unsigned char*>(std::aligned_alloc(kAlign, n ? n : kAlign)));
}

double since(Clock::time_point t0)
{
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

long peakRssKb()
{
    struct rusage ru = {};
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_maxrss;
}

std::uint64_t fileSize(const char* path)
{
    struct stat st = {};
    return ::stat(path, &st) == 0 ? static_cast<std::uint64_t>(st.st_size) : 0;
}

int fail(const char* what, const std::string& why)
{
    std::fprintf(stderr, "velloro_benchread: %s: %s\n", what, why.c_str());
    return 1;
}

// User plus system seconds of the whole process so far.
double cpuSeconds()
{
    struct rusage ru = {};
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec + (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

// cpu: the pass's own CPU seconds, from the plug-in loaded to the last byte.
void printPass(const char* pass, const char* path, std::uint64_t frames, std::uint64_t videoBytes,
               std::uint64_t audioBytes, double seconds, double cpu)
{
    double mb = fileSize(path) / 1e6;
    std::printf("{\"pass\": \"%s\", \"frames\": %llu, \"video_bytes\": %llu, \"audio_bytes\": %llu, "
                "\"seconds\": %.6f, \"mb_per_s\": %.1f, \"frames_per_s\": %.1f, \"cpu_seconds\": %.4f, "
                "\"peak_rss_kb\": %ld}\n",
                pass, static_cast<unsigned long long>(frames), static_cast<unsigned long long>(videoBytes),
                static_cast<unsigned long long>(audioBytes), seconds, mb / seconds, frames / seconds, cpu,
                peakRssKb());
}

int firstStream(FileReader& r, bool video)
{
    for (unsigned n = 0; n < r.get_StreamCount(); ++n)
        if (video ? r.get_IsVideo(static_cast<int>(n)) : r.get_IsAudio(static_cast<int>(n)))
            return static_cast<int>(n);
    return -1;
}

// Every video frame, as velloro's framemd5 reads them, then all audio.
int containerPass(const char* path)
{
    auto t0 = Clock::now();
    const double cpu0 = cpuSeconds();
    FileReader r;
    if (FAILED(r.load(Morvane::convertString(path))))
        return fail("load", Morvane::convertString(r.getLastError()));
    std::uint64_t frames = 0, videoBytes = 0, audioBytes = 0;
    int v = firstStream(r, true);
    if (v >= 0 && SUCCEEDED(r.essenceOpen(static_cast<unsigned>(v)))) {
        std::size_t capacity = 0;
        Block block;
        for (unsigned i = 0; i < r.get_Length(v); ++i) {
            IndexEntry* entry = nullptr;
            if (FAILED(r.get_IndexEntry(i, &entry)) || !entry)
                break;
            std::size_t need = std::size_t(entry->size) + 2 * kAlign;
            if (need > capacity) {
                capacity = (need + kAlign - 1) / kAlign * kAlign;
                block = alignedBlock(capacity);
            }
            unsigned offset = 0, size = 0;
            if (FAILED(r.ReadVideo(i, block.get(), static_cast<unsigned>(capacity), &offset, &size)))
                return fail("ReadVideo", Morvane::convertString(r.getLastError()));
            ++frames;
            videoBytes += size;
        }
    }
    int a = firstStream(r, false);
    if (a >= 0 && SUCCEEDED(r.essenceOpen(static_cast<unsigned>(a)))) {
        const Morvane::Avi::AviStream* s = r.get_Stream(a);
        std::uint64_t total = 0;
        for (const auto& e : s->m_SuperIndex)
            total += e.dwDuration;
        if (s->m_SuperIndex.empty())
            total = r.get_ResidentLength();
        constexpr unsigned kBlocks = 16384;
        const unsigned blockAlign = s->wfx.nBlockAlign;
        Block block = alignedBlock(std::size_t(kBlocks) * blockAlign);
        for (std::uint64_t first = 0; blockAlign && first < total;) {
            unsigned n = static_cast<unsigned>(std::min<std::uint64_t>(kBlocks, total - first));
            unsigned offset = 0, bytes = 0;
            if (FAILED(r.ReadAudio(static_cast<unsigned>(first), n, block.get(), kBlocks * blockAlign, &offset,
                                   &bytes)))
                return fail("ReadAudio", Morvane::convertString(r.getLastError()));
            audioBytes += bytes;
            first += n;
        }
    }
    printPass("container", path, frames, videoBytes, audioBytes, since(t0), cpuSeconds() - cpu0);
    return 0;
}

struct Plugin
{
    velloro::PluginLoader loader;
    Vl::FileReaderResource* reader = nullptr;
    Vl::Ptr<FileReadInstance> file;

    bool load(std::string& error)
    {
        vlhost::setLogEcho(false);
        if (!loader.load(velloro::PluginLoader::defaultPath(), error))
            return false;
        reader = loader.findReader("AVI FileReader");
        if (!reader)
            error = "no AVI FileReader";
        return reader != nullptr;
    }

    bool open(const char* path, std::string& error) { return load(error) && openFile(path, error); }

    bool openFile(const char* path, std::string& error)
    {
        file = reader->openFile(VlWString(Morvane::convertString(path)), FileReadInstance::eOpenForInfo);
        if (!file)
            error = "cannot open";
        return static_cast<bool>(file);
    }

    bool longGop() const { return file->metadata()->video().gopSize() >= 2; }

    // Frame (or the group that holds it) as a decoder asks for it; null on failure.
    Vl::Ptr<VideoReadRequest> request(unsigned frame)
    {
        return reader->readVideoSample(file, frame, longGop(), VideoReadRequest::eCompressed, nullptr, nullptr,
                                       true);
    }
};

// The sequential passes read as velloro play --as-fast-as-possible does: a
// few frames (or groups) in flight, and the audio asked for up to the frame
// taken or, in playback order, a little ahead of it.
velloro::PlayOptions asFastAsPossible(bool playback)
{
    velloro::PlayOptions o;
    o.paced = false;
    o.audioLead = playback ? 16384 : 0;
    return o;
}

int pluginPass(const char* path, bool playback)
{
    // The clock starts with the plug-in loaded, as it is in a running
    // editor; the file's open is counted.
    Plugin p;
    std::string error;
    if (!p.load(error))
        return fail(path, error);
    auto t0 = Clock::now();
    const double cpu0 = cpuSeconds();
    if (!p.openFile(path, error))
        return fail(path, error);
    velloro::PlayResult counts;
    if (!velloro::playFile(*p.reader, p.file, asFastAsPossible(playback), counts, error))
        return fail(path, error);
    p.reader->waitForIdle();
    printPass(playback ? "playback" : "plugin", path, counts.frames, counts.videoBytes, counts.audioBytes,
              since(t0), cpuSeconds() - cpu0);
    return 0;
}

// Resident memory now, not the peak.
long rssKb()
{
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(f);
    }
    return resident * (::sysconf(_SC_PAGESIZE) / 1024);
}

// An editor with many clips on its timeline: all of them open, a few
// played at once, each by a thread of its own as the editor's players are.
int manyPass(unsigned open, unsigned played, const std::vector<const char*>& paths)
{
    Plugin p;
    std::string error;
    if (!p.load(error))
        return fail("many", error);
    const long loaded = rssKb();
    std::vector<Vl::Ptr<FileReadInstance>> files;
    for (unsigned k = 0; k < open; ++k) {
        const char* path = paths[k % paths.size()];
        Vl::Ptr<FileReadInstance> f =
            p.reader->openFile(VlWString(Morvane::convertString(path)), FileReadInstance::eOpenForPlayback);
        if (!f)
            return fail(path, "cannot open");
        files.push_back(f);
    }
    const long opened = rssKb();
    played = std::min<unsigned>(played, open);
    std::vector<velloro::PlayResult> counts(played);
    std::vector<std::string> errors(played);
    std::vector<char> ok(played, 0);
    auto t0 = Clock::now();
    std::vector<std::thread> players;
    for (unsigned k = 0; k < played; ++k)
        players.emplace_back(
            [&, k] { ok[k] = velloro::playFile(*p.reader, files[k], asFastAsPossible(true), counts[k], errors[k]); });
    for (std::thread& t : players)
        t.join();
    p.reader->waitForIdle();
    const double seconds = since(t0);
    for (unsigned k = 0; k < played; ++k)
        if (!ok[k])
            return fail(paths[k % paths.size()], errors[k]);
    const long peak = peakRssKb();
    // Idle clips, still open: the editor's read-ahead budget takes back the
    // windows of a clip that no one reads for half a second.
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    const long idle = rssKb();
    std::uint64_t bytes = 0, frames = 0;
    for (unsigned k = 0; k < played; ++k) {
        bytes += fileSize(paths[k % paths.size()]);
        frames += counts[k].frames;
    }
    files.clear();
    const long closed = rssKb();
    std::printf("{\"pass\": \"many\", \"open\": %u, \"played\": %u, \"frames\": %llu, \"bytes\": %llu, "
                "\"seconds\": %.6f, \"mb_per_s\": %.1f, \"rss_loaded_kb\": %ld, \"rss_open_kb\": %ld, "
                "\"peak_rss_kb\": %ld, \"rss_idle_kb\": %ld, \"rss_closed_kb\": %ld}\n",
                open, played, static_cast<unsigned long long>(frames), static_cast<unsigned long long>(bytes), seconds,
                bytes / seconds / 1e6, loaded, opened, peak, idle, closed);
    return 0;
}

struct Latencies
{
    std::vector<double> us;
    double quantile(double q)
    {
        if (us.empty())
            return 0;
        std::sort(us.begin(), us.end());
        return us[std::min(us.size() - 1, static_cast<std::size_t>(q * (us.size() - 1) + 0.5))];
    }
};

// The byte range of frame f, or of the whole group that holds it.
bool byteRange(FileReader& r, unsigned f, bool group, std::uint64_t& start, std::uint64_t& end)
{
    std::vector<unsigned> frames = {f};
    if (group) {
        unsigned key = f;
        r.get_NearestKeyFrame(r.get_CurrentStream(), f, FileReader::kfBackward, key);
        std::vector<unsigned> presentation;
        frames.clear();
        if (FAILED(r.getGopAndPresentationOrder(key, frames, presentation)) || frames.empty())
            return false;
    }
    start = UINT64_MAX;
    end = 0;
    for (unsigned k : frames) {
        IndexEntry* e = nullptr;
        if (FAILED(r.get_IndexEntry(k, &e)) || !e)
            return false;
        std::uint64_t offset = e->offset;
        std::uint32_t size = e->size;
        start = std::min(start, offset);
        end = std::max(end, offset + size);
    }
    return true;
}

int scrubPass(const char* path, unsigned count, unsigned seed)
{
    Plugin p;
    std::string error;
    if (!p.open(path, error))
        return fail(path, error);
    const unsigned length = p.file->metadata()->video().lengthInFrames();
    if (length == 0)
        return fail(path, "no video");
    const bool group = p.longGop();
    std::mt19937 random(seed);
    std::vector<unsigned> frames(count);
    for (unsigned& f : frames)
        f = std::uniform_int_distribution<unsigned>(0, length - 1)(random);

    // The same ranges with pread on a file opened for direct I/O, rounded
    // out to whole 4096-byte blocks as direct I/O needs.
    FileReader r;
    if (FAILED(r.load(Morvane::convertString(path))) || FAILED(r.essenceOpen(static_cast<unsigned>(firstStream(r, true)))))
        return fail("load", Morvane::convertString(r.getLastError()));
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
    std::uint64_t largest = 0;
    for (unsigned f : frames) {
        std::uint64_t start = 0, end = 0;
        if (!byteRange(r, f, group, start, end))
            return fail(path, "no index entry for frame " + std::to_string(f));
        start -= start % kAlign;
        end = (end + kAlign - 1) / kAlign * kAlign;
        ranges.emplace_back(start, end - start);
        largest = std::max(largest, end - start);
    }
    int fd = ::open(path, O_RDONLY | O_DIRECT);
    if (fd < 0)
        return fail(path, "cannot open for direct I/O");
    Block block = alignedBlock(largest);

    // Each frame is read both ways, the plug-in first for every other one:
    // whichever comes second may find the bytes in the disk's own cache.
    Latencies plugin, raw;
    std::uint64_t bytes = 0;
    auto viaPlugin = [&](unsigned f) {
        auto t0 = Clock::now();
        Vl::Ptr<VideoReadRequest> req = p.request(f);
        Vl::Ptr<FrameBuffer> frame;
        if (req->wait() == RequestStatus::eCompleted)
            frame = req->getResult();
        plugin.us.push_back(since(t0) * 1e6);
        if (frame)
            bytes += frame->size();
        return static_cast<bool>(frame);
    };
    auto viaPread = [&](std::size_t i) {
        auto t0 = Clock::now();
        if (::pread(fd, block.get(), ranges[i].second, static_cast<off_t>(ranges[i].first)) <= 0)
            return false;
        raw.us.push_back(since(t0) * 1e6);
        return true;
    };
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const bool pluginFirst = i % 2 == 0;
        if (pluginFirst && !viaPlugin(frames[i]))
            return ::close(fd), fail(path, "frame " + std::to_string(frames[i]) + " could not be read");
        if (!viaPread(i))
            return ::close(fd), fail(path, "pread failed");
        if (!pluginFirst && !viaPlugin(frames[i]))
            return ::close(fd), fail(path, "frame " + std::to_string(frames[i]) + " could not be read");
    }
    const long pluginRss = peakRssKb();
    ::close(fd);
    std::printf("{\"pass\": \"scrub\", \"requests\": %u, \"groups\": %s, \"bytes\": %llu, "
                "\"plugin_median_us\": %.1f, \"plugin_p99_us\": %.1f, \"pread_median_us\": %.1f, "
                "\"pread_p99_us\": %.1f, \"peak_rss_kb\": %ld}\n",
                count, group ? "true" : "false", static_cast<unsigned long long>(bytes), plugin.quantile(0.5),
                plugin.quantile(0.99), raw.quantile(0.5), raw.quantile(0.99), pluginRss);
    return 0;
}

void dropPageCache()
{
    ::sync();
    if (FILE* f = std::fopen("/proc/sys/vm/drop_caches", "w")) {
        std::fputs("3", f);
        std::fclose(f);
    }
}

int openPass(const char* path, unsigned count, bool drop)
{
    Plugin p;
    std::string error;
    if (!p.load(error))
        return fail(path, error);
    Latencies times;
    std::uint32_t frames = 0;
    for (unsigned k = 0; k < count; ++k) {
        if (drop)
            dropPageCache();
        auto t0 = Clock::now();
        if (!p.openFile(path, error))
            return fail(path, error);
        frames = p.file->metadata()->video().lengthInFrames();
        times.us.push_back(since(t0) * 1e6);
        p.file = nullptr;
    }
    std::printf("{\"pass\": \"open\", \"opens\": %u, \"frames\": %u, \"median_us\": %.1f, \"max_us\": %.1f, "
                "\"peak_rss_kb\": %ld}\n",
                count, frames, times.quantile(0.5), times.quantile(1.0), peakRssKb());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::string command = argc > 1 ? argv[1] : "";
    if (command == "container" && argc == 3)
        return containerPass(argv[2]);
    if ((command == "plugin" || command == "playback") && argc == 3)
        return pluginPass(argv[2], command == "playback");
    if (command == "scrub" && argc == 5)
        return scrubPass(argv[2], static_cast<unsigned>(std::atoi(argv[3])), static_cast<unsigned>(std::atoi(argv[4])));
    if (command == "many" && argc >= 5) {
        std::vector<const char*> paths(argv + 4, argv + argc);
        return manyPass(static_cast<unsigned>(std::atoi(argv[2])), static_cast<unsigned>(std::atoi(argv[3])), paths);
    }
    if (command == "open" && (argc == 4 || (argc == 5 && std::string(argv[4]) == "drop")))
        return openPass(argv[2], static_cast<unsigned>(std::atoi(argv[3])), argc == 5);
    std::fprintf(stderr, "usage: velloro_benchread container|plugin|playback FILE | scrub FILE N SEED | open FILE N [drop] | many OPEN PLAYED FILE...\n");
    return 2;
}
