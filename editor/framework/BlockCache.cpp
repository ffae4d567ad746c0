#include "BlockCache.h"

#include <chrono>
#include <mutex>
#include <vector>

namespace vlhost::BlockCache {

namespace {

using Clock = std::chrono::steady_clock;

// Eight frames of 1080-line 4:2:2 in flight are about 32 MiB; a player's
// window of them is what is freed and wanted again.
constexpr std::uint64_t kLimit = 32u << 20;
constexpr auto kIdle = std::chrono::seconds(1);

struct Kept
{
    unsigned char* block;
    std::uint64_t bytes;
    Clock::time_point since;
};

struct Cache
{
    std::mutex lock;
    std::vector<Kept> kept;
    std::uint64_t total = 0;

    // Frees what waited too long; the caller holds the lock and frees the
    // returned blocks after letting it go.
    void expire(Clock::time_point now, std::vector<unsigned char*>& out)
    {
        for (std::size_t i = 0; i < kept.size();) {
            if (now - kept[i].since < kIdle) {
                ++i;
                continue;
            }
            out.push_back(kept[i].block);
            total -= kept[i].bytes;
            kept[i] = kept.back();
            kept.pop_back();
        }
    }
};

Cache& cache()
{
    static Cache* c = new Cache; // outlives every block freed during exit
    return *c;
}

void freeAll(const std::vector<unsigned char*>& blocks)
{
    for (unsigned char* b : blocks)
        delete[] b;
}

} // namespace

unsigned char* take(std::uint64_t bytes, std::uint64_t& actual)
{
    if (bytes < kMinBytes)
        return nullptr;
    Cache& c = cache();
    std::vector<unsigned char*> stale;
    unsigned char* found = nullptr;
    {
        std::lock_guard<std::mutex> hold(c.lock);
        c.expire(Clock::now(), stale);
        // The smallest that fits, and not half again as big: a larger one
        // would hold memory the request does not use.
        std::size_t best = c.kept.size();
        for (std::size_t i = 0; i < c.kept.size(); ++i) {
            const std::uint64_t b = c.kept[i].bytes;
            if (b >= bytes && b <= bytes + bytes / 2 && (best == c.kept.size() || b < c.kept[best].bytes))
                best = i;
        }
        if (best < c.kept.size()) {
            found = c.kept[best].block;
            actual = c.kept[best].bytes;
            c.total -= actual;
            c.kept[best] = c.kept.back();
            c.kept.pop_back();
        }
    }
    freeAll(stale);
    return found;
}

void give(unsigned char* block, std::uint64_t bytes)
{
    if (!block)
        return;
    Cache& c = cache();
    std::vector<unsigned char*> stale;
    {
        std::lock_guard<std::mutex> hold(c.lock);
        const Clock::time_point now = Clock::now();
        c.expire(now, stale);
        if (bytes >= kMinBytes && c.total + bytes <= kLimit) {
            c.kept.push_back({block, bytes, now});
            c.total += bytes;
            block = nullptr;
        }
    }
    freeAll(stale);
    delete[] block;
}

std::uint64_t keptBytes()
{
    Cache& c = cache();
    std::lock_guard<std::mutex> hold(c.lock);
    return c.total;
}

} // namespace vlhost::BlockCache
