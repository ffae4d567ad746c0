#pragma once
#include <chrono>
#include <thread>

namespace testutil {

// Polls until cond holds, for up to ten seconds; false if it never does. A
// check that another thread gets there, not a measure of how fast.
template <class F>
bool eventually(F cond)
{
    for (int k = 0; k < 2000; ++k) {
        if (cond())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return cond();
}

} // namespace testutil
