#include "util/linux/platform.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "OS/VlErrFromHresult.h"
#include "common/AssertCapture.h"

using testutil::captureStdout;

namespace {

// The editor's error code for each code the plug-in returns; an unknown
// code asserts and maps to 0.
TEST(Platform, VlErrFromHresultTable)
{
    const struct { unsigned hr; int code; } table[] = {
        {0x00000000, 1},  {0x00000001, 0},  {0x80070070, 2},  {0x800704D3, 3},  {0x80070050, 4},
        {0x80070002, 5},  {0x80070005, 6},  {0x80070006, 7},  {0x8007007A, 8},  {0x80090321, 8},
        {0x80070026, 11}, {0x80004001, 12}, {0x80004005, 13}, {0x8000FFFF, 13}, {0x80070032, 14},
        {0x80070020, 15}, {0x80070057, 16}, {0x8007139F, 17}, {0x80048001, 2013}, {0x80048100, 2013},
        {0x80048000, 0},  {0x80048101, 0},  {0x80070490, 0},  {0x00000002, 0},
    };
    for (const auto& row : table) {
        int code = -1;
        std::string out = captureStdout([&] { code = VlErrFromHresult(static_cast<int>(row.hr)); });
        EXPECT_EQ(code, row.code) << std::hex << row.hr;
        EXPECT_EQ(out, row.code || row.hr == 1 ? "" : "assertion failed false at util/../OS/VlErrFromHresult.inc line 26\n")
            << std::hex << row.hr;
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

} // namespace
