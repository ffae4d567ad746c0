#pragma once
#include "FileFormats/common/diskfile.h"

namespace Pell {

// A disk file opened for writing.
class CFileWriter : public CDiskFile
{
public:
    ~CFileWriter() override;

    virtual HRESULT create(const std::wstring& path);
    virtual HRESULT open(const std::wstring& path);
    virtual HRESULT write(unsigned char* buf, unsigned int n, unsigned int& written);

protected:
    virtual HRESULT internalCreate(const std::wstring& path, const iFile::eOpenBehaviour& behaviour,
                                   const iFile::eFlags& flags);
};

} // namespace Pell
