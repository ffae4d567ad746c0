#pragma once
#include "AVI/FileInfo.h"
#include "host/FileReaderCommon.h"

namespace avi {

// The component through which the editor reads AVI files.
class FileReader : public Vl::FileReaderCommon<FileInfo>
{
public:
    FileReader();
    ~FileReader() override;

    int priority() const override;
    int isFileFormatSupported(const VlWString& path, FileReadInstance::OpenType type,
                              const PlayFileMetadata& metadata) override;
    std::uint32_t getMaxRequests() const override;
    std::uint32_t getOutputImageFormat(Vl::Ptr<FileReadInstance>& instance) override;
};

} // namespace avi
