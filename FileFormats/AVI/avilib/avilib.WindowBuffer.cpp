#include "FileFormats/AVI/avilib/avilib.WindowBuffer.h"

namespace Morvane::Avi {

namespace {
constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kHugePage = 2u << 20;
} // namespace

bool WindowBuffer::reserve(Vl::ReadAheadClient& owner, std::uint64_t n)
{
    if (n <= capacity_ && owner_ == &owner)
        return true;
    reset();
    const std::uint64_t unit = n >= kHugePage ? kHugePage : kPage;
    const std::uint64_t size = (n + unit - 1) / unit * unit;
    void* p = Vl::ReadAheadBudget::allocate(owner, size);
    if (!p)
        return false;
    owner_ = &owner;
    data_ = static_cast<unsigned char*>(p);
    capacity_ = size;
    return true;
}

void WindowBuffer::reset()
{
    if (data_)
        Vl::ReadAheadBudget::free(*owner_, data_, capacity_);
    owner_ = nullptr;
    data_ = nullptr;
    capacity_ = 0;
}

} // namespace Morvane::Avi
