#pragma once
// Playing a file through the plug-in's reader as the editor's players do:
// frames (or whole groups of long-GOP material) asked for a few ahead of
// the one shown, in playback order, with the sound asked for a little ahead
// of the pictures. velloro play and the read benchmarks both play this way.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/FileReaderResource.h"

namespace velloro {

using PlayClock = std::chrono::steady_clock;

// The time during which at least one of a set of read requests was in
// flight (asked for and not yet answered): how long the reads kept the
// reader busy, whatever their number. Shared by the reader's worker
// threads, which answer the requests.
class BusyClock
{
public:
    void begin();
    void end();
    double seconds() const;

private:
    mutable std::mutex mutex_;
    unsigned inFlight_ = 0;
    PlayClock::time_point since_;
    PlayClock::duration busy_{};
};

struct PlayOptions
{
    // Each frame due at its time (start + the window's lead + n / fps) and
    // asked for the window's lead before; false: asked for as fast as the
    // window allows, and none is late.
    bool paced = true;
    // Seconds of material to play from the start; 0 for all of it.
    double seconds = 0.0;
    // Samples of sound asked for ahead of the frame shown.
    std::uint32_t audioLead = 16384;
    // When the clock starts; the default is the call. Players of several
    // files at once share one.
    PlayClock::time_point start{};
    // Asked between frames: true stops the playing (the result says so).
    std::function<bool()> stopped;
    // Also counts the time of this file's requests, when several files play.
    std::shared_ptr<BusyClock> allFiles;
};

struct PlayResult
{
    std::uint64_t frames = 0;      // video frames played
    std::uint64_t late = 0;        // of them, those whose request was answered after their due time
    double worstLate = 0.0;        // seconds; 0 when none was late
    double material = 0.0;         // seconds of material played
    double busy = 0.0;             // seconds during which a request of the file was in flight
    double elapsed = 0.0;          // seconds from the start to the last answer
    std::uint64_t videoBytes = 0;
    std::uint64_t audioBytes = 0;
    bool stopped = false;          // options.stopped ended it early

    // How many times faster than real time the reads ran: material / busy
    // (0 when nothing was read).
    double headroom() const { return busy > 0.0 ? material / busy : 0.0; }
};

// Plays file from its first frame; false with "frame N could not be read"
// in error when a frame fails (the counts hold what was played before it).
// Sound that ends before the pictures is not a failure: its reads stop.
bool playFile(Vl::FileReaderResource& reader, const Vl::Ptr<FileReadInstance>& file, const PlayOptions& options,
              PlayResult& result, std::string& error);

// velloro play: the files played at once, one thread each; seconds 0 plays
// each to its end. Exit status 0, 1 when a file fails, 128 + the signal
// when interrupted.
int playCommand(const std::vector<std::string>& paths, double seconds, bool asFastAsPossible, bool json);

// What --help says of the report.
extern const char* const kPlayReport;

} // namespace velloro
