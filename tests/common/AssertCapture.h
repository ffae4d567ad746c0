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

// Whether out is exactly one assertion line for expression in the source
// file (path from the repository root, without extension), at any line.
inline bool isAssertion(const std::string& out, const std::string& expression, const std::string& file)
{
    std::string head = "assertion failed " + expression + " at " + file + " line ";
    if (out.compare(0, head.size(), head) != 0 || out.size() < head.size() + 2 || out.back() != '\n')
        return false;
    for (std::size_t i = head.size(); i + 1 < out.size(); ++i)
        if (out[i] < '0' || out[i] > '9')
            return false;
    return true;
}

} // namespace testutil
