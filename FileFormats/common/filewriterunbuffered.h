#pragma once
#include "FileFormats/common/filewriter.h"

namespace Pell {

// Sector-aligned writing: whole sectors at sector-aligned positions only.
class CFileWriterUnbuffered : public CFileWriter
{
public:
    ~CFileWriterUnbuffered() override;

    using CFileWriter::create;
    using CDiskFile::seek;
    HRESULT write(unsigned char* buf, unsigned int n, unsigned int& written) override;
    virtual HRESULT create(std::wstring path, iFile::eFlags flags);
    virtual HRESULT seek(unsigned long pos, unsigned long* oldPos, int origin);
};

} // namespace Pell
