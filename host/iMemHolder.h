#pragma once
#include <cstdint>

#include "iObject.h"

// A block of memory handed between the editor and its plug-ins.
class iMemHolder : public iObject
{
public:
    virtual unsigned char* data() const = 0;
    virtual std::uint32_t capacity() const = 0;
    // Where the payload starts in the block, and how many bytes it has.
    virtual std::uint32_t dataOffset() const = 0;
    virtual std::uint32_t used() const = 0;
};
