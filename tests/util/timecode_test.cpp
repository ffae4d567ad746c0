#include "util/pellistimecode.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include "common/AssertCapture.h"

using Morvane::CTimeCodeEx;
using Morvane::VideoStandard;

namespace {

template <class F>
std::string captureStderr(F&& f)
{
    testing::internal::CaptureStderr();
    f();
    return testing::internal::GetCapturedStderr();
}

CTimeCodeEx at(VideoStandard vs, std::uint64_t frames)
{
    CTimeCodeEx tc(vs);
    tc.setDuration(frames, false);
    return tc;
}

// ---------------------------------------------------------------- standards

struct StandardCase
{
    int number;
    const wchar_t* name;
    unsigned width, height, rateNum, rateDen, periodNum, periodDen;
    unsigned long aspect;
    bool drop;
    unsigned format, rateCode;
};

TEST(TimecodeStandards, RowsAsListedIncludingIrregularOnes)
{
    const StandardCase cases[] = {
        {0, L"Invalid Std", 0, 0, 0, 0, 0, 0, 0x00040003, false, 0, 0},
        {31, L"Invalid Std", 0, 0, 0, 0, 0, 0, 0x00040003, false, 0, 0},
        {-1, L"Invalid Std", 0, 0, 0, 0, 0, 0, 0x00040003, false, 0, 0},
        {2, L"Ntsc", 720, 486, 30000, 1001, 1001000, 6, 0x00040003, true, 30, 1},
        {4, L"720p@23.98", 1280, 720, 24000, 1001, 1251250, 6, 0x00100009, false, 19, 2},
        {26, L"4k@23.98", 4096, 2160, 24000, 1001, 2502500, 6, 0x00100009, false, 0, 2},
        {25, L"QFHD@59.94", 3840, 2160, 60000, 1001, 1001000, 6, 0x00100009, true, 0, 4},
        {30, L"4k@59.94", 4096, 2160, 60000, 1001, 1001000, 6, 0x00100009, true, 40, 4},
        {16, L"1080psf@30", 1920, 1080, 30, 1, 2000000, 6, 0x00100009, false, 30, 7},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.number);
        const auto& row = Morvane::getVideoStandard(static_cast<VideoStandard>(c.number));
        EXPECT_STREQ(row.name, c.name);
        EXPECT_EQ(row.width, c.width);
        EXPECT_EQ(row.height, c.height);
        EXPECT_EQ(row.rateNum, c.rateNum);
        EXPECT_EQ(row.rateDen, c.rateDen);
        EXPECT_EQ(row.periodNum, c.periodNum);
        EXPECT_EQ(row.periodDen, c.periodDen);
        EXPECT_EQ(row.aspect, c.aspect);
        EXPECT_EQ(row.dropFrame, c.drop);
        EXPECT_EQ(row.format, c.format);
        EXPECT_EQ(row.rateCode, c.rateCode);
    }
    for (int n = 0; n <= 30; ++n)
        EXPECT_EQ(Morvane::getVideoStandard(static_cast<VideoStandard>(n)).number, n);

    // The invalid row counts nothing: rate 0 and no valid timecode.
    for (int n : {0, 31}) {
        CTimeCodeEx tc(static_cast<VideoStandard>(n));
        EXPECT_EQ(tc.getTimecodeRate(), 0.0f);
        EXPECT_FALSE(tc.isValid());
    }
}

// Drop-frame arithmetic keys on the canonical rates, so every 1001 standard
// must land exactly on one.
TEST(TimecodeStandards, RatesFromRowsAreCanonical)
{
    for (int n = 1; n <= 30; ++n) {
        const auto& row = Morvane::getVideoStandard(static_cast<VideoStandard>(n));
        CTimeCodeEx fromStd(static_cast<VideoStandard>(n));
        CTimeCodeEx fromRate(static_cast<double>(row.rateNum) / row.rateDen);
        EXPECT_EQ(fromStd.getTimecodeRate(), fromRate.getTimecodeRate()) << n;
        EXPECT_EQ(fromStd.isDropFrame(), row.dropFrame) << n;
    }
}

