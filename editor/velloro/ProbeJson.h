#pragma once
// velloro probe --json: what the editor learns of a file, in the shape of
// ffprobe's -show_streams -show_format JSON, so that scripts written around
// ffprobe read it, plus an "editor" object with what only the plug-in says.
#include <cstdint>
#include <string>

#include "host/PlayFileMetadata.h"

namespace velloro {

// supported: the reader's isFileFormatSupported bits; size: the file's
// bytes; audioSamples: the samples the first audio stream really holds (the
// editor is told the video's length in samples).
std::string probeJson(const PlayFileMetadata& md, int supported, std::uint64_t size, std::uint64_t audioSamples);

} // namespace velloro
