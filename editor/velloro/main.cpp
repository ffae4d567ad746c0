// velloro: the editor stand-in's command line.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "DiskCheck.h"
#include "PluginRead.h"
#include "PluginWrite.h"
#include "Repair.h"

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: velloro COMMAND [ARGS]\n"
                 "  disk-check [DIR]     write and read back a sector-aligned file in DIR (default: .)\n"
                 "  framemd5 FILE        ffmpeg's framemd5 of FILE's video frames and an MD5 per audio stream\n"
                 "  probe FILE [--json]  what the editor learns of FILE through the AVI plug-in\n"
                 "  export IN OUT [-y]   write IN again as OUT through the plug-in's reader and writer\n"
                 "  render OUT [-y] [--format UYVY|YUY2|M101|M102|v210] [--size WxH] [--rate N/D]\n"
                 "         [--seconds S] [--audio CHANNELSxRATE|none]\n"
                 "                       colour bars and a tone written through the plug-in\n"
                 "                       (default: 2 s of 1920x1080 UYVY at 30000/1001, stereo 48 kHz)\n"
                 "  repair IN [OUT] [-y] rebuild a file whose writer was killed: every whole video frame\n"
                 "                       and the audio before the end of the last one are kept; without\n"
                 "                       OUT, IN is repaired in place (new index after the last frame,\n"
                 "                       then the sizes). Files without video are refused.\n"
                 "  -y, --overwrite      replace an existing OUT (never IN, under any name)\n"
                 "Ctrl-C or SIGTERM stops export and render after the frame being written and\n"
                 "closes OUT with the frames so far; the status is then 130 (SIGINT) or 143.\n"
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
    if (command != "export" && command != "render" && command != "repair")
        return usage();
    // -y anywhere after the command; the rest keep their order.
    bool overwrite = false;
    std::vector<char*> rest;
    for (int i = 2; i < argc; ++i) {
        if (std::strcmp(argv[i], "-y") == 0 || std::strcmp(argv[i], "--overwrite") == 0)
            overwrite = true;
        else
            rest.push_back(argv[i]);
    }
    if (command == "repair" && (rest.size() == 1 || rest.size() == 2))
        return velloro::repairCommand(rest[0], rest.size() == 2 ? rest[1] : nullptr, overwrite);
    if (command == "export" && rest.size() == 2)
        return velloro::exportCommand(rest[0], rest[1], overwrite);
    if (command == "render" && !rest.empty())
        return velloro::renderCommand(rest[0], overwrite, static_cast<int>(rest.size() - 1), rest.data() + 1);
    return usage();
}
