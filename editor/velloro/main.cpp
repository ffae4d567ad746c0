// velloro: the editor stand-in's command line.
#include <cstdio>
#include <cstring>
#include <string>

#include "DiskCheck.h"

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: velloro COMMAND [ARGS]\n"
                 "  disk-check [DIR]   write and read back a sector-aligned file in DIR (default: .)\n");
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
    return usage();
}
