#include "util/videoutils.h"

#include <gtest/gtest.h>

#include <tuple>

#include "common/AssertCapture.h"
#include "util/fourcc.h"

using testutil::captureStdout;
namespace M = Morvane;

namespace {

TEST(VideoUtils, BitrateForFourCC)
{
    const struct { const char* fcc; unsigned kbps; } table[] = {
        {"dvsd", 25000}, {"dv25", 25000}, {"xd25", 25000}, {"xd35", 35000},  {"dv50", 50000},  {"xd50", 50000},
        {"avc5", 50000}, {"dvh1", 100000}, {"avc6", 100000}, {"mjpg", 0}, {"DVSD", 0},
    };
    for (const auto& row : table) {
        char code[5] = {row.fcc[0], row.fcc[1], row.fcc[2], row.fcc[3], 0};
        EXPECT_EQ(M::getBitrateForFCC(M::makeFourCC(code), 1920, 1080), row.kbps) << row.fcc;
        EXPECT_EQ(M::getBppForFCC(M::makeFourCC(code)), 24u);
    }
    for (unsigned kbps : {30000u, 40000u, 50000u})
        EXPECT_TRUE(M::isValidIMXBitrate(kbps));
    for (unsigned kbps : {0u, 25000u, 35000u, 50001u})
        EXPECT_FALSE(M::isValidIMXBitrate(kbps));
}

TEST(VideoUtils, AspectRatioTexts)
{
    for (auto [code, text] : {std::pair{0x00100009ul, L"16-9"}, {0x00040003ul, L"4-3"}, {0x000E0009ul, L"14-9"}}) {
        EXPECT_EQ(M::aspectRatioToString(code), text);
        EXPECT_EQ(M::aspectRatioFromString(text), code);
    }

    std::wstring text;
    std::string out = captureStdout([&] { text = M::aspectRatioToString(0x00010001); });
    EXPECT_EQ(text, L"16-9");
    EXPECT_EQ(out, "assertion failed false at util/videoutils line 145\n");
    unsigned long code = 0;
    out = captureStdout([&] { code = M::aspectRatioFromString(L"16:9"); });
    EXPECT_EQ(code, 0x00100009u);
    EXPECT_EQ(out, "assertion failed false at util/videoutils line 154\n");

    EXPECT_EQ(M::aspectRatios(), (std::vector<unsigned long>{0x00100009, 0x00040003, 0x000E0009}));
}

TEST(VideoUtils, RateAndScaleText)
{
    const struct { const wchar_t* text; bool ok; unsigned rate, scale; } cases[] = {
        {L"25/1", true, 25, 1},          {L"29.97/1", true, 29, 1}, {L"30000/1001", true, 30000, 1001},
        {L"0/1", false, 0, 1},           {L"25/0", false, 25, 0},   {L"25/1fps", true, 25, 1},
        {L"-5/1", false, 0, 1},          {L"1e30/1", true, 0xFFFFFFFFu, 1},
    };
    for (const auto& c : cases) {
        unsigned rate = 7, scale = 7;
        EXPECT_EQ(M::getRateAndScaleFromWString(c.text, rate, scale), c.ok) << std::wstring(c.text).size();
        EXPECT_EQ(rate, c.rate);
        EXPECT_EQ(scale, c.scale);
    }
    unsigned rate = 7, scale = 9;
    EXPECT_FALSE(M::getRateAndScaleFromWString(L"25", rate, scale));
    EXPECT_EQ(rate, 7u) << "no slash leaves the outputs alone";
    EXPECT_EQ(scale, 9u);

    std::wstring out;
    EXPECT_TRUE(M::getWStringFromFrameRateAndScale(30000, 1001, out));
    EXPECT_EQ(out, L"30000/1001");
}

TEST(VideoUtils, GopRecord)
{
    GOPInfo g;
    ASSERT_TRUE(M::allocGOPInfo(g, 5));
    EXPECT_EQ(g.count_, 5u);
    for (unsigned i = 0; i < 5; ++i) {
        EXPECT_EQ(g.GOPIndexes_[i], 0u);
        EXPECT_EQ(g.presentationOrder_[i], 0u);
    }
    std::string out = captureStdout([&] { EXPECT_TRUE(M::allocGOPInfo(g, 3)); });
    EXPECT_EQ(out, "assertion failed ! g.GOPIndexes_ && ! g.presentationOrder_ at util/videoutils line 20\n");
    EXPECT_EQ(g.count_, 3u);
    M::freeGOPInfo(g);
    EXPECT_EQ(std::tuple(g.count_, g.GOPIndexes_, g.presentationOrder_), std::tuple(0u, nullptr, nullptr));
}

} // namespace
