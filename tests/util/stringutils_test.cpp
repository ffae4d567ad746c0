#include "util/stringUtils.h"

#include <gtest/gtest.h>

namespace M = Morvane;

namespace {

TEST(StringUtils, Conversions)
{
    // Signed numbers come back empty: kept so, callers rely on it.
    EXPECT_EQ(M::convertString(42), L"");
    EXPECT_EQ(M::convertString(42l), L"");
    EXPECT_EQ(M::convertString(42u), L"42");
    EXPECT_EQ(M::convertString(static_cast<const wchar_t*>(nullptr)), "");
    EXPECT_EQ(M::convertString(std::wstring(L"Cannot open")), "Cannot open");
    EXPECT_EQ(M::format(L"%0600d", 1).size(), 600u) << "grows past the first 512 characters";
}

} // namespace
