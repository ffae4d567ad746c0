#pragma once
// Helpers of the writer tests: track descriptions, frame bytes, an
// independent walk over the chunks of a written file and its check against
// the fixed layout, and what ffmpeg makes of the file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "avi/mpeg2_codec_block.h"
#include "avi/tracks.h"
#include "common/FfmpegFiles.h"
#include "util/fourcc.h"
#include "util/stringUtils.h"

namespace writertest {

using namespace Morvane::Avi;
using Morvane::convertString;
using testutil::run;
using avitest::audioTrack;
using avitest::videoTrack;

// The header track; flags 0: no start timecode given.
inline TrackStructuralData timecodeTrack(std::uint32_t start, std::uint32_t flags = 0)
{
    TrackStructuralData t = {};
    t.Type = StreamTimecode;
    t.Data.TCInfo.startFrame = start;
    t.Data.TCInfo.flags = flags;
    return t;
}

// A long-GOP MPEG-2 track: its media type says temporal compression, so
// the stream gets the IBP index.
struct Mpeg2Track
{
    std::vector<unsigned char> extra = testutil::mpeg2CodecBlock();
    TrackStructuralData track = videoTrack("MMES", 720, 576, 25, 1);

    Mpeg2Track()
    {
        track.pExtraData = extra.data();
        track.cbExtra = static_cast<std::uint32_t>(extra.size());
        track.Data.VInfo.gopLength = 12;
    }
    Mpeg2Track(const Mpeg2Track&) = delete;
    Mpeg2Track& operator=(const Mpeg2Track&) = delete;
};

// Bytes that tell frame f of track k apart from every other chunk.
inline std::vector<unsigned char> payload(std::uint32_t k, std::uint32_t f, std::uint32_t size)
{
    std::vector<unsigned char> v(size);
    std::uint32_t x = (k + 1) * 2654435761u ^ (f * 40503u + 17u);
    for (auto& b : v) {
        x = x * 1664525u + 1013904223u;
        b = static_cast<unsigned char>(x >> 24);
    }
    return v;
}

// A little-endian field of the file, or 0 past its end.
template <class T>
T rd(const std::vector<unsigned char>& d, std::uint64_t at)
{
    T v = 0;
    if (at + sizeof v <= d.size())
        std::memcpy(&v, d.data() + at, sizeof v);
    return v;
}
inline std::uint16_t rd16(const std::vector<unsigned char>& d, std::uint64_t at) { return rd<std::uint16_t>(d, at); }
inline std::uint32_t rd32(const std::vector<unsigned char>& d, std::uint64_t at) { return rd<std::uint32_t>(d, at); }
inline std::uint64_t rd64(const std::vector<unsigned char>& d, std::uint64_t at) { return rd<std::uint64_t>(d, at); }

inline std::string fcc(std::uint32_t v)
{
    return std::string(reinterpret_cast<const char*>(&v), 4);
}

struct Chunk
{
    std::string id;
    std::string listType; // for RIFF and LIST
    std::uint64_t offset; // of the chunk header
    std::uint32_t size;
};

// All chunks of the file in order, lists and their contents included.
struct Walk
{
    std::vector<unsigned char> data;
    std::vector<Chunk> chunks;
    std::string problem; // empty while the chunks nest properly

    explicit Walk(const std::wstring& path)
    {
        std::ifstream in(convertString(path), std::ios::binary);
        data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        for (std::uint64_t pos = 0; pos + 12 <= data.size() && problem.empty(); pos += 8 + rd32(data, pos + 4)) {
            if (fcc(rd32(data, pos)) != "RIFF")
                problem = "top level chunk is not RIFF at " + std::to_string(pos);
            else
                walkList(pos, pos + 8 + rd32(data, pos + 4));
        }
    }

    void walkList(std::uint64_t pos, std::uint64_t end)
    {
        if (end > data.size()) {
            problem = "list past the file end at " + std::to_string(pos);
            return;
        }
        chunks.push_back({fcc(rd32(data, pos)), fcc(rd32(data, pos + 8)), pos, rd32(data, pos + 4)});
        for (std::uint64_t p = pos + 12; p + 8 <= end && problem.empty();) {
            const std::string id = fcc(rd32(data, p));
            const std::uint32_t size = rd32(data, p + 4);
            const std::uint64_t next = p + 8 + size + (size & 1);
            if (next > end)
                problem = "chunk " + id + " past its list at " + std::to_string(p);
            else if (id == "LIST" || id == "RIFF")
                walkList(p, p + 8 + size);
            else
                chunks.push_back({id, "", p, size});
            p = next;
        }
    }

