#include "OutputFile.h"

#include <sys/stat.h>

#include <cstdio>

namespace velloro {

bool mayWrite(const char* command, const char* in, const char* out, bool overwrite)
{
    struct stat o, i;
    const char* why = nullptr;
    if (in && ::stat(out, &o) == 0 && ::stat(in, &i) == 0 && o.st_dev == i.st_dev && o.st_ino == i.st_ino)
        why = "is the input file";
    else if (!overwrite && ::lstat(out, &o) == 0)
        why = "exists (use -y to overwrite)";
    if (why)
        std::fprintf(stderr, "velloro %s: %s: %s\n", command, out, why);
    return !why;
}

} // namespace velloro
