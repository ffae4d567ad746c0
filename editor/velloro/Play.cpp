#include "Play.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <deque>
#include <nlohmann/json.hpp>
#include <thread>

#include "Interrupt.h"
#include "PluginLoader.h"
#include "PluginRead.h"
#include "host/FrameRates.h"
#include "util/stringUtils.h"

namespace velloro {

namespace {

// Requests (frames or groups) in flight per file: the file lock serialises
// the reads, so a few keep the disk busy, and the player holds every
// finished one until it is shown. Paced, it is also the lead: a frame is
// asked for this many frames' time before it is due (kPlayReport says so).
constexpr unsigned kWindow = 8;
// Audio requests in flight at most, and their size in samples.
constexpr std::size_t kAudioInFlight = 16;
constexpr std::uint32_t kAudioRequest = 16384;
// A file with sound alone is paced in steps of this many per second.
constexpr double kAudioTicks = 25.0;

double secondsOf(PlayClock::duration d)
{
    return std::chrono::duration<double>(d).count();
}

PlayClock::duration durationOf(double seconds)
{
    return std::chrono::duration_cast<PlayClock::duration>(std::chrono::duration<double>(seconds));
}

bool finished(RequestStatus::eFileReqStatus s)
{
    return s == RequestStatus::eCompleted || s == RequestStatus::eFailed || s == RequestStatus::eCancelled;
}

// One request on its way: when it was answered, and its time in flight on
// the clocks. Told by the reader's callback, or by the player when the
// request was answered before the callback was in place; the first wins.
class Pending
{
public:
    Pending(std::shared_ptr<BusyClock> file, std::shared_ptr<BusyClock> all)
        : file_(std::move(file)), all_(std::move(all))
    {
        file_->begin();
        if (all_)
            all_->begin();
    }

    void answered()
    {
        std::int64_t none = 0;
        if (!at_.compare_exchange_strong(none, PlayClock::now().time_since_epoch().count()))
            return;
        file_->end();
        if (all_)
            all_->end();
    }

