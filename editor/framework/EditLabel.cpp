#include "host/EditLabel.h"

#include <cmath>
#include <cstdio>

#include "host/FrameRates.h"

std::string edit_label::text() const
{
    if (!valid_)
        return {};
    double fps = Vl::getFramesPerSecond(rate_);
    if (fps <= 0.0)
        return {};
    // Labels count in whole nominal frames (30 for 29.97); drop-frame labels
    // skip two frame numbers a minute except every tenth minute.
    auto nominal = static_cast<std::uint64_t>(std::lround(fps));
    std::uint64_t n = frames_;
    if (dropFrame_ && nominal == 30) {
        std::uint64_t tenMinutes = 17982;
        std::uint64_t d = n / tenMinutes;
        std::uint64_t m = n % tenMinutes;
        n += 18 * d + (m > 2 ? 2 * ((m - 2) / 1798) : 0);
    }
    std::uint64_t ff = n % nominal;
    std::uint64_t secs = n / nominal;
    char buf[48];
    std::snprintf(buf, sizeof buf, "%02llu:%02llu:%02llu%c%02llu", static_cast<unsigned long long>(secs / 3600),
                  static_cast<unsigned long long>(secs / 60 % 60), static_cast<unsigned long long>(secs % 60),
                  dropFrame_ ? ';' : ':', static_cast<unsigned long long>(ff));
    return buf;
}

edit_label editLabFrom(std::uint32_t frames, std::uint32_t scanMode, Vl::FrameRate rate, bool dropFrame)
{
    return edit_label(frames, scanMode, rate, dropFrame);
}
