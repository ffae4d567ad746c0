#pragma once
#include <cstdint>
#include <string>

#include "FileFormats/common/pellbase.h"
#include "host/iFile.h"
#include "util/linux/platform.h"

namespace Pell {

// A file of the editor's file-system service with its sector size.
class CDiskFile : public CPellBase
{
public:
    CDiskFile() = default;
    ~CDiskFile() override;

    virtual void close();
    virtual HRESULT seek(unsigned long pos, int origin);
    virtual void closeFile();
    virtual void setFilename(std::wstring name);
    // Puts what was written, and the size, on the disk; a failure leaves
    // its text with the system's reason.
    HRESULT sync();

    unsigned long getSize() const;
    unsigned long getPos() const;
    const std::wstring& getFilename() const { return filename_; }
    bool isOpen() const { return static_cast<bool>(file_); }
    std::uint32_t getSectorSize() const { return sectorSize_; }
    unsigned long roundUpToSectorBoundary(unsigned long n) const;
    void setFilePtr(const Vl::Ptr<iFile>& file);
    const Vl::Ptr<iFile>& getFilePtr() const { return file_; }

    static std::uint32_t sectorSizeFromPath(const std::wstring& path);
    static bool exists(const std::wstring& path);
    static bool remove(const std::wstring& path);

protected:
    // Takes a file the host has just opened (null: the host's error) and
    // sets the sector size its flags call for.
    HRESULT holdOpened(const Vl::Ptr<iFile>& file, const std::wstring& path, iFile::eFlags flags);

    std::wstring filename_;
    std::uint32_t sectorSize_ = 512;
    Vl::Ptr<iFile> file_;
};

// The drive of a path: on this platform the path itself.
std::wstring getDrive(const std::wstring& path);

} // namespace Pell
