#include "avi/ContainerFrameMd5.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "Md5.h"
#include "util/stringUtils.h"

namespace avitest {

namespace {

using velloro::Md5;

using Morvane::Avi::FileReader;
using Morvane::Avi::IndexEntry;

struct AlignedFree
{
    void operator()(unsigned char* p) const { std::free(p); }
};
using Block = std::unique_ptr<unsigned char, AlignedFree>;

constexpr std::size_t kAlign = 4096;

Block allocBlock(std::size_t n)
{
    n = (n + kAlign - 1) / kAlign * kAlign;
    return Block(static_cast<unsigned char*>(std::aligned_alloc(kAlign, n ? n : kAlign)));
}

std::string failure(FileReader& r, const char* what, HRESULT hr)
{
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
    return std::string(what) + " failed (" + code + "): " + Morvane::convertString(r.getLastError());
}

const char* codecName(std::uint32_t fcc)
{
    switch (fcc) {
    case Morvane::makeFourCC("UYVY"):
    case Morvane::makeFourCC("YUY2"):
    case 0:
        return "rawvideo";
    case Morvane::makeFourCC("dvsd"):
    case Morvane::makeFourCC("dv25"):
    case Morvane::makeFourCC("dv50"):
        return "dvvideo";
    case Morvane::makeFourCC("MJPG"):
    case Morvane::makeFourCC("mjpg"):
        return "mjpeg";
    case Morvane::makeFourCC("mpg2"):
    case Morvane::makeFourCC("MPG2"):
    case Morvane::makeFourCC("MMES"):
    case Morvane::makeFourCC("mmes"):
        return "mpeg2video";
    default:
        return "unknown";
    }
}

void append(std::string& out, const char* fmt, auto... args)
{
    char line[256];
    std::snprintf(line, sizeof line, fmt, args...);
    out += line;
}

bool videoLines(FileReader& r, int stream, int outIndex, std::string& out, std::string& error)
{
    HRESULT hr = r.essenceOpen(static_cast<unsigned>(stream));
    if (FAILED(hr)) {
        error = failure(r, "essenceOpen", hr);
        return false;
    }
    int rate = 0;
    int scale = 0;
    r.get_RateAndScale(stream, &rate, &scale);
    unsigned g = std::gcd(static_cast<unsigned>(rate), static_cast<unsigned>(scale));
    if (g == 0)
        g = 1;
    append(out, "#tb %d: %u/%u\n", outIndex, static_cast<unsigned>(scale) / g, static_cast<unsigned>(rate) / g);
    append(out, "#media_type %d: video\n", outIndex);
    append(out, "#codec_id %d: %s\n", outIndex, codecName(r.get_FCC(stream)));
    append(out, "#dimensions %d: %dx%d\n", outIndex, r.get_Width(stream), std::abs(r.get_Height(stream)));
    append(out, "#sar %d: 1/1\n", outIndex);
    out += "#stream#, dts,        pts, duration,     size, hash\n";

    unsigned length = r.get_Length(stream);
    std::size_t capacity = 0;
    Block block;
    for (unsigned i = 0; i < length; ++i) {
        // A dropped frame is an empty packet, and none before the first picture.
        if (unsigned stored = r.get_StoredFrame(i); stored != i) {
            if (stored < i)
                append(out, "%d, %10u, %10u, %8d, %8u, %s\n", outIndex, i, i, 1, 0u, Md5::of(nullptr, 0).c_str());
            continue;
        }
        IndexEntry* entry = nullptr;
        if (FAILED(r.get_IndexEntry(i, &entry)) || !entry)
            break;
        // Room for the frame and the sector slack at both ends.
        std::size_t need = std::size_t(entry->size) + 2 * kAlign;
        if (need > capacity) {
            block = allocBlock(need);
            capacity = (need + kAlign - 1) / kAlign * kAlign;
            if (!block) {
                error = "out of memory";
                return false;
            }
        }
        unsigned offset = 0;
        unsigned size = 0;
        hr = r.ReadVideo(i, block.get(), static_cast<unsigned>(capacity), &offset, &size);
        if (FAILED(hr)) {
            error = failure(r, "ReadVideo", hr);
            return false;
        }
        append(out, "%d, %10u, %10u, %8d, %8u, %s\n", outIndex, i, i, 1, size,
               Md5::of(block.get() + offset, size).c_str());
    }
    return true;
}

bool audioLine(FileReader& r, int stream, int audioIndex, std::string& out, std::string& error)
{
    HRESULT hr = r.essenceOpen(static_cast<unsigned>(stream));
    if (FAILED(hr)) {
        error = failure(r, "essenceOpen", hr);
        return false;
    }
    const Morvane::Avi::AviStream* s = r.get_Stream(stream);
    unsigned blockAlign = s->wfx.nBlockAlign;
    std::uint64_t total = 0;
    if (!s->m_SuperIndex.empty()) {
        for (const auto& e : s->m_SuperIndex)
            total += e.dwDuration;
    } else {
        total = r.get_ResidentLength();
    }
    Md5 md5;
    if (blockAlign) {
        constexpr unsigned kBlocks = 16384;
        Block block = allocBlock(std::size_t(kBlocks) * blockAlign);
        for (std::uint64_t first = 0; first < total;) {
            unsigned n = static_cast<unsigned>(std::min<std::uint64_t>(kBlocks, total - first));
            unsigned offset = 0;
            unsigned bytes = 0;
            hr = r.ReadAudio(static_cast<unsigned>(first), n, block.get(), kBlocks * blockAlign, &offset, &bytes);
            if (FAILED(hr)) {
                error = failure(r, "ReadAudio", hr);
                return false;
            }
            md5.update(block.get() + offset, bytes);
            first += n;
        }
    }
    append(out, "audio %d MD5=%s\n", audioIndex, md5.hexDigest().c_str());
    return true;
}

} // namespace

bool aviFrameMd5(const std::wstring& path, std::string& out, std::string& error)
{
    FileReader r;
    HRESULT hr = r.load(path);
    if (FAILED(hr)) {
        error = failure(r, "load", hr);
        return false;
    }
    int videoCount = 0;
    for (unsigned n = 0; n < r.get_StreamCount(); ++n)
        videoCount += r.get_IsVideo(static_cast<int>(n)) ? 1 : 0;
    if (videoCount) {
        out += "#format: frame checksums\n#version: 2\n#hash: MD5\n#software: velloro avilib\n";
        int k = 0;
        for (unsigned n = 0; n < r.get_StreamCount(); ++n)
            if (r.get_IsVideo(static_cast<int>(n)) && !videoLines(r, static_cast<int>(n), k++, out, error))
                return false;
    }
    int a = 0;
    for (unsigned n = 0; n < r.get_StreamCount(); ++n)
        if (r.get_IsAudio(static_cast<int>(n)) && !audioLine(r, static_cast<int>(n), a++, out, error))
            return false;
    return true;
}

} // namespace avitest
