#include "PosixFileSystem.h"

#include <sys/stat.h>

#include <map>
#include <mutex>

#include "DriveInfo.h"
#include "PosixFile.h"
#include "vlhost/FileFaults.h"
#include "vlhost/HostStats.h"

namespace vlhost {

namespace {

std::mutex g_faultsMutex;
std::map<std::wstring, FileFaults> g_faults;

FileFaults faultsFor(const std::wstring& path)
{
    std::lock_guard lock(g_faultsMutex);
    auto it = g_faults.find(path);
    return it == g_faults.end() ? FileFaults{} : it->second;
}

class DriveDescription final : public iDriveDescription
{
public:
    explicit DriveDescription(std::uint32_t sectorSize) : sectorSize_(sectorSize) {}
    std::uint32_t getSectorSize() const override { return sectorSize_; }

private:
    std::uint32_t sectorSize_;
};

void appendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | ((c >> 18) & 0x07));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

} // namespace

std::string toSystemPath(const std::wstring& path)
{
    std::string out;
    out.reserve(path.size());
    for (wchar_t c : path)
        appendUtf8(out, static_cast<char32_t>(c) > 0x10FFFF ? U'?' : static_cast<char32_t>(c));
    return out;
}

void setFileFaults(const std::wstring& path, const FileFaults& faults)
{
    std::lock_guard lock(g_faultsMutex);
    g_faults[path] = faults;
}

void clearFileFaults()
{
    std::lock_guard lock(g_faultsMutex);
    g_faults.clear();
}

Vl::Ptr<iFile> PosixFileSystem::open(const VlWString& path, iFile::eAccess access, iFile::eOpenBehaviour behaviour,
                                     iFile::eShareMode, iFile::eFlags flags)
{
    // Share modes have no meaning on POSIX files: every open shares.
    return PosixFile::open(toSystemPath(path), access, behaviour, flags, faultsFor(path));
}

bool PosixFileSystem::exists(const VlWString& path)
{
    struct stat st;
    return ::stat(toSystemPath(path).c_str(), &st) == 0;
}

Vl::Ptr<iDriveDescription> PosixFileSystem::getDriveDescription(const VlWString& path)
{
    std::uint32_t size = faultsFor(path).sectorSize;
    if (size == 0)
        size = logicalBlockSize(toSystemPath(path));
    if (size == 0)
        return nullptr;
    return Vl::Ptr<iDriveDescription>(new DriveDescription(size));
}

} // namespace vlhost
