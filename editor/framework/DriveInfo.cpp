#include "DriveInfo.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <climits>
#include <cstdlib>
#include <fstream>

namespace vlhost {

namespace {

std::uint32_t readBlockSize(const std::string& file)
{
    std::ifstream in(file);
    unsigned long value = 0;
    if (!(in >> value) || value == 0 || value > (1u << 20) || (value & (value - 1)) != 0)
        return 0;
    return static_cast<std::uint32_t>(value);
}

} // namespace

std::uint32_t logicalBlockSize(const std::string& path)
{
    std::string probe = path.empty() ? std::string(1, '.') : path;
    struct stat st;
    while (::stat(probe.c_str(), &st) != 0) {
        auto slash = probe.find_last_of('/');
        if (slash == std::string::npos) {
            if (::stat(".", &st) != 0)
                return 0;
            break;
        }
        if (slash == 0 && probe.size() == 1)
            return 0;
        probe.resize(slash == 0 ? 1 : slash);
    }
    if (major(st.st_dev) == 0)
        return 0; // tmpfs, overlay and other devices without a block queue

    std::string dev = "/sys/dev/block/" + std::to_string(major(st.st_dev)) + ":" + std::to_string(minor(st.st_dev));
    if (auto size = readBlockSize(dev + "/queue/logical_block_size"))
        return size;
    // A partition keeps its queue on the whole disk, one level up.
    char resolved[PATH_MAX];
    if (::realpath(dev.c_str(), resolved))
        return readBlockSize(std::string(resolved) + "/../queue/logical_block_size");
    return 0;
}

} // namespace vlhost
