#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <new>
#include <unordered_set>

#include "PosixFileSystem.h"
#include "host/iOS.h"
#include "vlhost/HostStats.h"

namespace {

constexpr std::size_t kAlignedFrom = 4096;

// Read requests are served on up to 32 threads. The C library would give
// each its own arena, and every arena keeps the frame-sized blocks freed in
// it, so the editor's memory would grow with its thread count; two arenas
// serve requests that one file lock serialises anyway.
const bool g_fewArenas = [] { return mallopt(M_ARENA_MAX, 2) == 1; }();

// Uncompressed HD frames (over 2 MiB) go straight back to the system when
// freed. Left to itself the C library raises its threshold to the largest
// block freed, after which the arenas keep every 4 MB frame they have
// served: the peak would be what was ever in flight, not what is. Smaller
// blocks (compressed frames, GOPs) are reused from the heap, which keeps up
// to 32 MiB free at its top instead of returning it and faulting it in
// again for the next GOP.
const bool g_framesUnpooled = [] {
    return mallopt(M_MMAP_THRESHOLD, 2 << 20) == 1 && mallopt(M_TRIM_THRESHOLD, 32 << 20) == 1;
}();

std::atomic<std::uint64_t> g_allocations{0};
std::atomic<std::uint64_t> g_frees{0};

// Blocks come from the process's own operator new, so that memory a plug-in
// obtained through this service and the standard library's memory may be
// released by either side.
class Memory final : public iMemory
{
public:
    void* allocate(std::size_t size) override
    {
        void* p = nullptr;
        if (size >= kAlignedFrom) {
            p = ::operator new(size, std::align_val_t(kAlignedFrom), std::nothrow);
            if (p) {
                std::lock_guard lock(alignedMutex_);
                aligned_.insert(p);
            }
        } else {
            p = ::operator new(size ? size : 1, std::nothrow);
        }
        if (p)
            g_allocations.fetch_add(1, std::memory_order_relaxed);
        else
            errno = ENOMEM;
        return p;
    }
    void free(void* p) override
    {
        if (!p)
            return;
        g_frees.fetch_add(1, std::memory_order_relaxed);
        bool wasAligned;
        {
            std::lock_guard lock(alignedMutex_);
            wasAligned = aligned_.erase(p) != 0;
        }
        if (wasAligned)
            ::operator delete(p, std::align_val_t(kAlignedFrom));
        else
            ::operator delete(p);
    }

private:
    std::mutex alignedMutex_;
    std::unordered_set<void*> aligned_;
};

class AtomicCounter final : public iAtomicCounter
{
public:
    std::uint32_t increment(std::uint32_t* counter) override
    {
        return std::atomic_ref<std::uint32_t>(*counter).fetch_add(1, std::memory_order_relaxed) + 1;
    }
    std::uint32_t decrement(std::uint32_t* counter) override
    {
        // acq_rel: the thread that drops the last reference sees every write
        // made through the others before it deletes the object.
        return std::atomic_ref<std::uint32_t>(*counter).fetch_sub(1, std::memory_order_acq_rel) - 1;
    }
};

class OSServices final : public iOS
{
public:
    iMemory& memory() override { return memory_; }
    iAtomicCounter& atomics() override { return atomics_; }
    iFileSystem& fileSystem() override { return fileSystem_; }

private:
    Memory memory_;
    AtomicCounter atomics_;
    vlhost::PosixFileSystem fileSystem_;
};

} // namespace

iOS& OS()
{
    static OSServices services;
    return services;
}

namespace vlhost {

MemoryStats memoryStats()
{
    return {g_allocations.load(), g_frees.load()};
}

} // namespace vlhost
