#include "util/pellistimecode.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "common/AssertCapture.h"

using namespace Morvane;

namespace {

template <class F>
std::string captureStderr(F&& f)
{
    testing::internal::CaptureStderr();
    f();
    return testing::internal::GetCapturedStderr();
}

CTimeCodeEx at(VideoStandard vs, std::uint64_t frames, bool drop)
{
    CTimeCodeEx tc(vs);
    tc.setDropFrame(drop);
    tc.setDuration(frames, false);
    return tc;
}

const std::uint64_t kUnset = CTimeCodeEx::kUnset;

TEST(TimecodeStandards, RowsAsListedAndInvalidNumbers)
{
    using Row = std::tuple<std::wstring, unsigned, unsigned, unsigned, unsigned, unsigned, unsigned, unsigned long,
        bool, unsigned, unsigned>;
    const struct { int number; Row row; } cases[] = {
        {0, {L"Invalid Std", 0, 0, 0, 0, 0, 0, 0x00040003, false, 0, 0}},
        {31, {L"Invalid Std", 0, 0, 0, 0, 0, 0, 0x00040003, false, 0, 0}},
        {2, {L"Ntsc", 720, 486, 30000, 1001, 1001000, 6, 0x00040003, true, 30, 1}},
        {4, {L"720p@23.98", 1280, 720, 24000, 1001, 1251250, 6, 0x00100009, false, 19, 2}},
        {26, {L"4k@23.98", 4096, 2160, 24000, 1001, 2502500, 6, 0x00100009, false, 0, 2}},
        {25, {L"QFHD@59.94", 3840, 2160, 60000, 1001, 1001000, 6, 0x00100009, true, 0, 4}},
        {30, {L"4k@59.94", 4096, 2160, 60000, 1001, 1001000, 6, 0x00100009, true, 40, 4}},
        {16, {L"1080psf@30", 1920, 1080, 30, 1, 2000000, 6, 0x00100009, false, 30, 7}},
    };
    for (const auto& c : cases) {
        const auto& r = getVideoStandard(static_cast<VideoStandard>(c.number));
        EXPECT_EQ(Row(r.name, r.width, r.height, r.rateNum, r.rateDen, r.periodNum, r.periodDen, r.aspect,
                      r.dropFrame, r.format, r.rateCode), c.row) << c.number;
    }
    // The invalid row counts nothing.
    for (int n : {0, 31}) {
        CTimeCodeEx tc(static_cast<VideoStandard>(n));
        EXPECT_EQ(tc.getTimecodeRate(), 0.0f);
        EXPECT_FALSE(tc.isValid());
    }
    // Drop-frame arithmetic keys on the canonical rates: every row must hit one.
    for (int n = 1; n <= 30; ++n) {
        const auto& r = getVideoStandard(static_cast<VideoStandard>(n));
        EXPECT_EQ(r.number, n);
        EXPECT_EQ(CTimeCodeEx(static_cast<VideoStandard>(n)).getTimecodeRate(),
            CTimeCodeEx(double(r.rateNum) / r.rateDen).getTimecodeRate()) << n;
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
        std::string out = testutil::captureStdout([&] { rate = CTimeCodeEx(c.in).getTimecodeRate(); });
        EXPECT_EQ(rate, c.out) << c.in;
        EXPECT_EQ(out, !(c.in >= 1) ? "assertion failed false at util/pellistimecode line 123\n" : "") << c.in;
    }
    // Nothing counts at absurd rates, but nothing may overflow either.
    for (double rate : {1e300, 3e38, 1e12}) {
        CTimeCodeEx tc(rate);
        testutil::captureStdout([&] {
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

TEST(TimecodeDropFrame, LabelsToCounts)
{
    const struct { VideoStandard vs; bool drop; int dropAware; const wchar_t* label; std::uint64_t count; } cases[] = {
        // Skipped labels read as the frame before them.
        {VS_Ntsc, true, 1, L"00:01:00;00", 1798}, {VS_Ntsc, true, 1, L"00:00:59;29", 1799},
        {VS_Ntsc, true, 1, L"00:01:00;02", 1800}, {VS_Ntsc, true, 1, L"00:10:00;00", 17982},
        {VS_Ntsc, true, 1, L"23:59:59;29", 2589407}, {VS_1080p5994, true, 1, L"00:01:00;00", 3596},
        {VS_1080p5994, true, 1, L"00:01:00;04", 3600}, {VS_1080p5994, true, 1, L"00:10:00;00", 35964},
        // Not drop aware: the label is taken as it stands; zero drops even without the flag.
        {VS_Ntsc, true, -1, L"00:01:00;01", 1799}, {VS_Ntsc, true, 0, L"00:01:00;00", 1798},
        {VS_Ntsc, false, 0, L"00:01:00;02", 1800}, {VS_Ntsc, false, 1, L"00:01:00;02", 1802},
    };
    for (const auto& c : cases) {
        CTimeCodeEx tc = at(c.vs, 0, c.drop);
        EXPECT_TRUE(tc.fromString(c.label, false, c.dropAware)) << c.label;
        EXPECT_EQ(tc.getFrameDuration(), c.count) << c.label << " aware " << c.dropAware;
    }
}

TEST(TimecodeDropFrame, CountsToText)
{
    const struct { VideoStandard vs; bool drop; std::uint64_t count; bool dropAware; const wchar_t* text; } cases[] = {
        {VS_Ntsc, true, 1798, true, L"00;00;59;28"}, {VS_Ntsc, true, 1800, true, L"00;01;00;02"},
        {VS_Ntsc, true, 17982, true, L"00;10;00;00"}, {VS_Ntsc, true, 2589407, true, L"23;59;59;29"},
        {VS_1080p5994, true, 3596, true, L"00;00;59;56"},
        // Not drop aware: the arithmetic alone, skipped labels included.
        {VS_Ntsc, true, 1798, false, L"00;01;00;00"}, {VS_Ntsc, false, 1800, false, L"00:01:00:02"},
        {VS_Ntsc, false, 1800, true, L"00:01:00:00"}, {VS_Pal, false, 93079, true, L"01:02:03:04"},
        {VS_Pal, false, kUnset, true, L"--:--:--:--"}, {VS_Ntsc, true, kUnset, true, L"--;--;--;--"},
    };
    for (const auto& c : cases) {
        CTimeCodeEx tc = at(c.vs, c.count == kUnset ? 0 : c.count, c.drop);
        if (c.count == kUnset)
            tc.clear(), tc.setDropFrame(c.drop);
        EXPECT_EQ(tc.toStdString(c.dropAware), c.text) << c.count;
    }
    EXPECT_EQ(CTimeCodeEx::getZeroTimecode(false), L"00:00:00:00");
    EXPECT_EQ(CTimeCodeEx::getZeroTimecode(true), L"00;00;00;00");
    CTimeCodeEx pal = at(VS_Pal, 93079, false);
    wchar_t small[6];
    EXPECT_EQ(pal.toString(nullptr, 32, true), nullptr);
    EXPECT_EQ(pal.toString(small, 6, true), small);
    EXPECT_STREQ(small, L"01:02");
}

TEST(TimecodeDropFrame, DropModeAtOtherRatesAsserts)
{
    CTimeCodeEx tc = at(VS_Pal, 0, true);
    unsigned h, m, s, f;
    EXPECT_EQ(testutil::captureStdout([&] { tc.toFrameCount(0, 1, 0, 0, 1); }),
        "assertion failed false at util/pellistimecode line 182\n");
    EXPECT_EQ(testutil::captureStdout([&] { tc.toHHMMSSFF(h, m, s, f, true); }),
        "assertion failed false at util/pellistimecode line 274\n");
}

TEST(TimecodeLimits, MaxFramesAndWrap)
{
    // The day's length of every mode is the whole-day test's; the literal ones here.
    const struct { VideoStandard vs; bool drop, wrap; std::uint64_t max; } cases[] = {
        {VS_Pal, false, true, 2160000}, {VS_Ntsc, true, true, 2589408}, {VS_Pal, false, false, 0xFFFFFFFE},
    };
    for (const auto& c : cases) {
        CTimeCodeEx tc = at(c.vs, 0, c.drop);
        tc.setWrap(c.wrap);
        EXPECT_EQ(tc.getMaxFrames(), c.max);
    }
    CTimeCodeEx tc = at(VS_Pal, 10, false);
    EXPECT_TRUE(tc.setDuration(2160000 + 5, true));
    EXPECT_EQ(tc.getFrameDuration(), 5u);
    EXPECT_EQ(testutil::captureStdout([&] { EXPECT_FALSE(tc.setDuration(2160000, false)); }),
        "assertion failed false at util/pellistimecode line 1108\n");
    EXPECT_EQ(tc.getFrameDuration(), 5u);
    EXPECT_EQ(tc.toFrameCount(24, 0, 0, 0, 1), kUnset);
    tc.setWrap(false);
    EXPECT_EQ(tc.toFrameCount(24, 0, 0, 0, 1), 2160000u);
}

TEST(TimecodeParse, SeparatorsAndLength)
{
    const std::string wrongLength = "CTimeCodeEx::fromString Failed string wrong length\n";
    const struct { const wchar_t* text; bool ok; std::uint64_t count; bool drop; std::string err; } cases[] = {
        {L"01:02:03:04", true, 111694, false, ""}, {L"01-02-03:04", true, 111694, false, ""},
        {L"01:02:03;04", true, 111582, true, ""}, {L"01:02:03.04", true, 111582, true, ""},
        {L"01:02:03-04", false, 0, false, ""}, {L"01:0x:03:04", false, 0, false, ""},
        {L"1:02:03:04", false, 0, false, wrongLength}, {L"01:02:03:045", false, 0, false, wrongLength},
        {L"", false, 0, false, wrongLength}, {L"01;02;03;04", true, 111582, true, ""},
    };
    for (const auto& c : cases) {
        // 29.97 without drop, so the delimiter alone decides the mode.
        CTimeCodeEx tc(29.97);
        bool ok = false;
        EXPECT_EQ(captureStderr([&] { ok = tc.fromString(c.text, true, 1); }), c.err) << c.text;
        EXPECT_EQ(ok, c.ok) << c.text;
        EXPECT_EQ(std::make_tuple(tc.getFrameDuration(), tc.isDropFrame()), std::make_tuple(c.count, c.drop))
            << c.text;
    }
    CTimeCodeEx tc;
    EXPECT_FALSE(tc.fromString(nullptr, true, 1));
    EXPECT_EQ(CTimeCodeEx(L"00:10:00;00", VS_Ntsc).getFrameDuration(), 17982u);
    EXPECT_EQ(CTimeCodeEx(L"00:10:00:00", VS_Ntsc).getFrameDuration(), 18000u);
    EXPECT_EQ(CTimeCodeEx(L"00:00:01:00", 50.0).getFrameDuration(), 50u);
    EXPECT_EQ(CTimeCodeEx(1, 2, 3, 4, VS_Pal).getFrameDuration(), 93079u);
}

TEST(TimecodeSony, FormatAndRead)
{
    unsigned char out[4] = {};
    EXPECT_TRUE(CTimeCodeEx(12, 34, 56, 7, VS_Pal).formatSony(out, true));
    EXPECT_EQ(std::vector<unsigned char>(out, out + 4), (std::vector<unsigned char>{0x07, 0x56, 0x34, 0x12}));
    CTimeCodeEx ntsc = at(VS_Ntsc, 1800, true); // 00;01;00;02
    EXPECT_TRUE(ntsc.formatSony(out, true));
    EXPECT_EQ(out[0], 0x42);
    EXPECT_TRUE(ntsc.formatSony(out, false));
    EXPECT_EQ(out[0], 0x02);
    EXPECT_FALSE(CTimeCodeEx().formatSony(out, false));
    EXPECT_FALSE(ntsc.formatSony(nullptr, false));

    const struct { unsigned char in[4]; bool ok; std::uint64_t count; } cases[] = {
        {{0x07, 0x56, 0x34, 0x12}, true, 1132407}, {{0x25, 0, 0, 0}, true, 25}, // frame equal to the rate
        {{0x26, 0, 0, 0}, false, 0}, {{0x0A, 0, 0, 0}, false, 0}, {{0, 0x60, 0, 0}, false, 0},
        {{0, 0x0A, 0, 0}, false, 0}, {{0, 0, 0x60, 0}, false, 0}, {{0, 0, 0, 0x24}, false, 0},
        {{0, 0, 0, 0x1A}, false, 0},
        // Bits above the tens are not part of the value.
        {{0x85, 0, 0, 0}, true, 5}, {{0, 0, 0, 0x52}, true, 1080000},
    };
    for (const auto& c : cases) {
        CTimeCodeEx tc(VS_Pal);
        EXPECT_EQ(tc.setFromSony(c.in), c.ok) << int(c.in[0]) << " " << int(c.in[3]);
        EXPECT_EQ(tc.getFrameDuration(), c.count) << int(c.in[0]) << " " << int(c.in[3]);
    }
    const unsigned char drop[4] = {0x42, 0x00, 0x01, 0x00};
    CTimeCodeEx tc(VS_Ntsc);
    tc.setDropFrame(false);
    EXPECT_TRUE(tc.setFromSony(drop));
    EXPECT_TRUE(tc.isDropFrame());
    EXPECT_EQ(tc.getFrameDuration(), 1800u);
    EXPECT_FALSE(tc.setFromSony(nullptr));
}

TEST(TimecodeArithmetic, OperatorsWrapAtMidnight)
{
    const std::uint64_t day = 2160000;
    CTimeCodeEx a = at(VS_Pal, 100, false), b = at(VS_Pal, 30, false), last = at(VS_Pal, day - 1, false);
    EXPECT_EQ((a + b).getFrameDuration(), 130u);
    EXPECT_EQ((a - b).getFrameDuration(), 70u);
    EXPECT_EQ((b - a).getFrameDuration(), day - 70);
    EXPECT_EQ((last + b).getFrameDuration(), 29u);
    EXPECT_TRUE(b < a && a > b && b <= a && a >= b && a != b && !(a == b));
    EXPECT_EQ((last++).getFrameDuration(), day - 1);
    EXPECT_EQ(last.getFrameDuration(), 0u);
    EXPECT_EQ((--last).getFrameDuration(), day - 1);
    EXPECT_EQ((last += a).getFrameDuration(), 99u);
    EXPECT_EQ((last -= a).getFrameDuration(), day - 1);

    CTimeCodeEx unset;
    std::string out = testutil::captureStdout([&] { a += unset; });
    EXPECT_EQ(out.rfind("assertion failed isValid() && timecode.isValid() at util/pellistimecode line ", 0), 0u);
    EXPECT_EQ(a.getFrameDuration(), 100u);
}

TEST(TimecodeValue, UnitsCopyAssignAndClock)
{
    CTimeCodeEx pal = at(VS_Pal, 50, false);
    EXPECT_EQ(std::make_tuple(pal.toSeconds(), pal.toMilliseconds(), pal.toRefTime()),
        std::make_tuple(2.0, std::uint64_t(2000), std::uint64_t(20000000)));
    EXPECT_TRUE(pal.fromMilliseconds(1000));
    EXPECT_EQ(pal.getFrameDuration(), 25u);
    EXPECT_TRUE(pal.fromSeconds(86400.0 + 1.0));
    EXPECT_EQ(pal.getFrameDuration(), 25u);
    EXPECT_FALSE(pal.fromSeconds(-1.0));

    CTimeCodeEx a = at(VS_Ntsc, 1234, true), b(a), c;
    b.setDuration(5, false);
    b.setWrap(false);
    EXPECT_EQ(std::pair(a.getFrameDuration(), a.getWrap()), std::pair(std::uint64_t(1234), true)); // b was a copy
    EXPECT_TRUE(c.assign(a));
    EXPECT_EQ(std::make_tuple(c.getFrameDuration(), c.isDropFrame(), c.getTimecodeRate()),
        std::make_tuple(std::uint64_t(1234), true, 29.97003f));

    const std::string msg = "CTimeCodeEx::assign cannot assign to invalid object\n";
    EXPECT_EQ(captureStderr([&] { EXPECT_FALSE(c.assign(CTimeCodeEx())); }), msg);
    EXPECT_EQ(captureStderr([&] { EXPECT_FALSE(c.assign(nullptr)); }), msg);
    EXPECT_EQ(c.getFrameDuration(), 1234u);

    CTimeCodeEx now(VS_Ntsc);
    EXPECT_TRUE(now.setFromSystemTime());
    EXPECT_LT(now.getFrameDuration(), now.getMaxFrames());
}

} // namespace
