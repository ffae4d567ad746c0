#include "host/PlayFileMetadata.h"

PlayFileMetadata::PlayFileMetadata(const VlWString& path) : path_(path) {}

PlayFileMetadata::~PlayFileMetadata() = default;
