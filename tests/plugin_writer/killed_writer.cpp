// velloro render killed part-way, for the kill test: the stand-in's files
// kill the process once the take's file would pass a size, or at one of its
// write calls. Without a kill point it prints the take's write calls.
// usage: velloro_killed_writer OUT size|call|none N SECONDS
// (64x48 UYVY at 30000/1001 with stereo 48 kHz audio)
#include <cstdio>
#include <cstdlib>
#include <string>

#include "PluginWrite.h"
#include "util/stringUtils.h"
#include "vlhost/FileFaults.h"
#include "vlhost/HostStats.h"

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    const std::string kind = argv[2];
    const long long n = std::atoll(argv[3]);
    vlhost::FileFaults faults;
    if (kind == "size")
        faults.killAtSize = n;
    else if (kind == "call")
        faults.killAtWriteCall = n;
    else if (kind != "none")
        return 2;
    vlhost::setFileFaults(Morvane::convertString(argv[1]), faults);
    const std::uint64_t before = vlhost::fileWriteCalls();
    velloro::RenderOptions options;
    options.width = 64;
    options.height = 48;
    options.seconds = std::atof(argv[4]);
    const int rc = velloro::renderCommand(argv[1], true, options, true);
    std::printf("%llu\n", static_cast<unsigned long long>(vlhost::fileWriteCalls() - before));
    return rc;
}