// ------------------------------------------------------------ rate snapping

TEST(TimecodeRate, SnapsNearCanonicalRates)
{
    const struct
    {
        double in;
        float out;
        bool asserts;
    } cases[] = {
        {0.5, 25.0f, true},          {23.99995, 24.0f, false},  {23.98, 23.976025f, false},
        {23.99, 23.99f, false},      {25.0, 25.0f, false},      {30.000005, 30.0f, false},
        {29.97, 29.97003f, false},   {29.98, 29.98f, false},    {50.0, 50.0f, false},
        {59.999999, 60.0f, false},   {59.94, 59.94006f, false}, {12.5, 12.5f, false},
    };
    for (const auto& c : cases) {
        float rate = 0;
        std::string out = testutil::captureStdout([&] { rate = CTimeCodeEx(c.in).getTimecodeRate(); });
        EXPECT_EQ(rate, c.out) << c.in;
        EXPECT_EQ(out, c.asserts ? "assertion failed false at util/pellistimecode line 123\n" : "") << c.in;
    }
}

// --------------------------------------------------------------- whole day

struct DayCase
{
    const char* name;
    VideoStandard vs;
    bool drop;
};

void PrintTo(const DayCase& c, std::ostream* os)
{
    *os << c.name;
}

class TimecodeDay : public testing::TestWithParam<DayCase>
{};

// Every count of the day gives a label the mode can show, each label once,
// and the label reads back as the same count.
TEST_P(TimecodeDay, EveryFrameRoundTrips)
{
    CTimeCodeEx tc(GetParam().vs);
    tc.setDropFrame(GetParam().drop);
    const std::uint64_t fps = static_cast<std::uint64_t>(std::ceil(tc.getTimecodeRate()));
    const unsigned dropped = !GetParam().drop ? 0 : fps == 30 ? 2 : 4;
    const std::uint64_t max = tc.getMaxFrames();
    EXPECT_EQ(max, fps * 86400 - (dropped ? 1440 * dropped - 144 * dropped : 0));

    std::vector<unsigned char> seen(fps * 86400, 0);
    std::uint64_t failures = 0, firstFailure = 0;
    for (std::uint64_t n = 0; n < max; ++n) {
        tc.setDuration(n, false);
        unsigned h = 99, m = 99, s = 99, f = 99;
        bool ok = tc.toHHMMSSFF(h, m, s, f, true) && h < 24 && m < 60 && s < 60 && f < fps;
        ok = ok && !(dropped && m % 10 != 0 && s == 0 && f < dropped);
        if (ok) {
            std::uint64_t label = ((h * 60ull + m) * 60 + s) * fps + f;
            ok = !seen[label]++ && tc.toFrameCount(h, m, s, f, 1) == n;
        }
        if (!ok && failures++ == 0)
            firstFailure = n;
    }
    EXPECT_EQ(failures, 0u) << "first at count " << firstFailure;
}

INSTANTIATE_TEST_SUITE_P(Standards, TimecodeDay,
    testing::Values(DayCase{"Ntsc_DF", Morvane::VS_Ntsc, true},
        DayCase{"p5994_DF", Morvane::VS_1080p5994, true},
        DayCase{"Ntsc_NDF", Morvane::VS_Ntsc, false},
        DayCase{"p5994_NDF", Morvane::VS_720p5994, false},
        DayCase{"Pal", Morvane::VS_Pal, false},
        DayCase{"p2398", Morvane::VS_1080psf2398, false},
        DayCase{"p50", Morvane::VS_1080p50, false},
        DayCase{"p60", Morvane::VS_720p60, false}),
    [](const testing::TestParamInfo<DayCase>& info) { return std::string(info.param.name); });

// ------------------------------------------------------- labels and counts

