#include "Progress.h"

#include <unistd.h>

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

Progress::Progress(std::uint64_t total, bool enabled)
    : total_(total), enabled_(enabled), start_(std::chrono::steady_clock::now()), last_(start_)
{
}

Progress::~Progress()
{
    finish();
}

bool Progress::forTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

void Progress::update(std::uint64_t done)
{
    if (!enabled_)
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
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    double speed = elapsed > 0 ? done / elapsed : 0.0;
    double left = speed > 0 ? (total_ - std::min(done, total_)) / speed : -1.0;
    int filled = total_ ? static_cast<int>(kBarWidth * std::min(done, total_) / total_) : kBarWidth;
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.append(static_cast<std::size_t>(kBarWidth - filled), ' ');
    std::fprintf(stderr, "\r[%s] %llu/%llu frames  %.1f fps  %s left ", bar.c_str(),
                 static_cast<unsigned long long>(done), static_cast<unsigned long long>(total_), speed,
                 clock(left).c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void Progress::finish()
{
    if (enabled_ && drawn_) {
        std::fprintf(stderr, "\r%*s\r", kBarWidth + 60, "");
        std::fflush(stderr);
    }
    drawn_ = false;
}

} // namespace velloro