    std::vector<const Chunk*> find(const std::string& id, const std::string& listType = "") const
    {
        std::vector<const Chunk*> out;
        for (const Chunk& c : chunks)
            if (c.id == id && (listType.empty() || c.listType == listType))
                out.push_back(&c);
        return out;
    }
};

struct Expected
{
    std::uint64_t capacity; // of the header buffer: where the first essence chunk lies
    std::uint32_t frames;
    std::vector<std::string> chunkIds; // per stream, "00db" etc.
};

inline std::string ixId(std::uint32_t k)
{
    return "ix" + std::string(k < 10 ? "0" : "") + std::to_string(k);
}

// The fixed layout: sector-aligned chunks, the movi head with its index
// regions, ix##, indx and idx1, and the frame counts of the headers.
inline void checkLayout(const Walk& w, const Expected& e)
{
    ASSERT_TRUE(w.problem.empty()) << w.problem;
    const auto& d = w.data;
    const std::uint32_t S = 512, N = static_cast<std::uint32_t>(e.chunkIds.size());
    auto riffs = w.find("RIFF");
    auto movis = w.find("LIST", "movi");
    ASSERT_FALSE(riffs.empty());
    ASSERT_EQ(movis.size(), riffs.size());
    // The RIFFs fill the file exactly.
    EXPECT_EQ(riffs.back()->offset + 8 + riffs.back()->size, d.size());
    EXPECT_EQ(movis[0]->offset % S, 0u);
    const std::uint64_t R = 65536ull * N;

    // Per RIFF: the movi head, then only data chunks each followed by a JUNK.
    struct StreamChunk { std::uint64_t offset; std::uint32_t size; };
    std::vector<std::vector<std::vector<StreamChunk>>> perRiff(riffs.size(), std::vector<std::vector<StreamChunk>>(N));
    for (std::size_t r = 0; r < riffs.size(); ++r) {
        const std::uint64_t riffStart = riffs[r]->offset, movi = movis[r]->offset;
        EXPECT_EQ(riffs[r]->listType, r == 0 ? "AVI " : "AVIX");
        if (r > 0) {
            EXPECT_EQ(movi, riffStart + 12);
            EXPECT_EQ(riffStart % S, 0u);
        }
        const std::uint64_t headEnd = r == 0 ? e.capacity : riffStart + R + S;
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
        for (; p + 8 <= moviEnd; expectJunk = !expectJunk) {
            const std::string id = fcc(rd32(d, p));
            const std::uint32_t size = rd32(d, p + 4);
            if (expectJunk) {
                EXPECT_EQ(id, "JUNK") << "after the chunk before " << p;
                EXPECT_EQ((p + 8 + size) % S, 0u) << "chunk after JUNK at " << p;
                // The shortest JUNK of at least 12 bytes that reaches the sector: a
                // chunk that ends on one gets a whole sector, one 4 bytes short S + 4.
                EXPECT_TRUE(size + 8u >= 12 && size + 8u < 12 + S) << "JUNK of " << size + 8 << " at " << p;
                p += 8 + size;
                continue;
            }
            EXPECT_EQ(p % S, 0u) << id << " at " << p;
            const std::size_t k = std::find(e.chunkIds.begin(), e.chunkIds.end(), id) - e.chunkIds.begin();
            EXPECT_LT(k, N) << "unexpected chunk " << id << " at " << p;
            if (k < N)
                perRiff[r][k].push_back({p, size});
            p += 8 + size + (size & 1);
        }
        EXPECT_FALSE(expectJunk);
        EXPECT_EQ(p, moviEnd);
    }
    if (e.frames) {
        ASSERT_FALSE(perRiff[0][0].empty());
        EXPECT_EQ(perRiff[0][0][0].offset, e.capacity);
    }

    // idx1: right after the first movi, offsets relative to the "movi" word.
    auto idx1 = w.find("idx1");
    ASSERT_EQ(idx1.size(), e.frames ? 1u : 0u);
    if (!idx1.empty()) {
        EXPECT_EQ(idx1[0]->offset, movis[0]->offset + 8 + movis[0]->size);
        const std::uint32_t n0 = static_cast<std::uint32_t>(perRiff[0][0].size());
        EXPECT_EQ(idx1[0]->size, n0 * 16u * N);
        for (std::uint32_t i = 0; i < n0; ++i) {
            for (std::uint32_t k = 0; k < N; ++k) {
                const std::uint64_t at = idx1[0]->offset + 8 + (static_cast<std::uint64_t>(i) * N + k) * 16;
                ASSERT_LT(i, perRiff[0][k].size());
                EXPECT_EQ(fcc(rd32(d, at)), e.chunkIds[k]);
                // Key frame flag on audio, on the first frame and on every
                // intra frame; none on a predicted one.
                EXPECT_EQ(rd32(d, at + 4) & ~16u, 0u);
                if (k != 0 || i == 0) {
                    EXPECT_EQ(rd32(d, at + 4), 16u);
                }
                EXPECT_EQ(rd32(d, at + 8), perRiff[0][k][i].offset - (movis[0]->offset + 8));
                EXPECT_EQ(rd32(d, at + 12), perRiff[0][k][i].size);
            }
        }
        // idx1 and its JUNK end the first RIFF on a sector.
        const std::uint64_t junkAt = idx1[0]->offset + 8 + idx1[0]->size;
        EXPECT_EQ(fcc(rd32(d, junkAt)), "JUNK");
        EXPECT_EQ(junkAt + 8 + rd32(d, junkAt + 4), riffs[0]->offset + 8 + riffs[0]->size);
        EXPECT_EQ((junkAt + 8 + rd32(d, junkAt + 4)) % S, 0u);
    }

    // Super indexes and the ix## chunks they name.
    auto strh = w.find("strh"), indx = w.find("indx");
    ASSERT_TRUE(strh.size() == N && indx.size() == N) << strh.size() << " strh, " << indx.size() << " indx";
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
            const std::uint64_t ix = rd64(d, at + 32 + 16ull * s);
            EXPECT_EQ(rd32(d, at + 32 + 16ull * s + 8), 65528u);
            durations += rd32(d, at + 32 + 16ull * s + 12);
            // The standard index of RIFF s: 8-byte entries, or 24-byte IBP ones.
            EXPECT_EQ(fcc(rd32(d, ix)), ixId(k));
            const bool ibp = d[ix + 10] == 16;
            EXPECT_TRUE(ibp || d[ix + 10] == 0);
            EXPECT_EQ(rd16(d, ix + 8), ibp ? 6u : 2u);
            EXPECT_EQ(d[ix + 11], 1u);
            const std::uint32_t entries = rd32(d, ix + 12);
            ASSERT_EQ(entries, perRiff[s][k].size());
            EXPECT_EQ(fcc(rd32(d, ix + 16)), e.chunkIds[k]);
            const std::uint64_t base = rd64(d, ix + 20);
            EXPECT_EQ(base, movis[s]->offset);
            for (std::uint32_t i = 0; i < entries; ++i) {
                const StreamChunk& c = perRiff[s][k][i];
                if (ibp) {
                    EXPECT_EQ(rd64(d, ix + 32 + 24ull * i), c.offset);
                    EXPECT_EQ(rd32(d, ix + 40 + 24ull * i) & 0x1FFFFFFFu, c.size);
                } else {
                    EXPECT_EQ(rd32(d, ix + 32 + 8ull * i) + base, c.offset + 8);
                    // The delta-frame bit marks predicted frames; audio has none.
                    EXPECT_EQ(rd32(d, ix + 36 + 8ull * i) & 0x7FFFFFFFu, c.size);
                    if (k != 0) {
                        EXPECT_EQ(rd32(d, ix + 36 + 8ull * i) >> 31, 0u);
                    }
                }
            }
        }
        EXPECT_EQ(durations, rd32(d, strh[k]->offset + 8 + 32)) << "stream " << k;
    }
    std::uint64_t total = 0;
    for (const auto& r : perRiff)
        total += r[0].size();
    EXPECT_EQ(total, e.frames);
    auto avih = w.find("avih"), dmlh = w.find("dmlh");
    ASSERT_TRUE(avih.size() == 1 && dmlh.size() == 1);
    EXPECT_EQ(rd32(d, avih[0]->offset + 8 + 16), e.frames);
    EXPECT_EQ(rd32(d, dmlh[0]->offset + 8), e.frames);
    EXPECT_EQ(rd32(d, strh[0]->offset + 8 + 32), e.frames);
}

// ffprobe's fields of one stream.
inline std::map<std::string, std::string> probeStream(const std::wstring& path, int stream,
                                                      const std::string& entries)
{
    return testutil::probe(convertString(path), std::to_string(stream), "stream=" + entries);
}

// The bytes of the mapped stream as ffmpeg copies them out of the file.
inline std::string copied(const std::wstring& path, const std::string& map)
{
    return run("ffmpeg -v error -i '" + convertString(path) + "' -map " + map + " -c copy -f data - 2>&1");
}

} // namespace writertest