TEST(TimecodeDropFrame, LabelsAndCounts)
{
    const struct
    {
        VideoStandard vs;
        bool drop;
        int dropAware;
        const wchar_t* label;
        std::uint64_t count;
    } cases[] = {
        // Skipped labels read as the frame before them.
        {Morvane::VS_Ntsc, true, 1, L"00:01:00;00", 1798},
        {Morvane::VS_Ntsc, true, 1, L"00:00:59;29", 1799},
        {Morvane::VS_Ntsc, true, 1, L"00:01:00;02", 1800},
        {Morvane::VS_Ntsc, true, 1, L"00:10:00;00", 17982},
        {Morvane::VS_Ntsc, true, 1, L"23:59:59;29", 2589407},
        {Morvane::VS_1080p5994, true, 1, L"00:01:00;00", 3596},
        {Morvane::VS_1080p5994, true, 1, L"00:01:00;04", 3600},
        {Morvane::VS_1080p5994, true, 1, L"00:10:00;00", 35964},
        // Without drop awareness the label is taken as it stands.
        {Morvane::VS_Ntsc, true, -1, L"00:01:00;01", 1799},
        {Morvane::VS_Ntsc, true, 0, L"00:01:00;00", 1798},
        // Zero applies the drop arithmetic even without the flag.
        {Morvane::VS_Ntsc, false, 0, L"00:01:00;02", 1800},
        {Morvane::VS_Ntsc, false, 1, L"00:01:00;02", 1802},
    };
    for (const auto& c : cases) {
        CTimeCodeEx tc(c.vs);
        tc.setDropFrame(c.drop);
        EXPECT_TRUE(tc.fromString(c.label, false, c.dropAware)) << c.label;
        EXPECT_EQ(tc.getFrameDuration(), c.count) << c.label << " aware " << c.dropAware;
    }
}

TEST(TimecodeDropFrame, CountsToText)
{
    const struct
    {
        VideoStandard vs;
        bool drop;
        std::uint64_t count;
        bool dropAware;
        const wchar_t* text;
    } cases[] = {
        {Morvane::VS_Ntsc, true, 1798, true, L"00;00;59;28"},
        {Morvane::VS_Ntsc, true, 1800, true, L"00;01;00;02"},
        {Morvane::VS_Ntsc, true, 17982, true, L"00;10;00;00"},
        {Morvane::VS_Ntsc, true, 2589407, true, L"23;59;59;29"},
        {Morvane::VS_1080p5994, true, 3596, true, L"00;00;59;56"},
        // Not drop aware: the arithmetic alone, skipped labels included.
        {Morvane::VS_Ntsc, true, 1798, false, L"00;01;00;00"},
        {Morvane::VS_Ntsc, false, 1800, false, L"00:01:00:02"},
        {Morvane::VS_Ntsc, false, 1800, true, L"00:01:00:00"},
        {Morvane::VS_Pal, false, 0, true, L"00:00:00:00"},
        {Morvane::VS_Pal, false, 93079, true, L"01:02:03:04"},
        {Morvane::VS_Pal, false, CTimeCodeEx::kUnset, true, L"--:--:--:--"},
        {Morvane::VS_Ntsc, true, CTimeCodeEx::kUnset, true, L"--;--;--;--"},
    };
    for (const auto& c : cases) {
        CTimeCodeEx tc = c.count == CTimeCodeEx::kUnset ? CTimeCodeEx() : at(c.vs, c.count);
        tc.setDropFrame(c.drop);
        EXPECT_EQ(tc.toStdString(c.dropAware), c.text) << c.count;
        // What is written reads back as the same count and mode.
        CTimeCodeEx back(c.vs);
        if (tc.isValid() && c.dropAware) {
            EXPECT_TRUE(back.fromString(c.text, true, 1)) << c.count;
            EXPECT_EQ(back.getFrameDuration(), c.count) << c.count;
            EXPECT_EQ(back.isDropFrame(), c.drop) << c.count;
        }
    }

    EXPECT_EQ(CTimeCodeEx::getZeroTimecode(false), L"00:00:00:00");
    EXPECT_EQ(CTimeCodeEx::getZeroTimecode(true), L"00;00;00;00");
    CTimeCodeEx pal = at(Morvane::VS_Pal, 93079);
    EXPECT_EQ(pal.toString(nullptr, 32, true), nullptr);
    wchar_t small[6];
    EXPECT_EQ(pal.toString(small, 6, true), small);
    EXPECT_STREQ(small, L"01:02");
}

