#pragma once
// A description of an AVI file's streams as the container reader sees them.
#include <string>

namespace velloro {

bool aviProbe(const std::wstring& path, std::string& out, std::string& error);

int probeCommand(const char* path);

} // namespace velloro
