// velloro: the editor stand-in's command line.
#include <cstdio>
#include <cstring>
#include <string>

#include "DiskCheck.h"
#include "PluginRead.h"

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: velloro COMMAND [ARGS]\n"
                 "  disk-check [DIR]     write and read back a sector-aligned file in DIR (default: .)\n"
                 "  framemd5 FILE        ffmpeg's framemd5 of FILE's video frames and an MD5 per audio stream\n"
                 "  probe FILE [--json]  what the editor learns of FILE through the AVI plug-in\n"
                 "The plug-in is lib/libvelloro_avi.so beside bin/, or $VELLORO_PLUGIN.\n");
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
        return velloro::pluginFrameMd5Command(argv[2]);
    if (command == "probe" && (argc == 3 || (argc == 4 && std::strcmp(argv[3], "--json") == 0)))
        return velloro::pluginProbeCommand(argv[2], argc == 4);
    return usage();
}
