#include "FileFormats/common/diskfile.h"

#include <cerrno>
#include <cstdio>

#include "host/iFileSystem.h"
#include "util/stringUtils.h"

namespace Pell {

CDiskFile::~CDiskFile()
{
    CDiskFile::close();
}

void CDiskFile::close()
{
    closeFile();
    filename_.clear();
}

HRESULT CDiskFile::seek(unsigned long pos, int origin)
{
    if (!file_)
        return E_FAIL;
    Vl::Ptr<iFile> file = file_;
    unsigned long target;
    switch (origin) {
    case 0:
        target = pos;
        break;
    case 1:
        target = file->getPosition() + pos;
        break;
    case 2:
        target = file->getSize() + pos;
        break;
    default:
        MORVANE_ASSERT(0);
        return E_INVALIDARG;
    }
    if (!file->setPosition(target))
        return HRFromLastError();
    return S_OK;
}

HRESULT CDiskFile::sync()
{
    if (!file_) {
        setLastError(L"Failed to sync file to disk: no file is open.");
        return E_FAIL;
    }
    Vl::Ptr<iFile> file = file_;
    if (file->sync())
        return S_OK;
    const int err = errno;
    HRESULT hr = HRFromLastError();
    setLastError(L"Failed to sync file to disk.", err);
    return hr;
}

void CDiskFile::closeFile()
{
    file_.reset();
}

void CDiskFile::setFilename(std::wstring name)
{
    filename_ = std::move(name);
}

unsigned long CDiskFile::getSize() const
{
    Vl::Ptr<iFile> file = file_;
    return file ? file->getSize() : 0;
}

unsigned long CDiskFile::getPos() const
{
    Vl::Ptr<iFile> file = file_;
    return file ? file->getPosition() : 0;
}

unsigned long CDiskFile::roundUpToSectorBoundary(unsigned long n) const
{
    if (sectorSize_ == 0)
        return n;
    unsigned long rest = n % sectorSize_;
    return rest == 0 ? n : n + sectorSize_ - rest;
}

void CDiskFile::setFilePtr(const Vl::Ptr<iFile>& file)
{
    MORVANE_ASSERT(! file_);
    file_ = file;
}

HRESULT CDiskFile::holdOpened(const Vl::Ptr<iFile>& file, const std::wstring& path, iFile::eFlags flags)
{
    if (!file)
        return HRFromLastError();
    setFilePtr(file);
    setFilename(path);
    // A buffered file needs no alignment: every byte is a whole "sector".
    sectorSize_ = flags == iFile::eNone ? 1 : sectorSizeFromPath(path);
    return S_OK;
}

std::uint32_t CDiskFile::sectorSizeFromPath(const std::wstring& path)
{
    Vl::Ptr<iDriveDescription> drive = OS().fileSystem().getDriveDescription(getDrive(path));
    if (!drive)
        return 512;
    std::uint32_t size = drive->getSectorSize();
    return size ? size : 512;
}

bool CDiskFile::exists(const std::wstring& path)
{
    return OS().fileSystem().exists(path);
}

bool CDiskFile::remove(const std::wstring& path)
{
    return std::remove(Morvane::convertString(path).c_str()) == 0;
}

std::wstring getDrive(const std::wstring& path)
{
    return path;
}

} // namespace Pell
