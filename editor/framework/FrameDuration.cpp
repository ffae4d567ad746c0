#include "host/FrameDuration.h"

#include <cmath>

#include "host/FrameRates.h"

namespace Vl {

double getFrameDuration(FrameRate rate)
{
    switch (rate) {
    case eFrameRate23_976: return 1001.0 / 24000.0;
    case eFrameRate29_97: return 1001.0 / 30000.0;
    case eFrameRate59_94: return 1001.0 / 60000.0;
    default: break;
    }
    double fps = getFramesPerSecond(rate);
    return fps > 0.0 ? 1.0 / fps : 0.0;
}

} // namespace Vl

bool toRational(double value, std::uint32_t& num, std::uint32_t& den)
{
    num = 0;
    den = 1;
    if (!std::isfinite(value) || value < 0.0 || value > 4294967295.0)
        return false;
    // Continued fraction convergents until one is exact to double precision
    // or the denominator would pass the limit.
    constexpr std::uint64_t kMaxDen = 1000000;
    std::uint64_t h0 = 0, h1 = 1, k0 = 1, k1 = 0;
    double x = value;
    for (int i = 0; i < 64; ++i) {
        double a = std::floor(x);
        if (a > 4294967295.0)
            break;
        std::uint64_t ai = static_cast<std::uint64_t>(a);
        std::uint64_t h2 = ai * h1 + h0;
        std::uint64_t k2 = ai * k1 + k0;
        if (k2 > kMaxDen || h2 > 0xFFFFFFFFu)
            break;
        h0 = h1, h1 = h2, k0 = k1, k1 = k2;
        if (std::fabs(double(h1) / double(k1) - value) <= value * 1e-12)
            break;
        double frac = x - a;
        if (frac < 1e-12)
            break;
        x = 1.0 / frac;
    }
    if (k1 == 0)
        return false;
    num = static_cast<std::uint32_t>(h1);
    den = static_cast<std::uint32_t>(k1);
    return true;
}
