#include "host/ReadAheadBudget.h"

#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <vector>

#include "vlhost/ReadAheadSettings.h"

namespace Vl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kHugePage = 2u << 20;
constexpr std::uint64_t kDefaultBudget = 64u << 20;

std::uint64_t budgetFromEnvironment()
{
    // VELLORO_READ_AHEAD_MB: the stand-in's setting, as an editor's
    // preferences would give it.
    if (const char* env = std::getenv("VELLORO_READ_AHEAD_MB"); env && *env) {
        char* end = nullptr;
        unsigned long long mb = std::strtoull(env, &end, 10);
        if (end && *end == '\0' && mb <= (1ull << 20))
            return mb << 20;
    }
    return kDefaultBudget;
}

struct Client
{
    std::uint64_t held = 0;
    Clock::time_point lastUse{};
    Clock::time_point lastAsk{};
    bool givingBack = false; // giveBack is running on another thread
};

// The budget's state, and the thread that takes memory back from readers
// that have gone idle: a reader that no request reaches any more would
// otherwise hold its windows for as long as its file is open.
class Budget
{
public:
    // Never destroyed: readers may still leave while the process exits.
    static Budget& get()
    {
        static Budget* budget = new Budget;
        return *budget;
    }

    void join(ReadAheadClient& c)
    {
        std::lock_guard lock(mutex_);
        clients_.try_emplace(&c);
    }

    void leave(ReadAheadClient& c)
    {
        std::unique_lock lock(mutex_);
        auto it = clients_.find(&c);
        if (it == clients_.end())
            return;
        changed_.wait(lock, [&] { return !it->second.givingBack; });
        // A reader that goes with blocks still counted would shrink the
        // budget for good.
        used_ -= std::min(used_, it->second.held);
        clients_.erase(it);
    }

    std::uint64_t share(ReadAheadClient& c)
    {
        std::lock_guard lock(mutex_);
        return shareLocked(c, Clock::now());
    }

    void* allocate(ReadAheadClient& c, std::uint64_t size)
    {
        if (size == 0)
            return nullptr;
        const std::uint64_t bytes = rounded(size);
        {
            std::unique_lock lock(mutex_);
            const Clock::time_point now = Clock::now();
            Client& me = clients_[&c];
            me.lastUse = me.lastAsk = now;
            if (bytes > limit_ || me.held + bytes > shareLocked(c, now))
                return nullptr;
            std::vector<ReadAheadClient*> tried;
            while (used_ + bytes > limit_) {
                ReadAheadClient* victim = pickVictim(c, now, tried);
                if (!victim)
                    return nullptr;
                tried.push_back(victim);
                giveBackUnlocked(lock, victim);
            }
            used_ += bytes;
            me.held += bytes;
            if (!reaping_)
                startReaper();
            changed_.notify_all();
        }
        void* p = map(bytes);
        if (!p)
            release(c, bytes);
        return p;
    }

    void free(ReadAheadClient& c, void* block, std::uint64_t size)
    {
        if (!block)
            return;
        const std::uint64_t bytes = rounded(size);
        ::munmap(block, bytes);
        release(c, bytes);
    }

    void touch(ReadAheadClient& c)
    {
        std::lock_guard lock(mutex_);
        auto it = clients_.find(&c);
        if (it != clients_.end())
            it->second.lastUse = Clock::now();
    }

    void setLimit(std::uint64_t bytes)
    {
        std::lock_guard lock(mutex_);
        limit_ = bytes;
        changed_.notify_all();
    }
    std::uint64_t limit()
    {
        std::lock_guard lock(mutex_);
        return limit_;
    }
    std::uint64_t used()
    {
        std::lock_guard lock(mutex_);
        return used_;
    }
    void setIdleAfter(std::chrono::milliseconds idle)
    {
        std::lock_guard lock(mutex_);
        idleAfter_ = std::max(idle, std::chrono::milliseconds(1));
        changed_.notify_all();
    }

private:
    Budget() = default;

    static std::uint64_t rounded(std::uint64_t size)
    {
        const std::uint64_t unit = size >= kHugePage ? kHugePage : kPage;
        return (size + unit - 1) / unit * unit;
    }

