#include <sys/mman.h>

#include <cstdint>
#include <new>

#include "host/AlignedByteBufferImpl.h"
#include "host/ByteBufferImpl.h"
#include "BlockCache.h"

namespace {
constexpr std::uint32_t kHugePage = 2u << 20;
} // namespace

ByteBufferImpl::~ByteBufferImpl()
{
    release();
}

void ByteBufferImpl::release()
{
    if (storageBytes_)
        vlhost::BlockCache::give(storage_, storageBytes_);
    else
        delete[] storage_;
    storage_ = nullptr;
    storageBytes_ = 0;
}

void ByteBufferImpl::adopt(unsigned char* storage, unsigned char* data, std::uint32_t capacity,
                           std::uint64_t storageBytes)
{
    release();
    storage_ = storage;
    storageBytes_ = storage ? storageBytes : 0;
    data_ = data;
    capacity_ = capacity;
    offset_ = 0;
    used_ = 0;
}

bool ByteBufferImpl::alloc(std::uint32_t size)
{
    auto* p = new (std::nothrow) unsigned char[size ? size : 1];
    if (!p) {
        adopt(nullptr, nullptr, 0);
        return false;
    }
    adopt(p, p, size);
    return true;
}

void ByteBufferImpl::setUsed(std::uint32_t n)
{
    used_ = n <= capacity_ - offset_ ? n : capacity_ - offset_;
}

std::uint32_t ByteBufferImpl::append(std::uint32_t n)
{
    std::uint32_t take = n <= freeSpace() ? n : freeSpace();
    used_ += take;
    return take;
}

bool AlignedByteBufferImpl::alloc(std::uint32_t size, std::uint32_t alignment)
{
    if (alignment == 0 || (alignment & (alignment - 1)) != 0) {
        adopt(nullptr, nullptr, 0);
        return false;
    }
    // Frame-sized blocks (uncompressed HD) are read into with direct I/O as
    // soon as they are allocated, and each comes fresh from the system:
    // faulted in 4 KiB pages inside the read, they held up the disk for a
    // third of the read's time. They start on a huge page and ask for them.
    // The block then runs to a huge page's end, so that its last part is
    // one too.
    const bool huge = size >= kHugePage && alignment < kHugePage;
    const std::uint32_t align = huge ? kHugePage : alignment;
    const std::uint64_t span = huge ? (std::uint64_t(size) + kHugePage - 1) / kHugePage * kHugePage : size;
    if (span + align > UINT32_MAX) {
        adopt(nullptr, nullptr, 0);
        return false;
    }
    std::uint64_t bytes = span + align;
    unsigned char* p = huge ? vlhost::BlockCache::take(bytes, bytes) : nullptr;
    const bool reused = p != nullptr;
    if (!p)
        p = new (std::nothrow) unsigned char[bytes];
    if (!p) {
        adopt(nullptr, nullptr, 0);
        return false;
    }
    auto address = reinterpret_cast<std::uintptr_t>(p);
    auto aligned = (address + align - 1) & ~std::uintptr_t(align - 1);
    if (huge && !reused)
        ::madvise(reinterpret_cast<void*>(aligned), span, MADV_HUGEPAGE); // a hint; small pages work the same
    adopt(p, p + (aligned - address), size, huge ? bytes : 0);
    return true;
}
