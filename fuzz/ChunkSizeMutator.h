#pragma once
// A mutator that knows RIFF: it finds the chunks of an input (descending into
// RIFF and LIST) and rewrites one chunk's size field with a value parsers get
// wrong: 0, odd, one past its parent, just short of 4 GiB, wrapping. Byte-level
// mutation rarely hits a size field with such a value; the reader targets mix
// both.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace fuzz {

struct ChunkAt
{
    std::size_t header;    // where the chunk id is
    std::uint32_t size;    // its size field
    std::size_t parentEnd; // where its parent ends in the input
};

// The chunks in data[begin, end), recursively; bounded so that a hostile
// input cannot make the walk itself slow.
inline void findChunks(const std::uint8_t* data, std::size_t begin, std::size_t end, int depth,
                       std::vector<ChunkAt>& out)
{
    std::size_t at = begin;
    while (at + 8 <= end && out.size() < 4096) {
        std::uint32_t size;
        std::memcpy(&size, data + at + 4, 4);
        out.push_back({at, size, end});
        bool list = std::memcmp(data + at, "RIFF", 4) == 0 || std::memcmp(data + at, "LIST", 4) == 0;
        std::size_t bodyEnd = at + 8 + static_cast<std::size_t>(size);
        if (bodyEnd > end || bodyEnd < at)
            bodyEnd = end;
        if (list && depth < 8 && at + 12 <= bodyEnd)
            findChunks(data, at + 12, bodyEnd, depth + 1, out);
        at = bodyEnd + (size & 1);
        if (at <= out.back().header)
            break;
    }
}

inline std::uint32_t hostileSize(const ChunkAt& c, std::mt19937& rng)
{
    std::uint32_t room = static_cast<std::uint32_t>(c.parentEnd - c.header - 8);
    switch (rng() % 10) {
    case 0: return 0;
    case 1: return c.size + 1;
    case 2: return c.size - 1;
    case 3: return room + 1;
    case 4: return room + 8;
    case 5: return 0xFFFFFFF8u;
    case 6: return 0xFFFFFFFFu;
    case 7: return 0x80000000u | c.size;
    case 8: return c.size * 2;
    default: return static_cast<std::uint32_t>(rng());
    }
}

// One mutation: half the time a chunk size, otherwise libFuzzer's own.
inline std::size_t mutateChunkSizes(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned seed)
{
    std::mt19937 rng(seed);
    if (rng() % 2) {
        std::vector<ChunkAt> chunks;
        findChunks(data, 0, size, 0, chunks);
        if (!chunks.empty()) {
            const ChunkAt& c = chunks[rng() % chunks.size()];
            std::uint32_t v = hostileSize(c, rng);
            std::memcpy(data + c.header + 4, &v, 4);
            return size;
        }
    }
    return LLVMFuzzerMutate(data, size, maxSize);
}

} // namespace fuzz