    // Fresh pages straight from the system, so that a window given back
    // leaves the process at once instead of staying in the heap.
    static void* map(std::uint64_t bytes)
    {
        if (bytes < kHugePage) {
            void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            return p == MAP_FAILED ? nullptr : p;
        }
        // Aligned to a huge page, so that the hint below can take effect:
        // faulting in 4 KiB pages on a window's first read costs the disk a
        // quarter of that read's time.
        const std::uint64_t span = bytes + kHugePage;
        void* p = ::mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED)
            return nullptr;
        auto at = reinterpret_cast<std::uintptr_t>(p);
        const std::uintptr_t aligned = (at + kHugePage - 1) / kHugePage * kHugePage;
        if (aligned > at)
            ::munmap(p, aligned - at);
        if (const std::uintptr_t tail = at + span - (aligned + bytes))
            ::munmap(reinterpret_cast<void*>(aligned + bytes), tail);
        ::madvise(reinterpret_cast<void*>(aligned), bytes, MADV_HUGEPAGE);
        return reinterpret_cast<void*>(aligned);
    }

    void release(ReadAheadClient& c, std::uint64_t bytes)
    {
        std::lock_guard lock(mutex_);
        used_ -= std::min(used_, bytes);
        auto it = clients_.find(&c);
        if (it != clients_.end())
            it->second.held -= std::min(it->second.held, bytes);
        changed_.notify_all();
    }

    bool idle(const Client& k, Clock::time_point now) const { return now - k.lastUse >= idleAfter_; }

    // Readers that hold memory or have just asked for some: the ones among
    // which the budget is shared.
    std::uint64_t shareLocked(ReadAheadClient& c, Clock::time_point now) const
    {
        std::uint64_t users = 0;
        bool counted = false;
        for (const auto& [who, k] : clients_) {
            if (k.held || !idle(k, now) || now - k.lastAsk < idleAfter_) {
                ++users;
                counted = counted || who == &c;
            }
        }
        if (!counted)
            ++users;
        return limit_ / users;
    }

    // Whose memory goes to the asker: an idle reader first, else one that
    // holds more than its share; never the asker itself.
    ReadAheadClient* pickVictim(ReadAheadClient& asker, Clock::time_point now,
                                const std::vector<ReadAheadClient*>& tried) const
    {
        // Every reader that holds memory is among those sharing: one share for all.
        const std::uint64_t fair = shareLocked(asker, now);
        ReadAheadClient* best = nullptr;
        bool bestIdle = false;
        std::uint64_t bestHeld = 0;
        for (const auto& [who, k] : clients_) {
            if (who == &asker || !k.held || k.givingBack ||
                std::find(tried.begin(), tried.end(), who) != tried.end())
                continue;
            const bool isIdle = idle(k, now);
            if (!isIdle && k.held <= fair)
                continue;
            if (!best || (isIdle && !bestIdle) || (isIdle == bestIdle && k.held > bestHeld)) {
                best = who;
                bestIdle = isIdle;
                bestHeld = k.held;
            }
        }
        return best;
    }

    // Runs the victim's giveBack without the budget's lock, which the
    // victim takes again to free its blocks.
    void giveBackUnlocked(std::unique_lock<std::mutex>& lock, ReadAheadClient* victim)
    {
        clients_[victim].givingBack = true;
        lock.unlock();
        victim->giveBack();
        lock.lock();
        clients_[victim].givingBack = false;
        changed_.notify_all();
    }

    void startReaper()
    {
        try {
            std::thread([this] { reap(); }).detach();
            reaping_ = true;
        } catch (const std::system_error&) {
            // No thread to spare: idle readers give back when another asks.
        }
    }

    void reap()
    {
        std::unique_lock lock(mutex_);
        for (;;) {
            if (used_ == 0) {
                changed_.wait(lock, [&] { return used_ != 0; });
                continue;
            }
            changed_.wait_for(lock, idleAfter_ / 2 + std::chrono::milliseconds(1));
            const Clock::time_point now = Clock::now();
            std::vector<ReadAheadClient*> idleOnes;
            for (const auto& [who, k] : clients_)
                if (k.held && !k.givingBack && idle(k, now))
                    idleOnes.push_back(who);
            for (ReadAheadClient* who : idleOnes) {
                auto it = clients_.find(who);
                if (it == clients_.end() || it->second.givingBack)
                    continue;
                giveBackUnlocked(lock, who);
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::unordered_map<ReadAheadClient*, Client> clients_;
    std::uint64_t limit_ = budgetFromEnvironment();
    std::uint64_t used_ = 0;
    std::chrono::milliseconds idleAfter_{500};
    bool reaping_ = false;
};

} // namespace

void ReadAheadBudget::join(ReadAheadClient& client)
{
    Budget::get().join(client);
}

void ReadAheadBudget::leave(ReadAheadClient& client)
{
    Budget::get().leave(client);
}

std::uint64_t ReadAheadBudget::share(ReadAheadClient& client)
{
    return Budget::get().share(client);
}

void* ReadAheadBudget::allocate(ReadAheadClient& client, std::uint64_t size)
{
    return Budget::get().allocate(client, size);
}

void ReadAheadBudget::free(ReadAheadClient& client, void* block, std::uint64_t size)
{
    Budget::get().free(client, block, size);
}

void ReadAheadBudget::touch(ReadAheadClient& client)
{
    Budget::get().touch(client);
}

} // namespace Vl

namespace vlhost {

void setReadAheadBudget(std::uint64_t bytes)
{
    Vl::Budget::get().setLimit(bytes);
}

std::uint64_t readAheadBudget()
{
    return Vl::Budget::get().limit();
}

std::uint64_t readAheadInUse()
{
    return Vl::Budget::get().used();
}

void setReadAheadIdleAfter(std::chrono::milliseconds idle)
{
    Vl::Budget::get().setIdleAfter(idle);
}

} // namespace vlhost
