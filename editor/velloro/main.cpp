// velloro: the editor stand-in's command line.
#include <cstdio>
#include <cstring>
#include <string>

#include "DiskCheck.h"
#include "PluginRead.h"
#include "PluginWrite.h"

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: velloro COMMAND [ARGS]\n"
                 "  disk-check [DIR]     write and read back a sector-aligned file in DIR (default: .)\n"
                 "  framemd5 FILE        ffmpeg's framemd5 of FILE's video frames and an MD5 per audio stream\n"
                 "  probe FILE [--json]  what the editor learns of FILE through the AVI plug-in\n"
                 "  export IN OUT        write IN again as OUT through the plug-in's reader and writer\n"
                 "  render OUT [--format UYVY|YUY2|M101|M102|v210] [--size WxH] [--rate N/D]\n"
                 "         [--seconds S] [--audio CHANNELSxRATE|none]\n"
                 "                       colour bars and a tone written through the plug-in\n"
                 "                       (default: 2 s of 1920x1080 UYVY at 30000/1001, stereo 48 kHz)\n"
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
    if (command == "export" && argc == 4)
        return velloro::exportCommand(argv[2], argv[3]);
    if (command == "render" && argc >= 3)
        return velloro::renderCommand(argv[2], argc - 3, argv + 3);
    return usage();
}
