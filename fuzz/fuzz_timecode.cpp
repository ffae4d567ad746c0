// Timecode text, Sony bytes and arithmetic at any rate or standard.
//
// Input: a mode byte, a standard number, a rate (double), 11 characters of
// text, 4 Sony bytes, then frame counts and times for the arithmetic.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FileFormats/common/filereader.h"
#include "FuzzInput.h"
#include "util/pellistimecode.h"

using Morvane::CTimeCodeEx;

namespace {

volatile std::uint64_t g_sink;

template <class T>
T take(const std::vector<unsigned char>& in, std::size_t& at)
{
    T v{};
    if (at < in.size())
        std::memcpy(&v, in.data() + at, std::min(sizeof v, in.size() - at));
    at += sizeof v;
    return v;
}

void look(const CTimeCodeEx& t)
{
    wchar_t small[6], big[32];
    t.toString(small, 6, true);
    t.toString(big, 32, false);
    unsigned h = 0, m = 0, s = 0, f = 0;
    t.toHHMMSSFF(h, m, s, f, true);
    t.toHHMMSSFF(h, m, s, f, false);
    unsigned char sony[4];
    t.formatSony(sony, true);
    g_sink = g_sink + t.toStdString(true).size() + t.toStdString(false).size() + h + m + s + f +
             t.getFrameDuration() + t.getMaxFrames() + t.toMilliseconds() + t.toRefTime() +
             static_cast<std::uint64_t>(t.toSeconds() > 0) + t.isValid() + t.isDropFrame();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietStdout();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Through the disk file classes like every other target.
    fuzz::ScratchFile file("timecode", fuzz::sectorSizeOf(data, size));
    if (!file.write(data, size))
        return 0;
    std::vector<unsigned char> in(size + 1);
    if (size) {
        Pell::CFileReader reader;
        unsigned actual = 0;
        if (FAILED(reader.load(file.path())) || FAILED(reader.read(in.data(), static_cast<unsigned>(size), actual)))
            return 0;
        in.resize(actual);
    } else {
        in.clear();
    }

    std::size_t at = 0;
    std::uint8_t mode = take<std::uint8_t>(in, at);
    auto vs = static_cast<Morvane::VideoStandard>(take<std::int8_t>(in, at));
    double rate = take<double>(in, at);
    std::wstring text(11, L' ');
    for (auto& c : text)
        c = static_cast<wchar_t>(take<std::uint8_t>(in, at));
    unsigned char sony[4];
    for (auto& b : sony)
        b = take<std::uint8_t>(in, at);
    std::uint64_t frames = take<std::uint64_t>(in, at);
    std::uint64_t other = take<std::uint64_t>(in, at);
    std::uint64_t ms = take<std::uint64_t>(in, at);
    double seconds = take<double>(in, at);

    CTimeCodeEx a = (mode & 1) ? CTimeCodeEx(text.c_str(), vs) : CTimeCodeEx(text.c_str(), rate);
    look(a);
    CTimeCodeEx b = (mode & 2) ? CTimeCodeEx(vs, frames) : CTimeCodeEx(rate, frames);
    look(b);
    b.setDropFrame((mode & 4) != 0);
    b.setWrap((mode & 8) != 0);
    b.fromString(text.c_str(), (mode & 16) != 0, static_cast<int>(mode >> 6) - 1);
    look(b);
    b.setFromSony(sony);
    look(b);
    CTimeCodeEx c = (mode & 2) ? CTimeCodeEx(vs, other) : CTimeCodeEx(rate, other);
    c.setDuration(other, (mode & 32) != 0);
    look(c);
    if (b.isValid() && c.isValid()) {
        g_sink = g_sink + (b == c) + (b < c) + (b >= c);
        look(b + c);
        look(b - c);
        CTimeCodeEx d = b;
        d += c;
        d -= c;
        ++d;
        d--;
        look(d);
    }
    CTimeCodeEx e(std::uint32_t(frames) % 24, std::uint32_t(frames >> 8) % 60, std::uint32_t(frames >> 16) % 60,
                  std::uint32_t(frames >> 24) % 60, vs);
    look(e);
    e.fromMilliseconds(ms);
    look(e);
    e.fromSeconds(seconds);
    look(e);
    g_sink = g_sink + c.toFrameCount(std::uint32_t(ms), std::uint32_t(ms >> 16), std::uint32_t(ms >> 32),
                                     std::uint32_t(ms >> 48), static_cast<int>(mode % 3) - 1);
    return 0;
}
