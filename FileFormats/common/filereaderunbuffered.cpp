#include "FileFormats/common/filereaderunbuffered.h"

namespace Pell {

CFileReaderUnbuffered::~CFileReaderUnbuffered()
{
    close();
}

HRESULT CFileReaderUnbuffered::load(const std::wstring& path, iFile::eFlags flags)
{
    return internalOpen(path, flags);
}

HRESULT CFileReaderUnbuffered::seek(unsigned long pos, int origin)
{
    offset_ = sectorSize_ ? static_cast<std::uint32_t>(pos % sectorSize_) : 0;
    return CDiskFile::seek(pos - offset_, origin);
}

HRESULT CFileReaderUnbuffered::read(unsigned char* buf, unsigned int bufSize, unsigned int n, unsigned int& actual,
                                    unsigned int& offset)
{
    // In 64 bits: n + offset_ rounded up must not wrap into a small request.
    unsigned long toRead = roundUpToSectorBoundary(static_cast<unsigned long>(n) + offset_);
    if (toRead > bufSize)
        return E_INSUFFICIENT_BUFFER;
    if (!file_)
        return E_FAIL;
    Vl::Ptr<iFile> file = file_;
    std::uint64_t got = file->read(buf, toRead);
    if (got == 0)
        return HRFromLastError();
    actual = static_cast<unsigned int>(got);
    offset = offset_;
    MORVANE_ASSERT(actual >= offset_);
    return S_OK;
}

HRESULT CFileReaderUnbuffered::alignedRead(unsigned long align, unsigned char* buf, unsigned int bufSize,
                                           unsigned int n, unsigned int& actual, unsigned int& offset)
{
    unsigned long rest = align ? offset_ % align : 0;
    unsigned long pad = rest ? align - rest : 0;
    if (pad > bufSize)
        return E_INSUFFICIENT_BUFFER;
    HRESULT hr = read(buf + pad, static_cast<unsigned int>(bufSize - pad), n, actual, offset);
    if (SUCCEEDED(hr))
        offset += static_cast<unsigned int>(pad);
    return hr;
}

} // namespace Pell
