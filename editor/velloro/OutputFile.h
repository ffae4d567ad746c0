#pragma once
// The checks that every command writing an OUT file makes first.

namespace velloro {

// Whether out may be written: never the input itself under any name (same
// device and inode), and an existing file only when the user said so (-y).
// Says why not on stderr in one line, as "velloro COMMAND: OUT: why".
bool mayWrite(const char* command, const char* in, const char* out, bool overwrite);

} // namespace velloro
