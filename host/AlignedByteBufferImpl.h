#pragma once
#include <cstdint>

#include "ByteBufferImpl.h"
#include "VlExport.h"

// A block whose data address is a multiple of the alignment asked for.
class VL_HOST_API AlignedByteBufferImpl : public ByteBufferImpl
{
public:
    using ByteBufferImpl::alloc;
    // alignment must be a power of two; false when it is not or there is no memory.
    bool alloc(std::uint32_t size, std::uint32_t alignment);
};
