// velloro: the editor stand-in's command line.
#include <cstdio>
#include <cstring>
#include <string>

#include "AviFrameMd5.h"
#include "AviProbe.h"
#include "DiskCheck.h"

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: velloro COMMAND [ARGS]\n"
                 "  disk-check [DIR]   write and read back a sector-aligned file in DIR (default: .)\n"
                 "  framemd5 FILE      ffmpeg's framemd5 of FILE's video frames and an MD5 per audio stream\n"
                 "  probe FILE         FILE's streams as the AVI reader sees them\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return usage();
    std::string command = argv[1];
    if (command == "disk-check")
        return velloro::diskCheck(argc > 2 ? argv[2] : ".");
    if (command == "framemd5" && argc == 3)
        return velloro::frameMd5Command(argv[2]);
    if (command == "probe" && argc == 3)
        return velloro::probeCommand(argv[2]);
    return usage();
}
