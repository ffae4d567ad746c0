#pragma once
// The memory of one read-ahead window, drawn from the editor's read-ahead
// budget that every open file shares. Windows are read into with direct
// I/O, so they start on a page; those of 2 MiB and more on a huge page.
#include <cstdint>

#include "host/ReadAheadBudget.h"

namespace Morvane::Avi {

class WindowBuffer
{
public:
    WindowBuffer() = default;
    ~WindowBuffer() { reset(); }
    WindowBuffer(const WindowBuffer&) = delete;
    WindowBuffer& operator=(const WindowBuffer&) = delete;

    // At least n bytes of owner's share: the memory, and what it holds, are
    // kept when they are large enough already; a larger block drops them.
    // False when the budget has no room for n (the window is then empty).
    bool reserve(Vl::ReadAheadClient& owner, std::uint64_t n);
    void reset();

    unsigned char* data() const { return data_; }
    std::uint64_t capacity() const { return capacity_; }

private:
    Vl::ReadAheadClient* owner_ = nullptr;
    unsigned char* data_ = nullptr;
    std::uint64_t capacity_ = 0;
};

} // namespace Morvane::Avi
