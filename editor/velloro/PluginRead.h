#pragma once
// The AVI commands, worked through the plug-in's reader component only.
#include <string>

#include "host/FileReaderResource.h"

namespace velloro {

// Opens path through reader; null with a one-line reason in error.
Vl::Ptr<FileReadInstance> openThrough(Vl::FileReaderResource& reader, const std::wstring& path, std::string& error);

// What the editor would show of the file: text lines, or one JSON object.
bool pluginProbe(Vl::FileReaderResource& reader, const std::wstring& path, bool json, std::string& out,
                 std::string& error);

// ffmpeg's framemd5 lines of the first video stream, read with many requests
// in flight, then one "audio N MD5=<hex>" line per audio stream read with
// audio requests. A dropped frame is ffmpeg's empty packet, or, asServed,
// the frame the editor is handed for it.
bool pluginFrameMd5(Vl::FileReaderResource& reader, const std::wstring& path, std::string& out, std::string& error,
                    bool asServed = false);

int pluginProbeCommand(const char* path, bool json);
int pluginFrameMd5Command(const char* path);

} // namespace velloro
