#pragma once
// Checks every written file against the fixed layout: sector-aligned
// chunks, the movi head with its index regions, ix##, indx and idx1.
#include <gtest/gtest.h>

#include <algorithm>

#include "writer_support.h"

namespace writertest {

struct Expected
{
    std::uint64_t capacity; // C
    std::uint32_t frames;
    std::vector<std::string> chunkIds; // per stream, "00db" etc.
};

inline std::string ixId(std::uint32_t k)
{
    return "ix" + std::string(k < 10 ? "0" : "") + std::to_string(k);
}

struct StreamChunk
{
    std::uint64_t offset;
    std::uint32_t size;
};

inline void checkLayout(const Walk& w, const Expected& e)
{
    ASSERT_TRUE(w.ok) << w.problem;
    const auto& d = w.data;
    const std::uint32_t S = 512, N = static_cast<std::uint32_t>(e.chunkIds.size());
    auto riffs = w.find("RIFF");
    ASSERT_FALSE(riffs.empty());
    EXPECT_EQ(riffs[0]->listType, "AVI ");
    for (std::size_t r = 1; r < riffs.size(); ++r)
        EXPECT_EQ(riffs[r]->listType, "AVIX");
    // The RIFFs fill the file exactly.
    const Chunk* last = riffs.back();
    EXPECT_EQ(last->offset + 8 + last->size, d.size());

    auto movis = w.find("LIST", "movi");
    ASSERT_EQ(movis.size(), riffs.size());
    const std::uint64_t H = movis[0]->offset;
    EXPECT_EQ(H % S, 0u);
    const std::uint64_t R = 65536ull * N;

    // Per RIFF: the movi head, then only data chunks each followed by a JUNK.
    std::vector<std::vector<std::vector<StreamChunk>>> perRiff(riffs.size(),
                                                               std::vector<std::vector<StreamChunk>>(N));
    for (std::size_t r = 0; r < riffs.size(); ++r) {
        const std::uint64_t riffStart = riffs[r]->offset;
        const std::uint64_t movi = movis[r]->offset;
        if (r > 0) {
            EXPECT_EQ(movi, riffStart + 12);
            EXPECT_EQ(riffStart % S, 0u);
        }
        const std::uint64_t headEnd = (r == 0 ? 0 : riffStart) + (r == 0 ? e.capacity : R + S);
        EXPECT_EQ(fcc(rd32(d, movi + 12)), "JUNK");
        const std::uint64_t junk = rd32(d, movi + 16) + 8ull;
        EXPECT_EQ(movi + 12 + junk + R, headEnd) << "movi head of RIFF " << r;
        for (std::uint32_t k = 0; k < N; ++k) {
            EXPECT_EQ(fcc(rd32(d, movi + 12 + junk + 65536ull * k)), ixId(k));
            EXPECT_EQ(rd32(d, movi + 12 + junk + 65536ull * k + 4), 65528u);
        }
        const std::uint64_t moviEnd = movi + 8 + movis[r]->size;
        std::uint64_t p = headEnd;
        bool expectJunk = false;
        while (p + 8 <= moviEnd) {
            std::string id = fcc(rd32(d, p));
            std::uint32_t size = rd32(d, p + 4);
            if (expectJunk) {
                EXPECT_EQ(id, "JUNK") << "after the chunk before " << p;
                std::uint64_t next = p + 8 + size;
                EXPECT_EQ(next % S, 0u) << "chunk after JUNK at " << p;
                // The shortest JUNK of at least 12 bytes that reaches the sector: a
                // chunk that ends on one gets a whole sector, one 4 bytes short S + 4.
                EXPECT_TRUE(size + 8u >= 12 && size + 8u < 12 + S) << "JUNK of " << size + 8 << " at " << p;
                expectJunk = false;
                p = next;
                continue;
            }
            EXPECT_EQ(p % S, 0u) << id << " at " << p;
            const std::size_t k = std::find(e.chunkIds.begin(), e.chunkIds.end(), id) - e.chunkIds.begin();
            EXPECT_LT(k, N) << "unexpected chunk " << id << " at " << p;
            if (k < N)
                perRiff[r][k].push_back({p, size});
            p += 8 + size + (size & 1);
            expectJunk = true;
        }
        EXPECT_FALSE(expectJunk);
        EXPECT_EQ(p, moviEnd);
    }
    // The first essence chunk lies at C.
    if (e.frames) {
        ASSERT_FALSE(perRiff[0][0].empty());
        EXPECT_EQ(perRiff[0][0][0].offset, e.capacity);
    }

    // idx1: right after the first movi, offsets relative to the "movi" word.
    auto idx1 = w.find("idx1");
    ASSERT_EQ(idx1.size(), e.frames ? 1u : 0u);
    if (!idx1.empty()) {
        EXPECT_EQ(idx1[0]->offset, movis[0]->offset + 8 + movis[0]->size);
        std::uint32_t n0 = static_cast<std::uint32_t>(perRiff[0][0].size());
        EXPECT_EQ(idx1[0]->size, n0 * 16u * N);
        const std::uint64_t moviWord = H + 8;
        for (std::uint32_t i = 0; i < n0; ++i) {
            for (std::uint32_t k = 0; k < N; ++k) {
                std::uint64_t at = idx1[0]->offset + 8 + (static_cast<std::uint64_t>(i) * N + k) * 16;
                ASSERT_LT(i, perRiff[0][k].size());
                EXPECT_EQ(fcc(rd32(d, at)), e.chunkIds[k]);
                EXPECT_EQ(rd32(d, at + 4), 16u);
                EXPECT_EQ(rd32(d, at + 8), perRiff[0][k][i].offset - moviWord);
                EXPECT_EQ(rd32(d, at + 12), perRiff[0][k][i].size);
            }
        }
        // idx1 and its JUNK end the first RIFF on a sector.
        std::uint64_t junkAt = idx1[0]->offset + 8 + idx1[0]->size;
        EXPECT_EQ(fcc(rd32(d, junkAt)), "JUNK");
        EXPECT_EQ((junkAt + 8 + rd32(d, junkAt + 4)) % S, 0u);
        EXPECT_EQ(junkAt + 8 + rd32(d, junkAt + 4), riffs[0]->offset + 8 + riffs[0]->size);
    }

    // Super indexes and the ix## chunks they name.
    auto strh = w.find("strh");
    auto indx = w.find("indx");
    ASSERT_EQ(strh.size(), N);
    ASSERT_EQ(indx.size(), N);
    for (std::uint32_t k = 0; k < N; ++k) {
        const std::uint64_t at = indx[k]->offset;
        EXPECT_EQ(rd16(d, at + 8), 4u);
        EXPECT_EQ(d[at + 11], 0u);
        EXPECT_EQ(fcc(rd32(d, at + 16)), e.chunkIds[k]);
        const std::uint32_t inUse = rd32(d, at + 12);
        const auto withData = std::count_if(perRiff.begin(), perRiff.end(), [&](auto& r) { return !r[k].empty(); });
        EXPECT_EQ(inUse, static_cast<std::uint32_t>(withData)) << "stream " << k;
        std::uint64_t durations = 0;
        for (std::uint32_t s = 0; s < inUse && s < riffs.size(); ++s) {
            const std::uint64_t qwOffset = rd64(d, at + 32 + 16ull * s);
            EXPECT_EQ(rd32(d, at + 32 + 16ull * s + 8), 65528u);
            durations += rd32(d, at + 32 + 16ull * s + 12);
            EXPECT_EQ(fcc(rd32(d, qwOffset)), ixId(k));
            // The standard index of RIFF s.
            const std::uint8_t subType = d[qwOffset + 10];
            EXPECT_EQ(d[qwOffset + 11], 1u);
            const std::uint32_t entries = rd32(d, qwOffset + 12);
            ASSERT_EQ(entries, perRiff[s][k].size());
            EXPECT_EQ(fcc(rd32(d, qwOffset + 16)), e.chunkIds[k]);
            const std::uint64_t base = rd64(d, qwOffset + 20);
            EXPECT_EQ(base, movis[s]->offset);
            for (std::uint32_t i = 0; i < entries; ++i) {
                if (subType == 0) {
                    EXPECT_EQ(rd16(d, qwOffset + 8), 2u);
                    const std::uint64_t entry = qwOffset + 32 + 8ull * i;
                    EXPECT_EQ(rd32(d, entry) + base, perRiff[s][k][i].offset + 8);
                    EXPECT_EQ(rd32(d, entry + 4), perRiff[s][k][i].size);
                } else {
                    EXPECT_EQ(subType, 16u);
                    EXPECT_EQ(rd16(d, qwOffset + 8), 6u);
                    const std::uint64_t entry = qwOffset + 32 + 24ull * i;
                    EXPECT_EQ(rd64(d, entry), perRiff[s][k][i].offset);
                    EXPECT_EQ(rd32(d, entry + 8) & 0x1FFFFFFFu, perRiff[s][k][i].size);
                }
            }
        }
        EXPECT_EQ(durations, rd32(d, strh[k]->offset + 8 + 32)) << "stream " << k;
    }
    std::uint64_t total = 0;
    for (const auto& r : perRiff)
        total += r[0].size();
    EXPECT_EQ(total, e.frames);
    auto avih = w.find("avih");
    auto dmlh = w.find("dmlh");
    ASSERT_EQ(avih.size(), 1u);
    ASSERT_EQ(dmlh.size(), 1u);
    EXPECT_EQ(rd32(d, avih[0]->offset + 8 + 16), e.frames);
    EXPECT_EQ(rd32(d, dmlh[0]->offset + 8), e.frames);
    EXPECT_EQ(rd32(d, strh[0]->offset + 8 + 32), e.frames);
}

} // namespace writertest
