#pragma once
// The largest single allocation made through operator new while a watch is
// alive: a reader must never allocate what the file cannot justify. The
// test program that uses it replaces the global operator new.
#include <cstddef>

namespace avitest {

class AllocationWatch
{
public:
    AllocationWatch();
    ~AllocationWatch();
    AllocationWatch(const AllocationWatch&) = delete;
    AllocationWatch& operator=(const AllocationWatch&) = delete;

    std::size_t largest() const;
    // The next allocation of exactly n bytes fails, as with no memory left.
    static void failNext(std::size_t n);
};

} // namespace avitest
