#pragma once
// ffmpeg's framemd5 lines for an AVI file, read through the container
// reader alone (the plug-in's own is velloro framemd5): every video frame ("stream, dts, pts, duration, size, hash"),
// then one "audio N MD5=<hex>" line per audio stream.
#include <string>

namespace avitest {

// False with a message in error when the file cannot be read through.
bool aviFrameMd5(const std::wstring& path, std::string& out, std::string& error);

} // namespace avitest
