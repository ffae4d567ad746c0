#pragma once
#include "FileFormats/common/diskfile.h"

namespace Pell {

// A disk file opened for reading.
class CFileReader : public CDiskFile
{
public:
    ~CFileReader() override;

    virtual HRESULT load(const std::wstring& path);
    virtual HRESULT read(unsigned char* buf, unsigned int n, unsigned int& actual);

protected:
    virtual HRESULT internalOpen(const std::wstring& path, const iFile::eFlags& flags);
};

} // namespace Pell
