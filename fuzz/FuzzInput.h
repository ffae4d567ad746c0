#pragma once
// What every fuzz target shares: the input is written to a real file (in
// /dev/shm when there is one, for speed) and read back through the disk
// file classes, on a drive whose sector size the input picks, so that both
// 512- and 4096-byte sectors are exercised.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "vlhost/FileFaults.h"

namespace fuzz {

// The last byte's low bit picks the sector size; the byte stays part of the file.
inline std::uint32_t sectorSizeOf(const std::uint8_t* data, std::size_t size)
{
    return size && (data[size - 1] & 1) ? 4096 : 512;
}

inline std::string scratchPath(const char* tag)
{
    const char* dir = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    return std::string(dir) + "/velloro-fuzz-" + tag + "-" + std::to_string(::getpid()) + ".avi";
}

inline std::wstring widen(const std::string& s)
{
    return std::wstring(s.begin(), s.end());
}

// A scratch file the stand-in reports on a drive of the given sector size;
// removed again when the object goes.
class ScratchFile
{
public:
    // readFailFrom: reads that reach this offset fail, as on a failing drive (-1: none).
    ScratchFile(const char* tag, std::uint32_t sectorSize, std::int64_t readFailFrom = -1)
        : path_(scratchPath(tag)), wpath_(widen(path_))
    {
        vlhost::FileFaults f;
        f.sectorSize = sectorSize;
        f.readFailFromOffset = readFailFrom;
        vlhost::setFileFaults(wpath_, f);
    }
    ~ScratchFile()
    {
        // VELLORO_FUZZ_KEEP=1 leaves the last file for a look at a finding.
        if (!std::getenv("VELLORO_FUZZ_KEEP"))
            std::remove(path_.c_str());
        vlhost::clearFileFaults();
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    bool write(const std::uint8_t* data, std::size_t size) const
    {
        FILE* f = std::fopen(path_.c_str(), "wb");
        if (!f)
            return false;
        bool ok = size == 0 || std::fwrite(data, 1, size, f) == size;
        return std::fclose(f) == 0 && ok;
    }
    const std::wstring& path() const { return wpath_; }

private:
    std::string path_;
    std::wstring wpath_;
};

// Assertion lines go to stdout; a fuzzer run would drown in them.
inline void quietStdout()
{
    if (!std::freopen("/dev/null", "w", stdout))
        std::perror("freopen");
}

} // namespace fuzz
