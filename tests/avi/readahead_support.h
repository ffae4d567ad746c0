#pragma once
// What the read-ahead tests share: files whose every 4-byte word holds its
// own position, DV frames as they lie in a file, and requests in the order
// the host's threads deliver them.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "host/iFile.h"

namespace readaheadtest {

constexpr std::uint64_t kMiB = 1 << 20;
constexpr std::uint64_t kDvStep = 152576; // a 144000-byte frame with its audio, in 512-byte sectors
constexpr std::uint64_t kDvRead = 144384;

// The n bytes at got are the file's bytes at pos.
inline bool holdsPositions(const unsigned char* got, std::uint64_t n, std::uint64_t pos)
{
    for (std::uint64_t q = pos; q < pos + n; ++q)
        if (got[q - pos] != static_cast<unsigned char>(static_cast<std::uint32_t>(q & ~3ull) >> 8 * (q & 3)))
            return false;
    return true;
}

// 0 to count - 1 with eight in flight: each eight in any order (seed 0:
// in order). count is a multiple of eight.
inline std::vector<unsigned> inFlightOrder(unsigned count, unsigned seed)
{
    std::vector<unsigned> order(count);
    for (unsigned k = 0; k < count; ++k)
        order[k] = k;
    std::mt19937 rng(seed);
    for (unsigned b = 0; seed && b + 8 <= count; b += 8)
        std::shuffle(order.begin() + b, order.begin() + b + 8, rng);
    return order;
}

// A file in memory whose every 4-byte word holds its own position, counting
// the disk reads made on it; reads touching failFrom or past it fail.
class MemoryFile : public iFile
{
public:
    explicit MemoryFile(std::uint64_t size) : bytes_(size)
    {
        for (std::uint64_t p = 0; p + 4 <= size; p += 4) {
            auto v = static_cast<std::uint32_t>(p);
            std::memcpy(&bytes_[p], &v, 4);
        }
    }
    std::uint64_t read(void* buf, std::uint64_t n) override
    {
        ++reads;
        bytesRead += n;
        std::uint64_t end = std::min<std::uint64_t>({pos_ + n, bytes_.size(), failFrom});
        if (pos_ >= end)
            return 0;
        std::memcpy(buf, &bytes_[pos_], end - pos_);
        std::uint64_t got = end - pos_;
        pos_ = end;
        return got;
    }
    bool write(const void*, std::uint64_t) override { return false; }
    bool setPosition(std::uint64_t pos) override { return pos_ = pos, true; }
    bool sync() override { return true; }
    std::uint64_t getPosition() const override { return pos_; }
    std::uint64_t getSize() const override { return bytes_.size(); }

    unsigned reads = 0;
    std::uint64_t bytesRead = 0;
    std::uint64_t failFrom = UINT64_MAX;

private:
    std::vector<unsigned char> bytes_;
    std::uint64_t pos_ = 0;
};

} // namespace readaheadtest
