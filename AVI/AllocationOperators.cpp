// Every allocation of the library goes through the editor's memory service.
#include <cstddef>
#include <cstdlib>
#include <new>

#include "host/iOS.h"

#define AVI_EXPORT __attribute__((visibility("default")))

AVI_EXPORT void* operator new(std::size_t size)
{
    return OS().memory().allocate(size);
}

AVI_EXPORT void operator delete(void* p) noexcept
{
    try {
        OS().memory().free(p);
    } catch (...) {
        std::abort();
    }
}

AVI_EXPORT void* operator new[](std::size_t size)
{
    return operator new(size);
}

AVI_EXPORT void operator delete[](void* p) noexcept
{
    operator delete(p);
}

AVI_EXPORT void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return operator new(size);
    } catch (...) {
        return nullptr;
    }
}

AVI_EXPORT void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return operator new(size, std::nothrow);
}

AVI_EXPORT void operator delete(void* p, const std::nothrow_t&) noexcept
{
    operator delete(p);
}

AVI_EXPORT void operator delete[](void* p, const std::nothrow_t&) noexcept
{
    operator delete(p, std::nothrow);
}

// The sized forms the compiler emits for C++14 and later end in the same place.
AVI_EXPORT void operator delete(void* p, std::size_t) noexcept
{
    operator delete(p);
}

AVI_EXPORT void operator delete[](void* p, std::size_t) noexcept
{
    operator delete(p);
}
