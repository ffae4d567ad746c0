#pragma once
#include <cstdint>

namespace vlhost {

// Frame-sized blocks freed by one request and wanted again by the next.
// Blocks of this size come straight from the system, and each fresh one is
// zeroed page by page as it is first touched: for uncompressed HD that was
// most of the CPU a read took. A few recent ones are kept to be handed out
// again; what is kept is bounded, and a block left for a second goes back to
// the system at the next block freed or wanted.
namespace BlockCache {

// Smallest block worth keeping: smaller ones come from the heap's free lists.
constexpr std::uint64_t kMinBytes = 2u << 20;

// A kept block of at least `bytes` and not much more, or null.
unsigned char* take(std::uint64_t bytes, std::uint64_t& actual);
// Keeps the block (from take or from array new of `bytes`) or frees it.
void give(unsigned char* block, std::uint64_t bytes);
// The bytes kept now.
std::uint64_t keptBytes();

} // namespace BlockCache

} // namespace vlhost