TEST(TimecodeDropFrame, DropModeAtOtherRatesAsserts)
{
    CTimeCodeEx tc(Morvane::VS_Pal);
    tc.setDropFrame(true);
    EXPECT_EQ(testutil::captureStdout([&] { tc.toFrameCount(0, 1, 0, 0, 1); }),
        "assertion failed false at util/pellistimecode line 182\n");
    unsigned h, m, s, f;
    EXPECT_EQ(testutil::captureStdout([&] { tc.toHHMMSSFF(h, m, s, f, true); }),
        "assertion failed false at util/pellistimecode line 274\n");
}

// ------------------------------------------------------------ day limits

TEST(TimecodeLimits, MaxFramesAndWrap)
{
    const struct
    {
        VideoStandard vs;
        bool drop, wrap;
        std::uint64_t max;
    } cases[] = {
        {Morvane::VS_Pal, false, true, 2160000},
        {Morvane::VS_Ntsc, true, true, 2589408},
        {Morvane::VS_Ntsc, false, true, 2592000},
        {Morvane::VS_1080p5994, true, true, 5178816},
        {Morvane::VS_1080psf2398, false, true, 2073600},
        {Morvane::VS_Pal, false, false, 0xFFFFFFFE},
    };
    for (const auto& c : cases) {
        CTimeCodeEx tc(c.vs);
        tc.setDropFrame(c.drop);
        tc.setWrap(c.wrap);
        EXPECT_EQ(tc.getMaxFrames(), c.max);
    }

    CTimeCodeEx tc(Morvane::VS_Pal, 10);
    EXPECT_TRUE(tc.setDuration(2160000 + 5, true));
    EXPECT_EQ(tc.getFrameDuration(), 5u);
    std::string out = testutil::captureStdout([&] { EXPECT_FALSE(tc.setDuration(2160000, false)); });
    EXPECT_EQ(out, "assertion failed false at util/pellistimecode line 1108\n");
    EXPECT_EQ(tc.getFrameDuration(), 5u);

    EXPECT_EQ(tc.toFrameCount(24, 0, 0, 0, 1), CTimeCodeEx::kUnset);
    tc.setWrap(false);
    EXPECT_EQ(tc.toFrameCount(24, 0, 0, 0, 1), 2160000u);
    EXPECT_TRUE(tc.setDuration(2160000, true));
}

// ----------------------------------------------------------------- parsing

