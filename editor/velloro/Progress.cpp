#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace velloro {

namespace {

constexpr int kBarWidth = 30;

std::string clock(double seconds)
{
    if (seconds < 0 || seconds > 359999)
        return "--:--";
    unsigned s = static_cast<unsigned>(seconds + 0.5);
    char text[32];
    if (s >= 3600)
        std::snprintf(text, sizeof text, "%u:%02u:%02u", s / 3600, s / 60 % 60, s % 60);
    else
        std::snprintf(text, sizeof text, "%u:%02u", s / 60, s % 60);
    return text;
}

} // namespace

Progress::Progress(std::uint64_t total, double fps, Shown shown)
    : total_(total), fps_(fps), shown_(shown), start_(std::chrono::steady_clock::now()), last_(start_)
{
}

Progress::~Progress()
{
    finish();
}

Progress::Shown Progress::forStderr(bool quiet)
{
    if (quiet)
        return Shown::nothing;
    return ::isatty(STDERR_FILENO) == 1 ? Shown::bar : Shown::summary;
}

double Progress::elapsed() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void Progress::update(std::uint64_t done)
{
    done_ = done;
    if (shown_ != Shown::bar)
        return;
    auto now = std::chrono::steady_clock::now();
    // A few redraws a second are enough for the eye.
    if (drawn_ && done < total_ && now - last_ < std::chrono::milliseconds(100))
        return;
    last_ = now;
    draw(done);
}

void Progress::draw(std::uint64_t done)
{
    const double seconds = elapsed();
    const double speed = seconds > 0 ? done / seconds : 0.0;
    const double left = speed > 0 ? (total_ - std::min(done, total_)) / speed : -1.0;
    int filled = total_ ? static_cast<int>(kBarWidth * std::min(done, total_) / total_) : kBarWidth;
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.append(static_cast<std::size_t>(kBarWidth - filled), ' ');
    std::fprintf(stderr, "\r[%s] %llu/%llu frames  %.1f fps  %.1fx  %s left ", bar.c_str(),
                 static_cast<unsigned long long>(done), static_cast<unsigned long long>(total_), speed,
                 fps_ > 0 ? speed / fps_ : 0.0, clock(left).c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void Progress::finish()
{
    if (drawn_) {
        std::fprintf(stderr, "\r%*s\r", kBarWidth + 70, "");
        std::fflush(stderr);
    }
    drawn_ = false;
}

void Progress::summary(const char* command, const std::string& path, std::uint64_t bytes)
{
    finish();
    if (shown_ == Shown::nothing)
        return;
    const double seconds = std::max(elapsed(), 1e-6);
    const double material = fps_ > 0 ? done_ / fps_ : 0.0;
    std::printf("velloro %s: wrote %s: %llu frames (%.1f s), %.1f MB in %.2f s: %.1fx real time, %.1f MB/s\n", command,
                path.c_str(), static_cast<unsigned long long>(done_), material, bytes / 1e6, seconds,
                material / seconds, bytes / 1e6 / seconds);
    std::fflush(stdout);
}

} // namespace velloro
