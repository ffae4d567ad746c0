#include "FileFormats/common/filereader.h"

#include "host/iFileSystem.h"

namespace Pell {

CFileReader::~CFileReader()
{
    close();
}

HRESULT CFileReader::load(const std::wstring& path)
{
    return internalOpen(path, iFile::eNone);
}

HRESULT CFileReader::internalOpen(const std::wstring& path, const iFile::eFlags& flags)
{
    if (isOpen()) {
        MORVANE_ASSERT(0);
        return E_INVALID_STATE;
    }
    if (path.empty()) {
        MORVANE_ASSERT(0);
        return E_INVALIDARG;
    }
    Vl::Ptr<iFile> file = OS().fileSystem().open(path, iFile::eRead, iFile::eOpenExisting, iFile::eShareReadWrite, flags);
    return holdOpened(file, path, flags);
}

HRESULT CFileReader::read(unsigned char* buf, unsigned int n, unsigned int& actual)
{
    if (!file_)
        return E_FAIL;
    Vl::Ptr<iFile> file = file_;
    std::uint64_t got = file->read(buf, n);
    if (got == 0)
        return HRFromLastError();
    actual = static_cast<unsigned int>(got);
    return S_OK;
}

} // namespace Pell
