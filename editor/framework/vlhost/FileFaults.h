#pragma once
#include <cerrno>
#include <cstdint>
#include <string>

// Test hooks of the editor stand-in: faults that the files it opens for a
// path will show, so that callers can be tried against a full disk or a
// failing drive on their real code path.
namespace vlhost {

struct FileFaults
{
    // Bytes that may still be written to the file in all; the write that
    // crosses the limit stores what fits and then fails with ENOSPC.
    std::int64_t writeLimit = -1;
    // Largest transfer of one system write call; the file must loop over
    // the short writes that result.
    std::int64_t maxBytesPerWriteCall = 0;
    // Reads that touch this file offset or anything past it fail with EIO.
    std::int64_t readFailFromOffset = -1;
    // The write call with this number (1 for the first) fails with
    // failWriteErrno after storing failWriteStores of its bytes (clipped to
    // the call's length); 0 for none.
    std::int64_t failWriteCall = 0;
    int failWriteErrno = EIO;
    std::int64_t failWriteStores = 0;
    // From the write call with this number on, the disk is full: bytes within
    // the file's size at that moment are still overwritten, any byte that
    // would grow it fails with ENOSPC; 0 for never.
    std::int64_t diskFullFromWriteCall = 0;
    // The sync call with this number (1 for the first) fails with
    // failSyncErrno and syncs nothing; 0 for none.
    std::int64_t failSyncCall = 0;
    int failSyncErrno = EIO;
    // The write call with this number stores killWriteStores of its bytes
    // (clipped to the call's length) and then the process dies by SIGKILL,
    // as a writer killed or cut off by a power loss mid-write; 0 for none.
    std::int64_t killAtWriteCall = 0;
    std::int64_t killWriteStores = 0;
    // The write that would take the file past this many bytes stores what
    // fits below it and the process dies by SIGKILL; -1 for none.
    std::int64_t killAtSize = -1;
    // Sector size the drive description reports for this path; 0 for the
    // real device's.
    std::uint32_t sectorSize = 0;
};

// Faults for every later open of exactly this path.
void setFileFaults(const std::wstring& path, const FileFaults& faults);
void clearFileFaults();

} // namespace vlhost
