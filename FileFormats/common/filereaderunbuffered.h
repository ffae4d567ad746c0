#pragma once
#include "FileFormats/common/filereader.h"

namespace Pell {

// Sector-aligned reading: a seek lands on the sector boundary at or before
// the requested byte and remembers the distance (offset_); a read covers
// whole sectors and tells the caller where its byte is in the buffer.
class CFileReaderUnbuffered : public CFileReader
{
public:
    ~CFileReaderUnbuffered() override;

    using CFileReader::load;
    using CFileReader::read;
    HRESULT seek(unsigned long pos, int origin) override;
    virtual HRESULT load(const std::wstring& path, iFile::eFlags flags);
    virtual HRESULT read(unsigned char* buf, unsigned int bufSize, unsigned int n, unsigned int& actual,
                         unsigned int& offset);
    // As read, with the requested byte placed at a buffer index that is a
    // multiple of align.
    virtual HRESULT alignedRead(unsigned long align, unsigned char* buf, unsigned int bufSize, unsigned int n,
                                unsigned int& actual, unsigned int& offset);

    std::uint32_t getOffset() const { return offset_; }

protected:
    std::uint32_t offset_ = 0;
};

} // namespace Pell
