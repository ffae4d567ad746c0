#pragma once
#include "VlPtr.h"
#include "VlWString.h"
#include "iDriveDescription.h"
#include "iFile.h"

class iFileSystem
{
public:
    virtual ~iFileSystem() = default;
    // Null on failure, with the reason in errno.
    virtual Vl::Ptr<iFile> open(const VlWString& path, iFile::eAccess access, iFile::eOpenBehaviour behaviour,
                                iFile::eShareMode share, iFile::eFlags flags) = 0;
    virtual bool exists(const VlWString& path) = 0;
    // Null when nothing is known of the drive.
    virtual Vl::Ptr<iDriveDescription> getDriveDescription(const VlWString& path) = 0;
};
