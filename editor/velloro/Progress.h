#pragma once
// A one-line progress bar on standard error: frames, speed and time left.
#include <chrono>
#include <cstdint>

namespace velloro {

class Progress
{
public:
    // Draws only when enabled; forTerminal() enables it when standard error is a terminal.
    Progress(std::uint64_t total, bool enabled);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    static bool forTerminal();

    void update(std::uint64_t done);
    // Clears the line.
    void finish();

private:
    void draw(std::uint64_t done);

    std::uint64_t total_;
    bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point last_;
};

} // namespace velloro
