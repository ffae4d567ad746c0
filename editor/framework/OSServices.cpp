#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "PosixFileSystem.h"
#include "host/iOS.h"
#include "vlhost/HostStats.h"

namespace {

constexpr std::size_t kAlignedFrom = 4096;

std::atomic<std::uint64_t> g_allocations{0};
std::atomic<std::uint64_t> g_frees{0};

class Memory final : public iMemory
{
public:
    void* allocate(std::size_t size) override
    {
        void* p = nullptr;
        if (size >= kAlignedFrom) {
            if (posix_memalign(&p, kAlignedFrom, size) != 0)
                p = nullptr;
        } else {
            p = std::malloc(size ? size : 1);
        }
        if (p)
            g_allocations.fetch_add(1, std::memory_order_relaxed);
        else
            errno = ENOMEM;
        return p;
    }
    void free(void* p) override
    {
        if (p)
            g_frees.fetch_add(1, std::memory_order_relaxed);
        std::free(p);
    }
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
