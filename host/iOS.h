#pragma once
#include "VlExport.h"
#include "iAtomicCounter.h"
#include "iMemory.h"

class iFileSystem;

// The editor's operating-system services object.
class iOS
{
public:
    virtual ~iOS() = default;
    virtual iMemory& memory() = 0;
    virtual iAtomicCounter& atomics() = 0;
    virtual iFileSystem& fileSystem() = 0;
};

VL_HOST_API iOS& OS();
