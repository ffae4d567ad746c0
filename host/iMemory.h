#pragma once
#include <cstddef>

// The editor's memory service. Blocks of 4096 bytes or more come back
// aligned to 4096, so sector-aligned I/O can target them directly.
class iMemory
{
public:
    virtual ~iMemory() = default;
    virtual void* allocate(std::size_t size) = 0;
    virtual void free(void* p) = 0;
};
