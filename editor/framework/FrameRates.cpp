#include "host/FrameRates.h"

#include <cmath>
#include <iterator>

namespace Vl {

namespace {

struct RateRow
{
    FrameRate rate;
    double fps;
};

constexpr RateRow kRates[] = {
    {eFrameRate23_976, 24000.0 / 1001.0}, {eFrameRate24, 24.0}, {eFrameRate25, 25.0},
    {eFrameRate29_97, 30000.0 / 1001.0},  {eFrameRate30, 30.0}, {eFrameRate50, 50.0},
    {eFrameRate59_94, 60000.0 / 1001.0},  {eFrameRate60, 60.0},
};

} // namespace

double getFramesPerSecond(FrameRate rate)
{
    for (const auto& row : kRates)
        if (row.rate == rate)
            return row.fps;
    return 0.0;
}

FrameRate getEquivalentVlFrameRate(double fps)
{
    // Rates stored as rounded integers (2997/100, 29.97) still match.
    for (const auto& row : kRates)
        if (std::fabs(row.fps - fps) < 0.005)
            return row.rate;
    return eFrameRateNone;
}

} // namespace Vl