TEST(TimecodeParse, SeparatorsAndLength)
{
    const std::string wrongLength = "CTimeCodeEx::fromString Failed string wrong length\n";
    const struct
    {
        const wchar_t* text;
        bool ok;
        std::uint64_t count;
        bool drop;
        std::string err;
    } cases[] = {
        {L"01:02:03:04", true, 111694, false, ""},
        {L"01-02-03:04", true, 111694, false, ""},
        {L"01:02:03;04", true, 111582, true, ""},
        {L"01:02:03.04", true, 111582, true, ""},
        {L"01:02:03-04", false, CTimeCodeEx::kUnset, false, ""},
        {L"01:0x:03:04", false, CTimeCodeEx::kUnset, false, ""},
        {L"1:02:03:04", false, CTimeCodeEx::kUnset, false, wrongLength},
        {L"01:02:03:045", false, CTimeCodeEx::kUnset, false, wrongLength},
        {L"", false, CTimeCodeEx::kUnset, false, wrongLength},
    };
    for (const auto& c : cases) {
        // 29.97 without drop, so the delimiter alone decides the mode.
        CTimeCodeEx ntsc(29.97);
        bool ok = false;
        std::string err = captureStderr([&] { ok = ntsc.fromString(c.text, true, 1); });
        EXPECT_EQ(ok, c.ok) << c.text;
        EXPECT_EQ(err, c.err) << c.text;
        if (c.ok) {
            EXPECT_EQ(ntsc.getFrameDuration(), c.count) << c.text;
            EXPECT_EQ(ntsc.isDropFrame(), c.drop) << c.text;
        } else {
            EXPECT_EQ(ntsc.getFrameDuration(), 0u) << c.text;
        }
    }
    CTimeCodeEx tc;
    EXPECT_FALSE(tc.fromString(nullptr, true, 1));

    // Text constructors take the mode from the delimiter.
    EXPECT_EQ(CTimeCodeEx(L"00:10:00;00", Morvane::VS_Ntsc).getFrameDuration(), 17982u);
    CTimeCodeEx nonDrop(L"00:10:00:00", Morvane::VS_Ntsc);
    EXPECT_FALSE(nonDrop.isDropFrame());
    EXPECT_EQ(nonDrop.getFrameDuration(), 18000u);
    EXPECT_EQ(CTimeCodeEx(L"00:00:01:00", 50.0).getFrameDuration(), 50u);
    EXPECT_EQ(CTimeCodeEx(1, 2, 3, 4, Morvane::VS_Pal).getFrameDuration(), 93079u);
}

// -------------------------------------------------------------------- Sony

TEST(TimecodeSony, FormatAndRead)
{
    unsigned char out[4] = {};
    EXPECT_TRUE(CTimeCodeEx(12, 34, 56, 7, Morvane::VS_Pal).formatSony(out, true));
    EXPECT_EQ(std::vector<unsigned char>(out, out + 4), (std::vector<unsigned char>{0x07, 0x56, 0x34, 0x12}));

    CTimeCodeEx ntsc = at(Morvane::VS_Ntsc, 1800); // 00:01:00;02
    EXPECT_TRUE(ntsc.formatSony(out, true));
    EXPECT_EQ(out[0], 0x42);
    EXPECT_TRUE(ntsc.formatSony(out, false));
    EXPECT_EQ(out[0], 0x02);
    EXPECT_FALSE(CTimeCodeEx().formatSony(out, false));
    EXPECT_FALSE(ntsc.formatSony(nullptr, false));

    const struct
    {
        unsigned char in[4];
        bool ok;
        std::uint64_t count;
    } cases[] = {
        {{0x07, 0x56, 0x34, 0x12}, true, 1132407},
        {{0x25, 0x00, 0x00, 0x00}, true, 25},  // equal to the rate passes
        {{0x26, 0x00, 0x00, 0x00}, false, 0},
        {{0x0A, 0x00, 0x00, 0x00}, false, 0},
        {{0x00, 0x60, 0x00, 0x00}, false, 0},
        {{0x00, 0x0A, 0x00, 0x00}, false, 0},
        {{0x00, 0x00, 0x60, 0x00}, false, 0},
        {{0x00, 0x00, 0x00, 0x24}, false, 0},
        {{0x00, 0x00, 0x00, 0x1A}, false, 0},
    };
    for (const auto& c : cases) {
        CTimeCodeEx tc(Morvane::VS_Pal);
        EXPECT_EQ(tc.setFromSony(c.in), c.ok) << int(c.in[0]) << " " << int(c.in[3]);
        EXPECT_EQ(tc.getFrameDuration(), c.count) << int(c.in[0]) << " " << int(c.in[3]);
    }

    const unsigned char drop[4] = {0x42, 0x00, 0x01, 0x00};
    CTimeCodeEx tc(Morvane::VS_Ntsc);
    tc.setDropFrame(false);
    EXPECT_TRUE(tc.setFromSony(drop));
    EXPECT_TRUE(tc.isDropFrame());
    EXPECT_EQ(tc.getFrameDuration(), 1800u);
    EXPECT_FALSE(tc.setFromSony(nullptr));
}

