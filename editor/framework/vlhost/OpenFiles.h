#pragma once
#include <string>

namespace vlhost {

// Whether path is, under any name, a file some reader resource has open.
bool isOpenForReading(const std::wstring& path);

} // namespace vlhost
