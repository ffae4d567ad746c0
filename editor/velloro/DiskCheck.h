#pragma once
#include <string>

namespace velloro {

// Writes a file of whole sectors through the unbuffered writer and reads it
// back at unaligned offsets through the unbuffered reader; 0 when every
// byte came back.
int diskCheck(const std::string& dir);

} // namespace velloro
