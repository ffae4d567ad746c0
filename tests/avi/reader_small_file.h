#pragma once
// The small file that the broken-file tables break one field at a time,
// and what the reader makes of a file, as one line to compare.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "avi/reader_builder.h"
#include "common/AssertCapture.h"
#include "common/TempDir.h"
#include "util/stringUtils.h"

namespace readertest {

constexpr unsigned kFrames = 6;
constexpr std::uint32_t kVideoBytes = 300;
constexpr std::uint32_t kAudioBytes = 400; // 100 blocks of 4

inline Bytes videoBytes(unsigned f) { return frameData(f, kVideoBytes); }
inline Bytes audioBytes(unsigned f) { return Bytes(kAudioBytes, static_cast<std::uint8_t>(0x80 + f)); }

// A video and an audio stream, an idx1 and, with OpenDML, a super index for
// the video whose one standard index chunk opens movi. `at` names where
// each chunk header lies.
struct File { Bytes bytes; std::map<std::string, std::size_t> at; };

struct Knobs
{
    bool openDml = false;
    int indxCopies = 1;
    bool avihLast = false; // after the stream lists
    AVIMAINHEADER avih = mainHeader(2, kFrames);
    Bytes beforeStrh;      // raw chunks in the video strl
    AVISTREAMHEADER vstrh = streamHeader("vids", "dvsd", 25, 1, kFrames);
    BITMAPINFOHEADER bih = videoFormat("dvsd");
    AVISTREAMHEADER astrh = streamHeader("auds", "\0\0\0\0", 48000, 1, kFrames * 100);
    WAVEFORMATEX wfx = pcm(2, 16, 48000);
    std::size_t wfxSize = sizeof(WAVEFORMATEX);
    std::size_t hdrlJunk = 0; // bytes of a JUNK chunk that ends hdrl
};

inline File make(const Knobs& k = {})
{
    File f;
    RiffBuilder b;
    std::size_t riffAt = b.begin("RIFF", "AVI ");
    f.at["RIFF"] = riffAt - 4;
    std::size_t hdrl = b.begin("LIST", "hdrl");
    f.at["hdrl"] = hdrl - 4;
    if (!k.avihLast)
        f.at["avih"] = b.record(k.avih);
    std::size_t strl = b.begin("LIST", "strl");
    f.at["strl"] = strl - 4;
    b.putBytes(k.beforeStrh);
    f.at["strh"] = b.record(k.vstrh);
    f.at["strf"] = b.chunk("strf", bytesOf(k.bih));
    std::vector<std::size_t> indx;
    for (int c = 0; k.openDml && c < k.indxCopies; ++c) {
        // Room for four entries, one in use, as writers reserve it.
        AVISUPERINDEX si = {ckid::indx, 24 + 4 * 16, 4, 0, AVI_INDEX_OF_INDEXES, 1, Morvane::makeFourCC("00dc"), {}};
        indx.push_back(b.record(si));
        b.put(AVISUPERINDEX_ENTRY{0, 0, kFrames}); // patched once ix00 is placed
        for (int i = 0; i < 3; ++i)
            b.put(AVISUPERINDEX_ENTRY{0, 0, 0});
    }
    if (!indx.empty())
        f.at["indx"] = indx[0];
    b.end(strl);
    strl = b.begin("LIST", "strl");
    f.at["strh1"] = b.record(k.astrh);
    Bytes wfx = bytesOf(k.wfx);
    wfx.resize(k.wfxSize);
    f.at["strf1"] = b.chunk("strf", wfx);
    b.end(strl);
    if (k.avihLast)
        f.at["avih"] = b.record(k.avih);
    if (k.hdrlJunk)
        b.chunk("JUNK", Bytes(k.hdrlJunk, 0));
    b.end(hdrl);
    std::size_t movi = b.begin("LIST", "movi");
    f.at["movi"] = movi - 4;
    std::size_t ix = 0;
    if (k.openDml) {
        AVISTDINDEX head = {Morvane::makeFourCC("ix00"), 24 + 8 * kFrames, 2, AVI_INDEX_SUB_DEFAULT,
                            AVI_INDEX_OF_CHUNKS, kFrames, Morvane::makeFourCC("00dc"), 0, 0};
        ix = b.record(head);
        f.at["ix00"] = ix;
        for (unsigned i = 0; i < kFrames; ++i)
            b.put(AVISTDINDEX_ENTRY{0, kVideoBytes});
    }
    std::vector<INDEXENTRY> idx;
    for (unsigned i = 0; i < kFrames; ++i) {
        std::size_t v = b.chunk("00dc", videoBytes(i));
        f.at["frame" + std::to_string(i)] = v;
        idx.push_back({Morvane::makeFourCC("00dc"), AVIIF_KEYFRAME, static_cast<std::uint32_t>(v - (movi + 4)), kVideoBytes});
        std::size_t a = b.chunk("01wb", audioBytes(i));
        idx.push_back({Morvane::makeFourCC("01wb"), 0, static_cast<std::uint32_t>(a - (movi + 4)), kAudioBytes});
        if (ix)
            put32(b.bytes(), ix + sizeof(AVISTDINDEX) + 8 * i, static_cast<std::uint32_t>(v + 8));
    }
    b.end(movi);
    f.at["idx1"] = b.chunk("idx1", bytesOf(idx));
    b.end(riffAt);
    for (std::size_t at : indx) {
        put64(b.bytes(), at + sizeof(AVISUPERINDEX), ix);
        put32(b.bytes(), at + sizeof(AVISUPERINDEX) + 8, static_cast<std::uint32_t>(sizeof(AVISTDINDEX) + 8 * kFrames));
    }
    f.bytes = b.bytes();
    return f;
}

inline std::string hex(HRESULT hr)
{
    char s[16];
    std::snprintf(s, sizeof s, "%08X", static_cast<unsigned>(hr));
    return s;
}

// What the reader makes of a file: the load's code and text, or per stream
// the frames (video) or blocks (audio) that read back with their own bytes,
// the reads that failed, and the text and code of the first failure.
inline std::string outcome(const std::string& path)
{
    using Morvane::convertString;
    Morvane::Avi::FileReader r;
    std::string out;
    testutil::captureStdout([&] {
        HRESULT hr = r.load(convertString(path));
        if (FAILED(hr)) {
            out = "load " + hex(hr) + " " + convertString(r.getLastError());
            if (r.get_StreamCount() != 0)
                out += " (streams kept)";
            return;
        }
        // A fault the walk stepped over leaves its text behind.
        if (!r.getLastError().empty())
            out = "loaded with " + convertString(r.getLastError()) + ": ";
        if (r.get_StreamCount() == 0)
            out += "no streams";
        for (unsigned s = 0; s < r.get_StreamCount() && s < 4; ++s) {
            if (s)
                out += "; ";
            r.setLastError(L"");
            hr = r.essenceOpen(s);
            if (FAILED(hr)) {
                out += "open " + hex(hr) + " " + convertString(r.getLastError());
                continue;
            }
            unsigned good = 0, bad = 0, failed = 0;
            std::string firstFailure;
            std::vector<unsigned char> buf(64 * 1024);
            unsigned length = std::min(r.get_Length(static_cast<int>(s)), 4096u);
            bool video = r.get_IsVideo(static_cast<int>(s));
            unsigned step = video ? 1 : 100;
            for (unsigned i = 0; i < length; i += step) {
                unsigned offset = 0, size = 0;
                HRESULT rh = r.essenceRead(i, video ? 1 : std::min(step, length - i), buf.data(),
                                           static_cast<unsigned>(buf.size()), &offset, &size);
                if (FAILED(rh)) {
                    if (failed++ == 0)
                        firstFailure = " first " + hex(rh) + " " + convertString(r.getLastError());
                    continue;
                }
                Bytes want = video ? videoBytes(i) : audioBytes(i / 100);
                bool same = size == want.size() && std::equal(want.begin(), want.end(), buf.begin() + offset);
                (same ? good : bad)++;
            }
            // Runs of frames: whatever they give must lie in the buffer.
            for (unsigned i = 0; video && i < length; ++i) {
                std::vector<unsigned> offsets, sizes;
                if (FAILED(r.essenceRead(i, 3, buf.data(), static_cast<unsigned>(buf.size()), offsets, sizes)))
                    continue;
                for (std::size_t k = 0; k < offsets.size(); ++k) {
                    EXPECT_LE(std::uint64_t(offsets[k]) + sizes[k], buf.size()) << "run at " << i;
                }
            }
            out += (video ? "video " : "audio ") + std::to_string(good) + " good " + std::to_string(bad) + " bad " +
                   std::to_string(failed) + " failed" + firstFailure;
        }
    });
    return out;
}

// Both streams read back whole, or neither has an index.
constexpr const char* kAllGood = "video 6 good 0 bad 0 failed; audio 6 good 0 bad 0 failed";
constexpr const char* kNoIndex = "open 80004005 No index table.; open 80004005 No index table.";

struct Case
{
    std::string name;
    std::function<Bytes()> file;
    std::string expected;
};

// Shown by the test runner as the case's name, not its bytes.
inline void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

inline std::function<Bytes()> knob(std::function<void(Knobs&)> change)
{
    return [=] {
        Knobs k;
        change(k);
        return make(k).bytes;
    };
}

inline std::function<Bytes()> edit(bool openDml, std::function<void(File&)> change)
{
    return [=] {
        Knobs k;
        k.openDml = openDml;
        File f = make(k);
        change(f);
        return f.bytes;
    };
}

// One field of one chunk set to a value: `at` counts from the chunk's header.
template <class T>
std::function<Bytes()> poke(bool openDml, const char* chunk, std::size_t at, T v)
{
    return edit(openDml, [=](File& f) { std::memcpy(&f.bytes[f.at.at(chunk) + at], &v, sizeof v); });
}

// The reader's outcome on the case's file.
inline std::string outcomeOf(const Case& c)
{
    testutil::TempDir dir;
    EXPECT_TRUE(dir.ok());
    std::string path = (dir.path() / "bad.avi").string();
    writeFile(path, c.file());
    return outcome(path);
}

inline std::string caseName(const testing::TestParamInfo<Case>& i) { return i.param.name; }

} // namespace readertest
