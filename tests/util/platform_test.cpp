#include "util/linux/platform.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "OS/VlErrFromHresult.h"
#include "common/AssertCapture.h"
#include "util/morvaneguid.h"

using testutil::captureStdout;

namespace {

TEST(Platform, VlErrFromHresultTable)
{
    const struct { unsigned hr; int code; } table[] = {
        {0x00000000, 1},  {0x00000001, 0},  {0x80070070, 2},  {0x800704D3, 3},  {0x80070050, 4},
        {0x80070002, 5},  {0x80070005, 6},  {0x80070006, 7},  {0x8007007A, 8},  {0x80090321, 8},
        {0x80070026, 11}, {0x80004001, 12}, {0x80004005, 13}, {0x8000FFFF, 13}, {0x80070032, 14},
        {0x80070020, 15}, {0x80070057, 16}, {0x8007139F, 17}, {0x80048001, 2013}, {0x80048100, 2013},
    };
    for (const auto& row : table) {
        std::string out = captureStdout([&] { EXPECT_EQ(VlErrFromHresult(static_cast<int>(row.hr)), row.code) << std::hex << row.hr; });
        EXPECT_EQ(out, "") << std::hex << row.hr;
    }
    for (unsigned unknown : {0x80048000u, 0x80048101u, 0x80070490u, 0x00000002u}) {
        int code = -1;
        std::string out = captureStdout([&] { code = VlErrFromHresult(static_cast<int>(unknown)); });
        EXPECT_EQ(code, 0) << std::hex << unknown;
        EXPECT_EQ(out, "assertion failed false at util/../OS/VlErrFromHresult.inc line 26\n");
    }
}

TEST(Platform, HRFromLastError)
{
    // Disk full keeps its Windows code; no error is a plain failure; a negative value passes through.
    for (auto [err, hr] : {std::pair{ENOSPC, 0x80070070u}, {EIO, 0x80070005u}, {ENOENT, 0x80070002u},
                           {0, static_cast<unsigned>(E_FAIL)}, {-5, static_cast<unsigned>(-5)}}) {
        errno = err;
        EXPECT_EQ(HRFromLastError(), static_cast<HRESULT>(hr)) << err;
    }
}

TEST(Platform, LtowParsesInsteadOfWriting)
{
    wchar_t buf[32] = {};
    EXPECT_EQ(_ltow(1234, buf, 10), EOF);
    EXPECT_EQ(buf[0], L'\0') << "the buffer stays as it was";
    wchar_t digits[] = L"77";
    EXPECT_EQ(_ltow(5, digits, 16), 1);
    EXPECT_STREQ(digits, L"77");
    EXPECT_THROW(_ltow(1, buf, 8), string_exception);
    try {
        _ltow(1, buf, 2);
    } catch (const string_exception& e) {
        EXPECT_STREQ(e.what(), "Unknown base for ltow");
    }
}

// The wide-string shims: what they write, what they return, and what a
// missing argument prints.
TEST(Platform, WideStringShims)
{
    wchar_t dst[8] = L"abc";
    EXPECT_EQ(wcslcat(dst, L"defgh", 8), 8u) << "length it tried to create";
    EXPECT_STREQ(dst, L"abcdefg");
    wchar_t full[4] = L"abc";
    EXPECT_EQ(wcslcat(full, L"xy", 0), 2u) << "size 0: only the source length";
    EXPECT_STREQ(full, L"abc");
    EXPECT_EQ(captureStdout([] { wcslcat(nullptr, L"x", 4); }),
              "assertion failed dst != NULL at util/linux/platform line 31\n");
    EXPECT_EQ(captureStdout([&] { wcslcat(dst, nullptr, 4); }),
              "assertion failed src != NULL at util/linux/platform line 32\n");

    // Both case shims upper-case.
    wchar_t a[] = L"abcd", b[] = L"abcd";
    EXPECT_EQ(wcsntoupper(a, 2), 2u);
    EXPECT_STREQ(a, L"ABcd");
    EXPECT_EQ(wcsntolower(b, 3), 3u);
    EXPECT_STREQ(b, L"ABCd");

    wchar_t four[4];
    EXPECT_EQ(wcscpy_s(nullptr, 4, L"a"), 22);
    EXPECT_EQ(wcscpy_s(four, 4, nullptr), 22);
    EXPECT_EQ(wcscpy_s(four, 3, L"abc"), 34);
    EXPECT_EQ(wcscpy_s(four, 4, L"abc"), 0);
    EXPECT_STREQ(four, L"abc");

    wchar_t buf[6];
    EXPECT_EQ(StringCchPrintfW(buf, 6, L"%d", 12345), S_OK);
    EXPECT_STREQ(buf, L"12345");
    EXPECT_EQ(StringCchPrintfW(buf, 6, L"%d", 123456), E_INSUFFICIENT_BUFFER);
    EXPECT_EQ(std::wcslen(buf), 5u) << "terminated at cch - 1";
    EXPECT_EQ(StringCchPrintfW(buf, 0, L"x"), E_INVALIDARG);
    EXPECT_EQ(StringCchPrintfW(buf, 0x7FFFFFFFul, L"x"), S_OK);
    EXPECT_EQ(StringCchPrintfW(buf, 0x80000000ul, L"x"), E_INVALIDARG);
}

TEST(Platform, UuidCreate)
{
    GUID a{}, b{};
    ASSERT_EQ(UuidCreate(&a), S_OK);
    ASSERT_EQ(UuidCreate(&b), S_OK);
    EXPECT_TRUE(a != b);
    std::string out = captureStdout([] { UuidCreate(nullptr); });
    EXPECT_EQ(out, "assertion failed result at util/morvaneguid line 21\n");
}

} // namespace