// ------------------------------------------------- operators and conversions

TEST(TimecodeArithmetic, OperatorsWrapAtMidnight)
{
    const std::uint64_t day = 2160000;
    CTimeCodeEx a = at(Morvane::VS_Pal, 100), b = at(Morvane::VS_Pal, 30);
    EXPECT_EQ((a + b).getFrameDuration(), 130u);
    EXPECT_EQ((a - b).getFrameDuration(), 70u);
    EXPECT_EQ((b - a).getFrameDuration(), day - 70);
    EXPECT_TRUE(b < a && a > b && b <= a && a >= b && a != b && !(a == b));

    CTimeCodeEx last = at(Morvane::VS_Pal, day - 1);
    EXPECT_EQ((last + b).getFrameDuration(), 29u);
    CTimeCodeEx c = last++;
    EXPECT_EQ(c.getFrameDuration(), day - 1);
    EXPECT_EQ(last.getFrameDuration(), 0u);
    --last;
    EXPECT_EQ(last.getFrameDuration(), day - 1);
    last += a;
    EXPECT_EQ(last.getFrameDuration(), 99u);
    last -= a;
    EXPECT_EQ(last.getFrameDuration(), day - 1);

    CTimeCodeEx unset(Morvane::VS_Pal);
    unset.clear();
    std::string out = testutil::captureStdout([&] { a += unset; });
    EXPECT_EQ(out.rfind("assertion failed isValid() && timecode.isValid() at util/pellistimecode line ", 0), 0u);
    EXPECT_EQ(a.getFrameDuration(), 100u);
}

TEST(TimecodeArithmetic, TimeUnits)
{
    CTimeCodeEx pal = at(Morvane::VS_Pal, 50);
    EXPECT_DOUBLE_EQ(pal.toSeconds(), 2.0);
    EXPECT_EQ(pal.toMilliseconds(), 2000u);
    EXPECT_EQ(pal.toRefTime(), 20000000u);
    EXPECT_TRUE(pal.fromMilliseconds(1000));
    EXPECT_EQ(pal.getFrameDuration(), 25u);
    EXPECT_TRUE(pal.fromSeconds(86400.0 + 1.0));
    EXPECT_EQ(pal.getFrameDuration(), 25u);
    EXPECT_FALSE(pal.fromSeconds(-1.0));

    CTimeCodeEx ntsc = at(Morvane::VS_Ntsc, 0);
    EXPECT_TRUE(ntsc.fromSeconds(1.0));
    EXPECT_EQ(ntsc.getFrameDuration(), 29u);
}

TEST(TimecodeValue, CopyAssignAndSystemTime)
{
    CTimeCodeEx a = at(Morvane::VS_Ntsc, 1234);
    CTimeCodeEx b(a);
    b.setDuration(5, false);
    b.setWrap(false);
    EXPECT_EQ(a.getFrameDuration(), 1234u);
    EXPECT_TRUE(a.getWrap());

    CTimeCodeEx c;
    EXPECT_TRUE(c.assign(a));
    EXPECT_EQ(c.getFrameDuration(), 1234u);
    EXPECT_TRUE(c.isDropFrame());
    EXPECT_EQ(c.getTimecodeRate(), a.getTimecodeRate());

    const std::string msg = "CTimeCodeEx::assign cannot assign to invalid object\n";
    CTimeCodeEx invalid;
    bool ok = true;
    EXPECT_EQ(captureStderr([&] { ok = c.assign(invalid); }), msg);
    EXPECT_FALSE(ok);
    EXPECT_EQ(captureStderr([&] { ok = c.assign(nullptr); }), msg);
    EXPECT_FALSE(ok);
    EXPECT_EQ(c.getFrameDuration(), 1234u);

    CTimeCodeEx now(Morvane::VS_Ntsc);
    EXPECT_TRUE(now.setFromSystemTime());
    EXPECT_TRUE(now.isValid());
    EXPECT_LT(now.getFrameDuration(), now.getMaxFrames());
}

} // namespace
