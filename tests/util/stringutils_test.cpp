#include "util/stringUtils.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "common/AssertCapture.h"
#include "common/TempDir.h"

using testutil::captureStdout;
namespace M = Morvane;

namespace {

using Tokens = std::vector<std::wstring>;

TEST(StringUtils, SplitAndJoin)
{
    const struct { std::wstring text; Tokens tokens; } cases[] = {
        {L"", {}},
        {L",a", {L"", L"a"}},
        {L"a,", {L"a", L""}},
        {L"a,,b", {L"a", L"", L"b"}},
        {L"abc", {L"abc"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(M::splitString(c.text, L','), c.tokens) << std::string(c.text.begin(), c.text.end());
        EXPECT_EQ(M::joinString(c.tokens, L','), c.text);
    }
}

TEST(StringUtils, ReplaceEnvVars)
{
    ::setenv("VELLORO_HOME_TEST", "/home/ed", 1);
    ::unsetenv("VELLORO_NOPE");
    const struct { const wchar_t* in; const wchar_t* out; } cases[] = {
        {L"%VELLORO_HOME_TEST%/x", L"/home/ed/x"},
        {L"%VELLORO_NOPE%/x", L"VELLORO_NOPE/x"},
        {L"a%b", L"a"},
        {L"%VELLORO_HOME_TEST%%VELLORO_HOME_TEST%", L"/home/ed/home/ed"},
        {L"plain", L"plain"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(M::replaceEnvVars(c.in), c.out);
    std::wstring result;
    std::string out = captureStdout([&] { result = M::replaceEnvVars(L"a%%b"); });
    EXPECT_EQ(out, "assertion failed ! varName.empty() at util/stringUtils line 197\n");
    EXPECT_EQ(result, L"ab");
}

TEST(StringUtils, Ipv4IsOnlyDigitsAndThreeDots)
{
    const struct { const wchar_t* text; bool ok; } cases[] = {
        {L"192.168.0.1", true}, {L"1..2.3", true}, {L"999.1.1.1", true}, {L"", false},
        {L"1.2.3", false},      {L"1.2.3.4.5", false}, {L"1.2.3.a", false}, {L" 1.2.3.4", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(M::isIpv4Address(c.text), c.ok) << std::wstring(c.text).size();
}

TEST(StringUtils, Conversions)
{
    // Signed numbers come back empty: kept so, callers rely on it.
    EXPECT_EQ(M::convertString(42), L"");
    EXPECT_EQ(M::convertString(42l), L"");
    EXPECT_EQ(M::convertString(42u), L"42");
    EXPECT_EQ(M::convertString(static_cast<const wchar_t*>(nullptr)), "");
    EXPECT_EQ(M::format(L"%0600d", 1).size(), 600u) << "grows past the first 512 characters";
}

TEST(StringUtils, AsciiFileLines)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::wstring path = dir.file("lines.txt");
    {
        std::ofstream f(dir.path() / "lines.txt", std::ios::binary);
        f << "a\r\n\r\nb";
    }
    EXPECT_EQ(M::readAsciiFileToLines(path), (Tokens{L"a"})) << "blank lines dropped, unterminated last line lost";

    ASSERT_TRUE(M::writeAsciiFile(path, {L"one", L"", L"three"}));
    std::ifstream f(dir.path() / "lines.txt", std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes, "one\r\n\r\nthree\r\n");
    EXPECT_EQ(M::readAsciiFileToLines(path), (Tokens{L"one", L"three"}));

    std::string out = captureStdout([&] { EXPECT_TRUE(M::readAsciiFileToLines(dir.file("missing")).empty()); });
    EXPECT_NE(out.find("assertion failed false"), std::string::npos);
}

TEST(StringUtils, UnfinishedDirectoryHelpersReportThemselves)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::string out = captureStdout([] { EXPECT_EQ(M::getCwd(), L""); });
    EXPECT_EQ(out, "assertion failed 0 at util/stringUtils line 421\n");
    out = captureStdout([&] { EXPECT_TRUE(M::mkdir(dir.file("sub"))); });
    EXPECT_EQ(out, "assertion failed 0 at util/stringUtils line 443\n");
    auto here = std::filesystem::current_path();
    out = captureStdout([&] { EXPECT_TRUE(M::chdir(dir.path().wstring())); });
    EXPECT_EQ(out, "assertion failed 0 at util/stringUtils line 432\n");
    EXPECT_EQ(std::filesystem::current_path(), dir.path());
    std::filesystem::current_path(here);
}

} // namespace
