#include "FileFormats/common/filewriterunbuffered.h"

namespace Pell {

CFileWriterUnbuffered::~CFileWriterUnbuffered()
{
    close();
}

HRESULT CFileWriterUnbuffered::create(std::wstring path, iFile::eFlags flags)
{
    return internalCreate(path, iFile::eCreateAlways, flags);
}

HRESULT CFileWriterUnbuffered::write(unsigned char* buf, unsigned int n, unsigned int& written)
{
    if (sectorSize_ == 0 || n % sectorSize_ != 0) {
        MORVANE_ASSERT(FALSE);
        return E_INVALIDARG;
    }
    return CFileWriter::write(buf, n, written);
}

HRESULT CFileWriterUnbuffered::seek(unsigned long pos, unsigned long* oldPos, int origin)
{
    if (sectorSize_ == 0 || pos % sectorSize_ != 0)
        return E_INVALIDARG;
    if (oldPos)
        *oldPos = getPos();
    return CDiskFile::seek(pos, origin);
}

} // namespace Pell
