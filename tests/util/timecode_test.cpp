#include "util/pellistimecode.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "common/AssertCapture.h"

using namespace Morvane;
using testutil::captureStdout;

namespace {

CTimeCodeEx at(VideoStandard vs, std::uint64_t frames, bool drop)
{
    CTimeCodeEx tc(vs);
    tc.setDropFrame(drop);
    tc.setDuration(frames, false);
    return tc;
}

TEST(TimecodeStandards, EveryRowHitsACanonicalRateAndInvalidOnesCountNothing)
{
    // Drop-frame arithmetic keys on the canonical rates: every row must hit one.
    for (int n = 1; n <= 30; ++n) {
        const auto& r = getVideoStandard(static_cast<VideoStandard>(n));
        EXPECT_EQ(r.number, n);
        EXPECT_EQ(CTimeCodeEx(static_cast<VideoStandard>(n)).getTimecodeRate(),
            CTimeCodeEx(double(r.rateNum) / r.rateDen).getTimecodeRate()) << n;
    }
    for (int n : {0, 31}) {
        const auto& r = getVideoStandard(static_cast<VideoStandard>(n));
        EXPECT_EQ(std::tuple(std::wstring(r.name), r.rateNum, r.rateDen), std::tuple(std::wstring(L"Invalid Std"), 0u, 0u));
        CTimeCodeEx tc(static_cast<VideoStandard>(n));
        EXPECT_EQ(tc.getTimecodeRate(), 0.0f);
        EXPECT_FALSE(tc.isValid());
    }
}

TEST(TimecodeRate, SnapsNearCanonicalRatesAndAbsurdOnesStaySafe)
{
    const struct { double in; float out; } cases[] = {
        {0.5, 25.0f}, {23.99995, 24.0f}, {23.98, 23.976025f}, {23.99, 23.99f}, {25.0, 25.0f},
        {30.000005, 30.0f}, {29.97, 29.97003f}, {29.98, 29.98f}, {59.999999, 60.0f}, {59.94, 59.94006f},
        {12.5, 12.5f}, {std::nan(""), 25.0f},
    };
    for (const auto& c : cases) {
        float rate = 0;
        std::string out = captureStdout([&] { rate = CTimeCodeEx(c.in).getTimecodeRate(); });
        EXPECT_EQ(rate, c.out) << c.in;
        EXPECT_EQ(out, !(c.in >= 1) ? "assertion failed false at util/pellistimecode line 123\n" : "") << c.in;
    }
    // Nothing counts at absurd rates, but nothing may overflow either.
    for (double rate : {1e300, 3e38, 1e12}) {
        CTimeCodeEx tc(rate);
        captureStdout([&] {
            tc.setFromSystemTime();
            tc.fromSeconds(1e30);
            tc.toFrameCount(4000000000u, 4000000000u, 4000000000u, 4000000000u, 1);
            tc.toStdString(true);
        });
        EXPECT_LT(tc.getFrameDuration(), tc.getMaxFrames()) << rate;
    }
}

// Every count of the day, in each counting mode, gives a label the mode can
// show, each label once, and the label reads back as the same count.
TEST(TimecodeDay, EveryFrameRoundTripsInEveryMode)
{
    const struct { const char* name; VideoStandard vs; bool drop; } cases[] = {
        {"Ntsc_DF", VS_Ntsc, true}, {"p5994_DF", VS_1080p5994, true}, {"Ntsc_NDF", VS_Ntsc, false},
        {"p5994_NDF", VS_720p5994, false}, {"Pal", VS_Pal, false}, {"p2398", VS_1080psf2398, false},
        {"p50", VS_1080p50, false}, {"p60", VS_720p60, false},
    };
    for (const auto& c : cases) {
        CTimeCodeEx tc = at(c.vs, 0, c.drop);
        const std::uint64_t fps = static_cast<std::uint64_t>(std::ceil(tc.getTimecodeRate()));
        const unsigned dropped = !c.drop ? 0 : fps == 30 ? 2 : 4;
        const std::uint64_t max = tc.getMaxFrames();
        EXPECT_EQ(max, fps * 86400 - 1296 * dropped) << c.name;

        std::vector<unsigned char> seen(fps * 86400, 0);
        std::uint64_t failures = 0, firstFailure = 0;
        for (std::uint64_t n = 0; n < max; ++n) {
            tc.setDuration(n, false);
            unsigned h = 99, m = 99, s = 99, f = 99;
            bool ok = tc.toHHMMSSFF(h, m, s, f, true) && h < 24 && m < 60 && s < 60 && f < fps
                && !(dropped && m % 10 != 0 && s == 0 && f < dropped);
            ok = ok && !seen[((h * 60ull + m) * 60 + s) * fps + f]++ && tc.toFrameCount(h, m, s, f, 1) == n;
            if (!ok && failures++ == 0)
                firstFailure = n;
        }
        EXPECT_EQ(failures, 0u) << c.name << ": first at count " << firstFailure;
    }
}

// A count past midnight, as a start timecode may give, is refused and
// leaves the count as it was.
TEST(TimecodeLimits, CountPastMidnightIsRefused)
{
    CTimeCodeEx tc = at(VS_Pal, 5, false);
    EXPECT_EQ(captureStdout([&] { EXPECT_FALSE(tc.setDuration(2160000, false)); }),
        "assertion failed false at util/pellistimecode line 1108\n");
    EXPECT_EQ(tc.getFrameDuration(), 5u);
}

} // namespace
