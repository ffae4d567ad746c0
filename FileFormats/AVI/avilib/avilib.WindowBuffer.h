#pragma once
// The memory of one read-ahead window. Windows are read into with direct
// I/O, so they start on a page; those of 2 MiB and more are asked to be
// backed by huge pages, because faulting in 4 KiB pages on a window's first
// read costs the disk a quarter of that read's time.
#include <cstdint>

namespace Morvane::Avi {

class WindowBuffer
{
public:
    WindowBuffer() = default;
    ~WindowBuffer() { reset(); }
    WindowBuffer(const WindowBuffer&) = delete;
    WindowBuffer& operator=(const WindowBuffer&) = delete;

    // At least n bytes: the memory, and what it holds, are kept when they
    // are large enough already; a larger block drops them.
    bool reserve(std::uint64_t n);
    void reset();

    unsigned char* data() const { return data_; }
    std::uint64_t capacity() const { return capacity_; }

private:
    unsigned char* data_ = nullptr;
    std::uint64_t capacity_ = 0;
    std::uint64_t alignment_ = 0;
};

} // namespace Morvane::Avi
