#pragma once
// What a long command tells its user: on a terminal a one-line bar on
// standard error (frames, speed as times real time, time left), and when the
// work is done one summary line on standard output that stays.
#include <chrono>
#include <cstdint>
#include <string>

namespace velloro {

class Progress
{
public:
    enum class Shown { bar, summary, nothing };

    // total frames at fps frames per second of material.
    Progress(std::uint64_t total, double fps, Shown shown);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // The bar when standard error is a terminal, else the summary alone;
    // nothing when quiet.
    static Shown forStderr(bool quiet);

    void update(std::uint64_t done);
    // Clears the bar.
    void finish();
    // "velloro render: wrote OUT: 60 frames (2.0 s), 12.3 MB in 0.41 s:
    // 4.9x real time, 30.1 MB/s".
    void summary(const char* command, const std::string& path, std::uint64_t bytes);

private:
    void draw(std::uint64_t done);
    double elapsed() const;

    std::uint64_t total_;
    double fps_;
    Shown shown_;
    std::uint64_t done_ = 0;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point last_;
};

} // namespace velloro
