#include "AviProbe.h"

#include <cstdio>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "util/stringUtils.h"

namespace velloro {

namespace {

using Morvane::Avi::FileReader;

std::string fourcc(std::uint32_t v)
{
    std::string s;
    for (int i = 0; i < 4; ++i) {
        char c = static_cast<char>((v >> (8 * i)) & 0xFF);
        s += (c >= 0x20 && c < 0x7F) ? c : '.';
    }
    return s;
}

std::string indexKind(const FileReader& r, int n)
{
    const Morvane::Avi::AviStream* s = r.get_Stream(n);
    if (s && s->m_dwSuperIndexChunkId != 0) {
        char text[64];
        std::snprintf(text, sizeof text, "indx(subtype %u, %zu chunks)", unsigned(s->m_bIndexSubType),
                      s->m_SuperIndex.size());
        return text;
    }
    return r.get_HasIdx1() ? "idx1" : "none";
}

} // namespace

bool aviProbe(const std::wstring& path, std::string& out, std::string& error)
{
    FileReader r;
    HRESULT hr = r.load(path);
    if (FAILED(hr)) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
        error = std::string("load failed (") + code + "): " + Morvane::convertString(r.getLastError());
        return false;
    }
    char line[512];
    for (unsigned n = 0; n < r.get_StreamCount(); ++n) {
        int i = static_cast<int>(n);
        int rate = 0;
        int scale = 0;
        r.get_RateAndScale(i, &rate, &scale);
        const Morvane::Avi::AviStream* s = r.get_Stream(i);
        if (r.get_IsVideo(i)) {
            unsigned gop = r.get_GopSize(i);
            std::snprintf(line, sizeof line,
                          "stream %u: video fourcc=%s size=%dx%d rate=%u/%u length=%u index=%s gop=%u\n", n,
                          fourcc(r.get_FCC(i)).c_str(), r.get_Width(i), r.get_Height(i), unsigned(rate),
                          unsigned(scale), r.get_Length(i), indexKind(r, i).c_str(), gop);
        } else if (r.get_IsAudio(i)) {
            std::snprintf(line, sizeof line,
                          "stream %u: audio format=0x%04X channels=%u rate=%u bits=%u blockalign=%u "
                          "rate/scale=%u/%u length=%u index=%s\n",
                          n, unsigned(s->wfx.wFormatTag), r.get_ChannelCount(i), unsigned(s->wfx.nSamplesPerSec),
                          r.get_BitsPerSample(i), unsigned(s->wfx.nBlockAlign), unsigned(rate), unsigned(scale),
                          r.get_Length(i), indexKind(r, i).c_str());
        } else {
            std::snprintf(line, sizeof line, "stream %u: other type=%s\n", n, fourcc(s->strh.fccType).c_str());
        }
        out += line;
    }
    return true;
}

int probeCommand(const char* path)
{
    std::string out;
    std::string error;
    bool ok = aviProbe(Morvane::convertString(path), out, error);
    std::fputs(out.c_str(), stdout);
    if (!ok) {
        std::fprintf(stderr, "velloro probe: %s: %s\n", path, error.c_str());
        return 1;
    }
    return 0;
}

} // namespace velloro
