#pragma once
#include "host/iFileSystem.h"

namespace vlhost {

// The stand-in's file-system service on POSIX files.
class PosixFileSystem final : public iFileSystem
{
public:
    Vl::Ptr<iFile> open(const VlWString& path, iFile::eAccess access, iFile::eOpenBehaviour behaviour,
                        iFile::eShareMode share, iFile::eFlags flags) override;
    bool exists(const VlWString& path) override;
    Vl::Ptr<iDriveDescription> getDriveDescription(const VlWString& path) override;
};

} // namespace vlhost
