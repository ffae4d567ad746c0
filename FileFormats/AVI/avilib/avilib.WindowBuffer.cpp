#include "FileFormats/AVI/avilib/avilib.WindowBuffer.h"

#include <sys/mman.h>

#include <new>

namespace Morvane::Avi {

namespace {
constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kHugePage = 2u << 20;
} // namespace

bool WindowBuffer::reserve(std::uint64_t n)
{
    if (n <= capacity_)
        return true;
    reset();
    const bool huge = n >= kHugePage;
    const std::uint64_t alignment = huge ? kHugePage : kPage;
    const std::uint64_t size = (n + alignment - 1) / alignment * alignment;
    void* p = ::operator new(size, std::align_val_t(alignment), std::nothrow);
    if (!p)
        return false;
    // A hint only: without huge pages the window works the same.
    if (huge)
        ::madvise(p, size, MADV_HUGEPAGE);
    data_ = static_cast<unsigned char*>(p);
    capacity_ = size;
    alignment_ = alignment;
    return true;
}

void WindowBuffer::reset()
{
    if (data_)
        ::operator delete(data_, std::align_val_t(alignment_));
    data_ = nullptr;
    capacity_ = 0;
}

} // namespace Morvane::Avi
