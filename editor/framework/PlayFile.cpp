#include "host/FileReadInstance.h"
#include "host/PlayFile.h"

PlayFile::PlayFile(const VlWString& path) : fileName_(path), metadata_(new PlayFileMetadata(path)) {}

PlayFile::~PlayFile() = default;

void PlayFile::VlFileIxCache_open(Vl::Ptr<IndexInfo>&, unsigned) {}

std::int64_t PlayFile::getAudioOrigin() const
{
    return 0;
}

std::int64_t PlayFile::getVideoOrigin() const
{
    return 0;
}

FileReadInstance::FileReadInstance(OpenType type) : PlayFile(VlWString()), openType_(type) {}

FileReadInstance::~FileReadInstance() = default;