    PlayClock::time_point at() const { return PlayClock::time_point(PlayClock::duration(at_.load())); }

private:
    std::shared_ptr<BusyClock> file_, all_;
    std::atomic<std::int64_t> at_{0};
};

struct Unit
{
    Vl::Ptr<VideoReadRequest> request;
    std::shared_ptr<Pending> pending;
    unsigned first = 0; // the frame asked for
};

struct AudioAsk
{
    Vl::Ptr<AudioReadRequest> request;
    std::shared_ptr<Pending> pending;
};

} // namespace

void BusyClock::begin()
{
    std::lock_guard lock(mutex_);
    if (inFlight_++ == 0)
        since_ = PlayClock::now();
}

void BusyClock::end()
{
    std::lock_guard lock(mutex_);
    if (inFlight_ && --inFlight_ == 0)
        busy_ += PlayClock::now() - since_;
}

double BusyClock::seconds() const
{
    std::lock_guard lock(mutex_);
    return secondsOf(busy_ + (inFlight_ ? PlayClock::now() - since_ : PlayClock::duration{}));
}

bool playFile(Vl::FileReaderResource& reader, const Vl::Ptr<FileReadInstance>& file, const PlayOptions& options,
              PlayResult& result, std::string& error)
{
    const ShotVideoMetadata& v = file->metadata()->video();
    const Aud::Metadata& a = file->metadata()->audio();
    const PlayClock::time_point start = options.start == PlayClock::time_point{} ? PlayClock::now() : options.start;
    const bool paced = options.paced;
    auto stopped = [&] { return options.stopped && options.stopped(); };
    auto fileClock = std::make_shared<BusyClock>();
    const bool longGop = v.gopSize() >= 2;
    const std::uint64_t length = v.videoTrackCount() ? v.lengthInFrames() : 0;
    const double fps = length && Vl::getFramesPerSecond(v.frameRate()) > 0.0 ? Vl::getFramesPerSecond(v.frameRate())
                                                                            : kAudioTicks;
    // The frames that start within the first options.seconds.
    const std::uint64_t limit =
        options.seconds > 0.0
            ? std::min(length, static_cast<std::uint64_t>(std::ceil(options.seconds * fps - 1e-9)))
            : length;

    // The sound, its share of the pictures played (or of options.seconds).
    const std::uint64_t audioTotal = a.audioStreams() ? a.lengthInSamples() : 0;
    std::uint64_t audioEnd = audioTotal;
    if (length)
        audioEnd = audioTotal * limit / length;
    else if (options.seconds > 0.0)
        audioEnd = std::min(audioTotal, static_cast<std::uint64_t>(std::ceil(options.seconds * a.samplesPerSec())));
    std::vector<std::uint64_t> audioAt(a.audioStreams(), 0);
    std::uint64_t audioSamples = 0; // answered, all streams
    // Audio requests stay in flight beside the frames' and are counted as
    // they are answered (in order, as a player takes them); the frames
    // never wait for them. A request refused or answered empty is the end of
    // the sound, which may be shorter than the pictures.
    std::deque<AudioAsk> audioInFlight;
    bool audioEnded = false;
    auto collect = [&](bool wait) {
        while (!audioInFlight.empty()) {
            AudioAsk ask = audioInFlight.front();
            if (!wait && !finished(ask.request->getStatus()))
                return;
            audioInFlight.pop_front();
            const bool completed = ask.request->wait() == RequestStatus::eCompleted;
            ask.pending->answered();
            const Aud::StreamBufferList& got = ask.request->result();
            if (!completed || got.samples() == 0) {
                audioEnded = true;
                continue;
            }
            audioSamples += got.samples();
            result.audioBytes += std::uint64_t(got.samples()) * got.bytesPerSample() * got.channels();
        }
    };
    // Each stream's sound up to sample upTo, in whole requests.
    auto audioUpTo = [&](std::uint64_t upTo) {
        upTo = std::min(upTo, audioEnd);
        for (std::uint32_t k = 0; k < a.audioStreams() && !audioEnded; ++k) {
            for (std::uint64_t& at = audioAt[k]; at < upTo && !audioEnded && audioInFlight.size() < kAudioInFlight;) {
                const auto n = static_cast<std::uint32_t>(std::min<std::uint64_t>(kAudioRequest, audioEnd - at));
                auto pending = std::make_shared<Pending>(fileClock, options.allFiles);
                Vl::Ptr<AudioReadRequest> r(new AudioReadRequest(file, k, static_cast<std::uint32_t>(at), n));
                r->setCallback([pending](AudioReadRequest&, RequestStatus::eFileReqStatus) { pending->answered(); });
                reader.readAudioSample(r, true);
                audioInFlight.push_back({r, pending});
                at += n;
                collect(false);
            }
        }
    };
    auto audioLeft = [&] {
        return !audioEnded &&
               std::any_of(audioAt.begin(), audioAt.end(), [&](std::uint64_t at) { return at < audioEnd; });
    };

    // Frame f is asked for at start + f / fps and due the window's lead later.
    const PlayClock::duration lead = durationOf(kWindow / fps);
    auto askAt = [&](std::uint64_t f) { return start + durationOf(double(f) / fps); };
    auto dueAt = [&](std::uint64_t f) { return askAt(f) + lead; };
    auto ask = [&](unsigned frame) {
        auto pending = std::make_shared<Pending>(fileClock, options.allFiles);
        Vl::Ptr<VideoReadRequest> r =
            reader.readVideoSample(file, frame, longGop, VideoReadRequest::eCompressed, nullptr, nullptr, true);
        r->setCallback([pending](VideoReadRequest&, RequestStatus::eFileReqStatus) { pending->answered(); });
        // Answered before the callback was set: it may never be called.
        if (finished(r->getStatus()))
            pending->answered();
        return Unit{r, pending, frame};
    };

    std::deque<Unit> inFlight;
    auto finish = [&] {
        for (Unit& u : inFlight) {
            u.request->wait();
            u.pending->answered();
        }
        inFlight.clear();
        collect(true);
        result.busy = fileClock->seconds();
        result.elapsed = secondsOf(PlayClock::now() - start);
        result.material = length ? result.frames / fps
                                 : (a.audioStreams() && a.samplesPerSec()
                                        ? double(audioSamples) / a.audioStreams() / a.samplesPerSec()
                                        : 0.0);
    };

    // Long-GOP material is asked for a group at a time: the first answer
    // tells how long the groups are.
    unsigned step = 1;
    unsigned next = 0;
    if (limit && longGop) {
        inFlight.push_back(ask(0));
        inFlight.front().request->wait();
        const Vl::Ptr<IndexInfo>& group = inFlight.front().request->getIndexInfo();
        if (group && group->getNumGopFrames())
            step = group->getNumGopFrames();
        next = step;
    }
    while (next < limit || !inFlight.empty()) {
        if (stopped()) {
            result.stopped = true;
            break;
        }
        while (next < limit && inFlight.size() < kWindow && (!paced || PlayClock::now() >= askAt(next))) {
            inFlight.push_back(ask(next));
            next += step;
        }
        if (paced) {
            // Until the first in line is due, ask for what comes due meanwhile.
            PlayClock::time_point wake = PlayClock::time_point::max();
            if (!inFlight.empty())
                wake = dueAt(inFlight.front().first);
            if (next < limit && inFlight.size() < kWindow)
                wake = std::min(wake, askAt(next));
            if (PlayClock::now() < wake) {
                std::this_thread::sleep_until(wake);
                continue;
            }
            if (inFlight.empty())
                continue;
        }
        Unit u = inFlight.front();
        inFlight.pop_front();
        Vl::Ptr<FrameBuffer> frame;
        if (u.request->wait() == RequestStatus::eCompleted)
            frame = u.request->getResult();
        u.pending->answered();
        if (!frame) {
            error = "frame " + std::to_string(u.first) + " could not be read";
            finish();
            return false;
        }
        const Vl::Ptr<IndexInfo>& group = u.request->getIndexInfo();
        const unsigned frames = group && group->getNumGopFrames() ? group->getNumGopFrames() : 1;
        const std::uint64_t shown = std::min<std::uint64_t>(u.first + frames, limit) - u.first;
        if (paced) {
            const PlayClock::time_point answered = u.pending->at();
            for (std::uint64_t k = 0; k < shown; ++k)
                result.late += answered > dueAt(u.first + k);
            result.worstLate = std::max(result.worstLate, secondsOf(answered - dueAt(u.first)));
        }
        result.frames += shown;
        result.videoBytes += frame->size();
        audioUpTo(audioTotal * result.frames / length + options.audioLead);
    }
    // Sound alone is asked for by the clock, a little ahead of its time;
    // what is left once its time is over is read below.
    if (!length && paced) {
        for (std::uint64_t tick = 0; audioLeft() && tick / kAudioTicks * a.samplesPerSec() < audioEnd; ++tick) {
            if (stopped()) {
                result.stopped = true;
                break;
            }
            std::this_thread::sleep_until(start + durationOf(tick / kAudioTicks));
            audioUpTo(std::uint64_t(a.samplesPerSec() * (tick + 1) / kAudioTicks) + options.audioLead);
            collect(false);
        }
    }
    while (!result.stopped && audioLeft()) {
        audioUpTo(audioEnd);
        collect(true);
    }
    finish();
    return true;
}

const char* const kPlayReport =
    "One line per FILE and a total line: frames played, frames late (answered after their due time,\n"
    "start + n / fps, where start is 8 frames' time after the first frame is asked for; none with\n"
    "--as-fast-as-possible), the worst lateness, seconds of material, headroom, MB read (frames and sound\n"
    "as handed over) and MB/s over the time played.\n"
    "Headroom is how many times faster than real time the reads ran: the seconds of material played over\n"
    "the seconds during which a read of the file was in flight (asked for and not yet answered). Playing\n"
    "in real time, the reads are asked for a little ahead and are in flight only as long as they take, so\n"
    "4x says they took a quarter of the material's time and near 1x that the reader barely kept up; as\n"
    "fast as possible a read is always in flight, so it is the speed of the whole run. The total's is the\n"
    "longest file's material over the time any read of any file was in flight.";

namespace {

struct Player
{
    std::string path;
    Vl::Ptr<FileReadInstance> file;
    PlayResult result;
    std::string error;
    bool ok = true;
};

std::string mb(std::uint64_t bytes)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MB", bytes / 1e6);
    return text;
}

std::string line(const char* name, std::uint64_t frames, std::uint64_t late, double worst, double material,
                 const char* materialWord, double headroom, std::uint64_t bytes, double elapsed)
{
    char text[512];
    char room[32] = "-";
    if (headroom > 0.0)
        std::snprintf(room, sizeof room, "%.1fx", headroom);
    std::snprintf(text, sizeof text,
                  "%s: %llu frames, %llu late (worst %.1f ms), %.2f s of %s, headroom %s, %s, %.1f MB/s\n", name,
                  static_cast<unsigned long long>(frames), static_cast<unsigned long long>(late), worst * 1e3,
                  material, materialWord, room, mb(bytes).c_str(), elapsed > 0.0 ? bytes / 1e6 / elapsed : 0.0);
    return text;
}

nlohmann::ordered_json figures(std::uint64_t frames, std::uint64_t late, double worst, double material, double busy,
                               double headroom, std::uint64_t bytes, double elapsed)
{
    nlohmann::ordered_json j;
    j["frames"] = frames;
    j["frames_late"] = late;
    j["worst_late_ms"] = worst * 1e3;
    j["material_seconds"] = material;
    j["busy_seconds"] = busy;
    j["headroom"] = headroom > 0.0 ? nlohmann::ordered_json(headroom) : nlohmann::ordered_json(nullptr);
    j["mb"] = bytes / 1e6;
    j["seconds"] = elapsed;
    j["mb_per_s"] = elapsed > 0.0 ? bytes / 1e6 / elapsed : 0.0;
    return j;
}

std::string report(const std::vector<Player>& players, double allBusy, bool paced, bool json)
{
    std::uint64_t frames = 0, late = 0, bytes = 0;
    double worst = 0.0, longest = 0.0, elapsed = 0.0;
    std::string text;
    nlohmann::ordered_json files = nlohmann::ordered_json::array();
    for (const Player& p : players) {
        const PlayResult& r = p.result;
        const std::uint64_t read = r.videoBytes + r.audioBytes;
        frames += r.frames;
        late += r.late;
        bytes += read;
        worst = std::max(worst, r.worstLate);
        longest = std::max(longest, r.material);
        elapsed = std::max(elapsed, r.elapsed);
        text += line(p.path.c_str(), r.frames, r.late, r.worstLate, r.material, "material", r.headroom(), read,
                     r.elapsed);
        nlohmann::ordered_json f;
        f["file"] = p.path;
        f.update(figures(r.frames, r.late, r.worstLate, r.material, r.busy, r.headroom(), read, r.elapsed));
        if (!p.ok)
            f["error"] = p.error;
        files.push_back(f);
    }
    const double headroom = allBusy > 0.0 ? longest / allBusy : 0.0;
    const std::string total =
        "total (" + std::to_string(players.size()) + (players.size() == 1 ? " file)" : " files)");
    text += line(total.c_str(), frames, late, worst, longest, "playback", headroom, bytes, elapsed);
    if (!json)
        return text;
    nlohmann::ordered_json all;
    all["paced"] = paced;
    all["files"] = files;
    all["total"] = figures(frames, late, worst, longest, allBusy, headroom, bytes, elapsed);
    all["total"]["files"] = players.size();
    return all.dump(4) + "\n";
}

} // namespace

