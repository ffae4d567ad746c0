// Opens arbitrary bytes as an AVI file and reads everything it claims to
// hold: every frame alone and in runs, audio runs, key frames, GOPs and
// presentation order, with temporal reordering off and on.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "FuzzInput.h"
#include "util/videoutils.h"

using Morvane::Avi::FileReader;

namespace {

constexpr unsigned kMaxStreams = 8;
constexpr unsigned kMaxSamples = 300; // per stream and pass; enough for every committed seed
constexpr unsigned kMaxFailures = 16; // in a row, before a stream is given up

volatile std::uint64_t g_sink;

void readVideo(FileReader& r, unsigned stream, std::vector<unsigned char>& buf)
{
    unsigned length = std::min(r.get_Length(static_cast<int>(stream)), kMaxSamples);
    unsigned failures = 0;
    for (unsigned f = 0; f < length && failures < kMaxFailures; ++f) {
        unsigned offset = 0, size = 0;
        HRESULT hr = r.essenceRead(f, 1, buf.data(), static_cast<unsigned>(buf.size()), &offset, &size);
        if (SUCCEEDED(hr)) {
            failures = 0;
            if (size)
                g_sink = g_sink + buf[offset] + buf[offset + size - 1];
        } else {
            ++failures;
        }
        std::vector<unsigned> offsets, sizes;
        if (SUCCEEDED(r.essenceRead(f, 3, buf.data(), static_cast<unsigned>(buf.size()), offsets, sizes)))
            for (std::size_t k = 0; k < offsets.size(); ++k)
                if (sizes[k])
                    g_sink = g_sink + buf[offsets[k]] + buf[offsets[k] + sizes[k] - 1];
        unsigned key = 0;
        for (auto type : {FileReader::kfBackward, FileReader::kfForward, FileReader::kfNearest})
            if (r.get_NearestKeyFrame(static_cast<int>(stream), f, type, key))
                g_sink = g_sink + key;
        unsigned order[4] = {};
        r.get_PresentationOrder(f, 4, order);
        GOPInfo gop;
        if (Morvane::allocGOPInfo(gop, 64)) {
            r.get_GopAndPresentationOrder(f, gop);
            Morvane::freeGOPInfo(gop);
        }
        std::vector<unsigned> indexes, presentation;
        if (f < 8)
            r.getGopAndPresentationOrder(f, indexes, presentation);
    }
    g_sink = g_sink + r.get_GopSize(static_cast<int>(stream)) + r.get_ApproxDataRate(static_cast<int>(stream));
}

void readAudio(FileReader& r, unsigned stream, std::vector<unsigned char>& buf)
{
    unsigned length = r.get_Length(static_cast<int>(stream));
    unsigned failures = 0;
    // Runs of growing length from a moving start cover chunk edges.
    unsigned first = 0;
    for (unsigned k = 1; k <= kMaxSamples && first < length && failures < kMaxFailures; ++k) {
        unsigned count = std::min(k * 37, length - first);
        unsigned offset = 0, bytes = 0;
        HRESULT hr = r.essenceRead(first, count, buf.data(), static_cast<unsigned>(buf.size()), &offset, &bytes);
        if (SUCCEEDED(hr)) {
            failures = 0;
            if (bytes)
                g_sink = g_sink + buf[offset] + buf[offset + bytes - 1];
        } else {
            ++failures;
        }
        first += count;
    }
    g_sink = g_sink + r.get_ApproxDataRate(static_cast<int>(stream));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::uint32_t sector = fuzz::sectorSizeOf(data, size);
    fuzz::ScratchFile file("read", sector);
    if (!file.write(data, size))
        return 0;
    FileReader r;
    if (FAILED(r.load(file.path())))
        return 0;
    // No frame of this file can be larger than the file.
    std::vector<unsigned char> buf(size + 3 * sector);
    unsigned streams = std::min(r.get_StreamCount(), kMaxStreams);
    for (int pass = 0; pass < 2; ++pass) {
        for (unsigned s = 0; s < streams; ++s) {
            if (FAILED(r.essenceOpen(s)))
                continue;
            if (pass == 1 && !r.set_TemporalReordering(true))
                continue;
            if (r.get_IsVideo(static_cast<int>(s)))
                readVideo(r, s, buf);
            else if (r.get_IsAudio(static_cast<int>(s)))
                readAudio(r, s, buf);
            r.set_TemporalReordering(false);
        }
    }
    return 0;
}
