#pragma once
// The editor's memory for reading files ahead of their requests: one budget
// that every open file's reader draws its windows from, so that a timeline
// of hundreds of clips holds no more than the budget, however many of them
// have been played. A reader that goes idle, or holds more than its share
// while another file needs the room, is asked to give its memory back.
#include <cstdint>

#include "VlExport.h"

namespace Vl {

// A reader that holds read-ahead memory.
class ReadAheadClient
{
public:
    // Called from another thread than the reader's: frees every block the
    // reader holds of the budget, unless the reader is busy at that moment
    // (then false, and it keeps them).
    virtual bool giveBack() = 0;

protected:
    ~ReadAheadClient() = default;
};

class VL_HOST_API ReadAheadBudget
{
public:
    // A reader joins before its first block and leaves, having freed them,
    // before it goes; once leave returns, giveBack is neither running nor
    // called again.
    static void join(ReadAheadClient& client);
    static void leave(ReadAheadClient& client);
    // The most that the client may hold now: an even share of the budget
    // among the readers that use it.
    static std::uint64_t share(ReadAheadClient& client);
    // A block of size bytes aligned to a page (to 2 MiB from 2 MiB, where
    // huge pages may back it), or null when the client's share or the
    // budget has no room for it, even after idle readers gave theirs back.
    static void* allocate(ReadAheadClient& client, std::uint64_t size);
    static void free(ReadAheadClient& client, void* block, std::uint64_t size);
    // The client is reading through its blocks: it is not idle.
    static void touch(ReadAheadClient& client);
};

} // namespace Vl