int playCommand(const std::vector<std::string>& paths, double seconds, bool asFastAsPossible, bool json)
{
    InterruptGuard guard;
    PluginLoader loader;
    if (!loader.loadForCommand("play", paths.front().c_str()))
        return 1;
    Vl::FileReaderResource* reader = loader.findReader("AVI FileReader");
    if (!reader) {
        std::fprintf(stderr, "velloro play: %s: the plug-in has no \"AVI FileReader\"\n", paths.front().c_str());
        return 1;
    }
    // What the plug-in prints goes to standard error while the files play:
    // standard output carries only the report, which scripts parse.
    std::fflush(stdout);
    const int answer = ::dup(STDOUT_FILENO);
    if (answer >= 0)
        ::dup2(STDERR_FILENO, STDOUT_FILENO);
    auto restoreStdout = [answer] {
        std::fflush(stdout);
        if (answer >= 0) {
            ::dup2(answer, STDOUT_FILENO);
            ::close(answer);
        }
    };

    std::vector<Player> players(paths.size());
    for (std::size_t k = 0; k < paths.size(); ++k) {
        players[k].path = paths[k];
        std::string error;
        players[k].file = openThrough(*reader, Morvane::convertString(paths[k]), error);
        if (!players[k].file) {
            restoreStdout();
            commandError("play", paths[k].c_str(), error);
            return 1;
        }
    }

    // One player thread per file, as the editor's are, on one clock; a
    // failure or a signal stops them all after the requests in flight.
    std::atomic<bool> failed{false};
    PlayOptions options;
    options.paced = !asFastAsPossible;
    options.seconds = seconds;
    options.allFiles = std::make_shared<BusyClock>();
    options.stopped = [&failed] { return failed.load() || interruptSignal() != 0; };
    options.start = PlayClock::now();
    std::vector<std::thread> threads;
    for (Player& p : players)
        threads.emplace_back([&, player = &p] {
            player->ok = playFile(*reader, player->file, options, player->result, player->error);
            if (!player->ok)
                failed = true;
        });
    for (std::thread& t : threads)
        t.join();
    reader->waitForIdle();
    const double allBusy = options.allFiles->seconds();
    for (Player& p : players)
        p.file = nullptr;
    restoreStdout();

    std::fputs(report(players, allBusy, options.paced, json).c_str(), stdout);
    std::fflush(stdout);
    int status = 0;
    for (const Player& p : players)
        if (!p.ok) {
            commandError("play", p.path.c_str(), p.error);
            status = 1;
        }
    if (status == 0 && interruptSignal()) {
        std::fprintf(stderr, "velloro play: stopped (interrupted)\n");
        status = 128 + interruptSignal();
    }
    return status;
}

} // namespace velloro
