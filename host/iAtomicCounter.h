#pragma once
#include <cstdint>

// The editor's atomic-counter service: every reference count that crosses
// the plug-in boundary is moved through it.
class iAtomicCounter
{
public:
    virtual ~iAtomicCounter() = default;
    virtual std::uint32_t increment(std::uint32_t* counter) = 0;
    virtual std::uint32_t decrement(std::uint32_t* counter) = 0;
};
