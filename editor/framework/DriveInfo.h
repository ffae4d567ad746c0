#pragma once
#include <cstdint>
#include <string>

namespace vlhost {

// Logical block size of the block device holding path (or, for a path that
// does not exist yet, its nearest existing parent); 0 when it cannot be found.
std::uint32_t logicalBlockSize(const std::string& path);

} // namespace vlhost
