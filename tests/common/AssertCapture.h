#pragma once
#include <gtest/gtest.h>

#include <string>

namespace testutil {

// Runs f with standard output captured and returns what it printed (the
// library's assertion lines go there).
template <class F>
std::string captureStdout(F&& f)
{
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}

} // namespace testutil
