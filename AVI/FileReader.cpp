#include "AVI/FileReader.h"

#include "host/DecoderInfo.h"

namespace avi {

FileReader::FileReader() : Vl::FileReaderCommon<FileInfo>("AVI FileReader", 77)
{
    addFileType(L"AVI");
}

FileReader::~FileReader()
{
    // No worker may still be inside this object's overrides.
    stopRequests();
}

int FileReader::priority() const
{
    return 100;
}

std::uint32_t FileReader::getMaxRequests() const
{
    return 32;
}

int FileReader::isFileFormatSupported(const VlWString& path, FileReadInstance::OpenType type,
                                      const PlayFileMetadata& metadata)
{
    if (!isFileTypeSupported(path, type))
        return 0;
    int aviType = 0;
    // Files marked with an AVI type belong to another reader.
    if (metadata.config().in("avi_type", aviType) == 1)
        return 0;
    int bits = 0;
    const Aud::Metadata& audio = metadata.audio();
    std::uint32_t dataType = audio.dataType();
    if (dataType >= 200 && dataType <= 259 && dataType != Aud::eDataImaAdpcm && dataType != Aud::eDataAdpcm &&
        audio.sampleTypeNumber() != Aud::kInvalidSampleType)
        bits |= 2;
    if (Vl::DecoderInfo::isDecodable(metadata))
        bits |= 1;
    return bits;
}

std::uint32_t FileReader::getOutputImageFormat(Vl::Ptr<FileReadInstance>& instance)
{
    return instance ? instance->metadata()->video().image().dataFormat : 0;
}

} // namespace avi
