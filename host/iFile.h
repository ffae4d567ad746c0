#pragma once
#include <cstdint>

#include "VlPtr.h"

// An open file of the editor's file-system service. Positions are absolute
// byte offsets; a failed call leaves its reason in errno.
class iFile : public Vl::RefCounted
{
public:
    enum eAccess : std::uint32_t { eRead = 0, eWrite = 1 };
    enum eOpenBehaviour : std::uint32_t { eOpenExisting = 0, eCreateAlways = 1 };
    enum eShareMode : std::uint32_t { eShareRead = 1, eShareWrite = 2, eShareReadWrite = 4 };
    // eUnbuffered asks for direct (sector-aligned) transfers where the
    // file system allows them; unaligned calls still work, buffered.
    enum eFlags : std::uint32_t { eNone = 0, eUnbuffered = 1 };

    // Bytes read; 0 at the end of the file (errno 0) or on failure.
    virtual std::uint64_t read(void* buf, std::uint64_t n) = 0;
    // All n bytes written, or false.
    virtual bool write(const void* buf, std::uint64_t n) = 0;
    virtual bool setPosition(std::uint64_t pos) = 0;
    virtual std::uint64_t getPosition() const = 0;
    virtual std::uint64_t getSize() const = 0;
    // Everything written so far, and the size, is on the disk; or false.
    virtual bool sync() = 0;
};
