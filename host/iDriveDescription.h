#pragma once
#include <cstdint>

#include "VlPtr.h"

// What the file system knows of the device holding a path.
class iDriveDescription : public Vl::RefCounted
{
public:
    // The device's logical block size: the unit of unbuffered transfers.
    virtual std::uint32_t getSectorSize() const = 0;
};
