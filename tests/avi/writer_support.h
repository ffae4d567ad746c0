#pragma once
// Helpers of the writer tests: track descriptions, frame feeding and an
// independent walk over the chunks of a written file.
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "avi/mpeg2_codec_block.h"
#include "common/FfmpegFiles.h"
#include "util/fourcc.h"

namespace writertest {

using namespace Morvane::Avi;

inline TrackStructuralData videoTrack(const char (&fcc)[5], std::uint64_t width, std::uint64_t height,
                                      std::uint64_t rate, std::uint64_t scale)
{
    TrackStructuralData t = {};
    t.Type = StreamVideo;
    t.Data.VInfo.width = width;
    t.Data.VInfo.height = height;
    t.Data.VInfo.bitCount = 24;
    t.Data.VInfo.fourcc = Morvane::makeFourCC(fcc);
    t.Data.VInfo.aspectRatio = 0x00040003;
    t.Data.VInfo.rate = rate;
    t.Data.VInfo.scale = scale;
    return t;
}

inline TrackStructuralData audioTrack(std::uint16_t channels = 2, std::uint32_t rate = 48000)
{
    TrackStructuralData t = {};
    t.Type = StreamAudio;
    t.Data.AInfo.formatTag = 1;
    t.Data.AInfo.channels = channels;
    t.Data.AInfo.samplesPerSec = rate;
    t.Data.AInfo.bitsPerSample = 16;
    t.Data.AInfo.blockAlign = static_cast<std::uint16_t>(channels * 2);
    t.Data.AInfo.avgBytesPerSec = rate * channels * 2;
    return t;
}

inline TrackStructuralData timecodeTrack(std::uint32_t start)
{
    TrackStructuralData t = {};
    t.Type = StreamTimecode;
    t.Data.TCInfo.startFrame = start;
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
    int depth;
};

// All chunks of the file in order, lists and their contents included.
struct Walk
{
    std::vector<unsigned char> data;
    std::vector<Chunk> chunks;
    bool ok = true;
    std::string problem;

    explicit Walk(const std::wstring& path)
    {
        std::ifstream in(std::string(path.begin(), path.end()), std::ios::binary);
        data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        std::uint64_t pos = 0;
        while (pos + 12 <= data.size() && ok) {
            if (fcc(rd32(data, pos)) != "RIFF") {
                fail("top level chunk is not RIFF", pos);
                break;
            }
            std::uint64_t end = pos + 8 + rd32(data, pos + 4);
            walkList(pos, end, 0);
            pos = end;
        }
    }

    void fail(const std::string& what, std::uint64_t at)
    {
        ok = false;
        problem = what + " at " + std::to_string(at);
    }

    void walkList(std::uint64_t pos, std::uint64_t end, int depth)
    {
        if (end > data.size()) {
            fail("list past the file end", pos);
            return;
        }
        chunks.push_back({fcc(rd32(data, pos)), fcc(rd32(data, pos + 8)), pos, rd32(data, pos + 4), depth});
        std::uint64_t p = pos + 12;
        while (p + 8 <= end && ok) {
            std::string id = fcc(rd32(data, p));
            std::uint32_t size = rd32(data, p + 4);
            std::uint64_t next = p + 8 + size + (size & 1);
            if (next > end) {
                fail("chunk " + id + " past its list", p);
                return;
            }
            if (id == "LIST" || id == "RIFF")
                walkList(p, p + 8 + size, depth + 1);
            else
                chunks.push_back({id, "", p, size, depth + 1});
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

using testutil::run;

inline std::string narrow(const std::wstring& s)
{
    return std::string(s.begin(), s.end());
}

// ffprobe's fields of one stream.
inline std::map<std::string, std::string> probeStream(const std::wstring& path, int stream,
                                                      const std::string& entries)
{
    return testutil::probe(narrow(path), std::to_string(stream), "stream=" + entries);
}

struct FrameMd5Line
{
    int stream; // -1: not a packet line (an error)
    std::uint64_t size;
    std::string md5; // or the whole line
};

// ffmpeg's framemd5 of the mapped streams, copied as stored.
inline std::vector<FrameMd5Line> frameMd5(const std::wstring& path, const std::string& map)
{
    std::istringstream in(run("ffmpeg -v error -i '" + narrow(path) + "' -map " + map + " -c copy -f framemd5 - 2>&1"));
    std::vector<FrameMd5Line> lines;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        // stream, dts, pts, duration, size, hash
        std::vector<std::string> f;
        std::istringstream fields(line);
        for (std::string field; std::getline(fields, field, ',');)
            f.push_back(field.substr(field.find_first_not_of(' ')));
        lines.push_back(f.size() == 6 ? FrameMd5Line{std::stoi(f[0]), std::stoull(f[4]), f[5]} : FrameMd5Line{-1, 0, line});
    }
    return lines;
}

inline std::string md5Hex(const std::vector<unsigned char>& bytes)
{
    // Through md5sum, so that the test uses no second implementation.
    char name[] = "/tmp/vlmd5.XXXXXX";
    int fd = ::mkstemp(name);
    if (fd < 0)
        return {};
    FILE* f = ::fdopen(fd, "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    std::string out = run(std::string("md5sum ") + name);
    std::remove(name);
    return out.substr(0, 32);
}

} // namespace writertest
