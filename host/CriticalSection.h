#pragma once
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "VlExport.h"

// Re-entrant lock of the editor. Threads get it in the order they asked for
// it: a thread that has just let it go cannot take it again ahead of those
// waiting, so that a file's audio requests are not starved by its frames'.
class VL_HOST_API CriticalSection
{
public:
    CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void enter();
    void leave();
    bool tryEnter();

    class Lock
    {
    public:
        explicit Lock(CriticalSection& cs) : cs_(cs) { cs_.enter(); }
        ~Lock() { cs_.leave(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        CriticalSection& cs_;
    };

private:
    // A waiter sleeps on the slot of its ticket, and a leave wakes only the
    // slot whose turn it is: with one condition for all, every leave woke
    // every waiter, and a file read by many threads spent most of its CPU
    // waking threads that went straight back to sleep.
    static constexpr unsigned kSlots = 16;
    std::condition_variable& slot(std::uint64_t ticket) { return turn_[ticket % kSlots]; }

    std::mutex mutex_;
    std::condition_variable turn_[kSlots];
    std::thread::id owner_;
    std::uint32_t depth_ = 0;
    std::uint64_t nextTicket_ = 0; // handed to each thread that waits
    std::uint64_t serving_ = 0;    // the ticket whose turn it is
};
