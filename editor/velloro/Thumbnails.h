#pragma once
// velloro thumbnails: a contact sheet of frames spread over a file, each
// with its timecode under it, as a PNG.
#include <cstdint>
#include <string>

#include "host/FileReaderResource.h"

namespace velloro {

// count frames, first and last included, read through reader. False with a
// one-line reason (a picture format this stand-in cannot decode among them).
bool pluginThumbnails(Vl::FileReaderResource& reader, const std::wstring& path, const std::string& png,
                      std::uint32_t count, std::string& error);
int thumbnailsCommand(const char* path, const char* png, std::uint32_t count);

} // namespace velloro
