#include "avi/AllocationWatch.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int> g_watches{0};
std::atomic<std::size_t> g_largest{0};
std::atomic<std::size_t> g_failSize{0};

void note(std::size_t n)
{
    if (g_watches.load(std::memory_order_relaxed) == 0)
        return;
    std::size_t seen = g_largest.load(std::memory_order_relaxed);
    while (n > seen && !g_largest.compare_exchange_weak(seen, n, std::memory_order_relaxed)) {
    }
}

void* allocate(std::size_t n, std::size_t align)
{
    note(n);
    std::size_t fail = n;
    if (n && g_failSize.compare_exchange_strong(fail, 0))
        return nullptr;
    void* p = nullptr;
    if (align <= alignof(std::max_align_t))
        return std::malloc(n ? n : 1); // malloc(0) may give null, which new must not
    return ::posix_memalign(&p, align, n ? n : 1) == 0 ? p : nullptr;
}

} // namespace

namespace avitest {

AllocationWatch::AllocationWatch()
{
    g_largest = 0;
    ++g_watches;
}

AllocationWatch::~AllocationWatch() { --g_watches; }

std::size_t AllocationWatch::largest() const { return g_largest.load(); }

void AllocationWatch::failNext(std::size_t n) { g_failSize = n; }

} // namespace avitest

// Every form of operator new goes through allocate; every delete to free.
void* operator new(std::size_t n)
{
    if (void* p = allocate(n, 0))
        return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t n, std::align_val_t a)
{
    if (void* p = allocate(n, static_cast<std::size_t>(a)))
        return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return operator new(n); }
void* operator new[](std::size_t n, std::align_val_t a) { return operator new(n, a); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return allocate(n, 0); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return allocate(n, 0); }
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return allocate(n, std::size_t(a)); }
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return allocate(n, std::size_t(a)); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
