#include "FileFormats/common/filewriter.h"

#include "host/iFileSystem.h"

namespace Pell {

CFileWriter::~CFileWriter()
{
    close();
}

HRESULT CFileWriter::create(const std::wstring& path)
{
    return internalCreate(path, iFile::eCreateAlways, iFile::eNone);
}

HRESULT CFileWriter::open(const std::wstring& path)
{
    return internalCreate(path, iFile::eOpenExisting, iFile::eNone);
}

HRESULT CFileWriter::internalCreate(const std::wstring& path, const iFile::eOpenBehaviour& behaviour,
                                    const iFile::eFlags& flags)
{
    if (isOpen()) {
        MORVANE_ASSERT(0);
        return E_INVALID_STATE;
    }
    // Stricter than the reader's test on purpose: no real path is this short.
    if (path.size() < 3) {
        MORVANE_ASSERT(0);
        return E_INVALIDARG;
    }
    Vl::Ptr<iFile> file = OS().fileSystem().open(path, iFile::eWrite, behaviour, iFile::eShareRead, flags);
    return holdOpened(file, path, flags);
}

HRESULT CFileWriter::write(unsigned char* buf, unsigned int n, unsigned int& written)
{
    if (!file_)
        return E_FAIL;
    Vl::Ptr<iFile> file = file_;
    if (!file->write(buf, n))
        return HRFromLastError();
    written = n;
    return S_OK;
}

} // namespace Pell
