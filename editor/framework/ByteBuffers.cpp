#include <cstdint>
#include <new>

#include "host/AlignedByteBufferImpl.h"
#include "host/ByteBufferImpl.h"

ByteBufferImpl::~ByteBufferImpl()
{
    delete[] storage_;
}

void ByteBufferImpl::adopt(unsigned char* storage, unsigned char* data, std::uint32_t capacity)
{
    delete[] storage_;
    storage_ = storage;
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
    if (alignment == 0 || (alignment & (alignment - 1)) != 0 || size > UINT32_MAX - alignment) {
        adopt(nullptr, nullptr, 0);
        return false;
    }
    auto* p = new (std::nothrow) unsigned char[std::size_t(size) + alignment];
    if (!p) {
        adopt(nullptr, nullptr, 0);
        return false;
    }
    auto address = reinterpret_cast<std::uintptr_t>(p);
    auto aligned = (address + alignment - 1) & ~std::uintptr_t(alignment - 1);
    adopt(p, p + (aligned - address), size);
    return true;
}
