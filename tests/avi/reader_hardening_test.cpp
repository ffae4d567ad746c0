// Broken files beyond the named failures: every size field of the header
// at 0, at 0xFFFFFFF8 and past the end, broken stream headers and formats,
// broken legacy and OpenDML indexes, and files cut inside movi. Each must
// end with the container's code and text, or read the frames that really
// are there, without a fault, a hang or an allocation the file cannot
// justify.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "avi/AllocationWatch.h"
#include "avi/reader_builder.h"
#include "common/AssertCapture.h"
#include "common/TempDir.h"
#include "util/stringUtils.h"

using namespace readertest;
using Morvane::convertString;

namespace {

constexpr unsigned kFrames = 6;
constexpr std::uint32_t kVideoBytes = 300;
constexpr std::uint32_t kAudioBytes = 400; // 100 blocks of 4

Bytes videoBytes(unsigned f) { return frameData(f, kVideoBytes); }
Bytes audioBytes(unsigned f) { return Bytes(kAudioBytes, static_cast<std::uint8_t>(0x80 + f)); }

// A video and an audio stream, an idx1 and, with OpenDML, a super index for
// the video whose one standard index chunk opens movi. `at` names where
// each chunk header lies.
struct File
{
    Bytes bytes;
    std::map<std::string, std::size_t> at;
};

struct Knobs
{
    bool openDml = false;
    AVIMAINHEADER avih = mainHeader(2, kFrames);
    AVISTREAMHEADER vstrh = streamHeader("vids", "dvsd", 25, 1, kFrames);
    BITMAPINFOHEADER bih = videoFormat("dvsd");
    AVISTREAMHEADER astrh = streamHeader("auds", "\0\0\0\0", 48000, 1, kFrames * 100);
    WAVEFORMATEX wfx = pcm(2, 16, 48000);
};

File make(const Knobs& k = {})
{
    File f;
    RiffBuilder b;
    std::size_t riffAt = b.begin("RIFF", "AVI ");
    f.at["RIFF"] = riffAt - 4;
    std::size_t hdrl = b.begin("LIST", "hdrl");
    f.at["hdrl"] = hdrl - 4;
    f.at["avih"] = b.record(k.avih);
    std::size_t strl = b.begin("LIST", "strl");
    f.at["strl"] = strl - 4;
    f.at["strh"] = b.record(k.vstrh);
    f.at["strf"] = b.chunk("strf", bytesOf(k.bih));
    if (k.openDml) {
        // Room for four entries, one in use, as writers reserve it.
        AVISUPERINDEX si = {ckid::indx, 24 + 4 * 16, 4, 0, AVI_INDEX_OF_INDEXES, 1, Morvane::makeFourCC("00dc"), {}};
        f.at["indx"] = b.record(si);
        b.put(AVISUPERINDEX_ENTRY{0, 0, kFrames}); // patched once ix00 is placed
        for (int i = 0; i < 3; ++i)
            b.put(AVISUPERINDEX_ENTRY{0, 0, 0});
    }
    b.end(strl);
    strl = b.begin("LIST", "strl");
    f.at["strh1"] = b.record(k.astrh);
    f.at["strf1"] = b.chunk("strf", bytesOf(k.wfx));
    b.end(strl);
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
            b.patch32(ix + sizeof(AVISTDINDEX) + 8 * i, static_cast<std::uint32_t>(v + 8));
    }
    b.end(movi);
    Bytes records;
    for (const INDEXENTRY& e : idx) {
        Bytes one = bytesOf(e);
        records.insert(records.end(), one.begin(), one.end());
    }
    f.at["idx1"] = b.chunk("idx1", records);
    b.end(riffAt);
    if (k.openDml)
        b.patch64(f.at["indx"] + sizeof(AVISUPERINDEX), ix);
    if (k.openDml)
        b.patch32(f.at["indx"] + sizeof(AVISUPERINDEX) + 8, static_cast<std::uint32_t>(sizeof(AVISTDINDEX) + 8 * kFrames));
    f.bytes = b.bytes();
    return f;
}

std::uint32_t read32(const Bytes& b, std::size_t at)
{
    std::uint32_t v;
    std::memcpy(&v, &b[at], 4);
    return v;
}

void put32(Bytes& b, std::size_t at, std::uint32_t v) { std::memcpy(&b[at], &v, 4); }
void put64(Bytes& b, std::size_t at, std::uint64_t v) { std::memcpy(&b[at], &v, 8); }

std::string hex(HRESULT hr)
{
    char s[16];
    std::snprintf(s, sizeof s, "%08X", static_cast<unsigned>(hr));
    return s;
}

// What the reader makes of a file: the load's code and text, or per stream
// the frames (video) or blocks (audio) that read back with their own bytes,
// the reads that failed, and the text and code of the first failure.
std::string outcome(const std::string& path)
{
    Morvane::Avi::FileReader r;
    std::string out;
    testutil::captureStdout([&] {
        HRESULT hr = r.load(convertString(path));
        if (FAILED(hr)) {
            out = "load " + hex(hr) + " " + convertString(r.getLastError());
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

// Both streams read back whole.
constexpr const char* kAllGood = "video 6 good 0 bad 0 failed; audio 6 good 0 bad 0 failed";
constexpr const char* kNoIndex = "open 80004005 No index table.; open 80004005 No index table.";

struct Case
{
    const char* name;
    std::function<Bytes()> file;
    const char* expected;
};

Bytes sized(const char* chunk, std::uint32_t size, bool openDml = false)
{
    Knobs k;
    k.openDml = openDml;
    File f = make(k);
    put32(f.bytes, f.at.at(chunk) + 4, size);
    return f.bytes;
}

Bytes sizedPastEnd(const char* chunk, bool openDml = false)
{
    Knobs k;
    k.openDml = openDml;
    File f = make(k);
    put32(f.bytes, f.at.at(chunk) + 4, static_cast<std::uint32_t>(f.bytes.size() + 1000));
    return f.bytes;
}

Bytes knobs(std::function<void(Knobs&)> change)
{
    Knobs k;
    change(k);
    return make(k).bytes;
}

Bytes edited(bool openDml, std::function<void(File&)> change)
{
    Knobs k;
    k.openDml = openDml;
    File f = make(k);
    change(f);
    return f.bytes;
}

const Case kCases[] = {
    {"RIFFSizeZero",
     [] { return sized("RIFF", 0); },
     "no streams"},
    {"RIFFSizeFFFFFFF8",
     [] { return sized("RIFF", 0xFFFFFFF8); },
     kAllGood},
    {"RIFFSizePastEnd",
     [] { return sizedPastEnd("RIFF"); },
     kAllGood},
    {"HdrlSizeZero",
     [] { return sized("hdrl", 0); },
     "no streams"},
    {"HdrlSizeFFFFFFF8",
     [] { return sized("hdrl", 0xFFFFFFF8); },
     "load 80004005 'hdrl' chunk is too large."},
    {"HdrlSizePastEnd",
     [] { return sizedPastEnd("hdrl"); },
     "load 8007007A Failed to read header data."},
    {"AvihSizeZero",
     [] { return sized("avih", 0); },
     "load 80004005 Stream array is null."},
    {"AvihSizeFFFFFFF8",
     [] { return sized("avih", 0xFFFFFFF8); },
     kNoIndex},
    {"AvihSizePastEnd",
     [] { return sizedPastEnd("avih"); },
     kNoIndex},
    {"StrlSizeZero",
     [] { return sized("strl", 0); },
     kNoIndex},
    {"StrlSizeFFFFFFF8",
     [] { return sized("strl", 0xFFFFFFF8); },
     kAllGood},
    {"StrlSizePastEnd",
     [] { return sizedPastEnd("strl"); },
     kAllGood},
    {"StrhSizeZero",
     [] { return sized("strh", 0); },
     kNoIndex},
    {"StrhSizeFFFFFFF8",
     [] { return sized("strh", 0xFFFFFFF8); },
     kNoIndex},
    {"StrhSizePastEnd",
     [] { return sizedPastEnd("strh"); },
     kNoIndex},
    {"StrfSizeZero",
     [] { return sized("strf", 0); },
     "video 6 good 0 bad 0 failed; audio 0 good 0 bad 6 failed first 80004005 Audio stream has no block alignment."},
    {"StrfSizeFFFFFFF8",
     [] { return sized("strf", 0xFFFFFFF8); },
     kNoIndex},
    {"StrfSizePastEnd",
     [] { return sizedPastEnd("strf"); },
     kNoIndex},
    {"Strh1SizeZero",
     [] { return sized("strh1", 0); },
     kNoIndex},
    {"Strh1SizeFFFFFFF8",
     [] { return sized("strh1", 0xFFFFFFF8); },
     kNoIndex},
    {"Strh1SizePastEnd",
     [] { return sizedPastEnd("strh1"); },
     kNoIndex},
    {"Strf1SizeZero",
     [] { return sized("strf1", 0); },
     "load 80004005 Invalid size for wav format data."},
    {"Strf1SizeFFFFFFF8",
     [] { return sized("strf1", 0xFFFFFFF8); },
     kNoIndex},
    {"Strf1SizePastEnd",
     [] { return sizedPastEnd("strf1"); },
     kNoIndex},
    {"MoviSizeZero",
     [] { return sized("movi", 0); },
     kNoIndex},
    {"MoviSizeFFFFFFF8",
     [] { return sized("movi", 0xFFFFFFF8); },
     "loaded with Failed to read after movi data.: open 80004005 No index table.; open 80004005 No index table."},
    {"MoviSizePastEnd",
     [] { return sizedPastEnd("movi"); },
     "loaded with Failed to read after movi data.: open 80004005 No index table.; open 80004005 No index table."},
    {"Idx1SizeZero",
     [] { return sized("idx1", 0); },
     kNoIndex},
    {"Idx1SizeFFFFFFF8",
     [] { return sized("idx1", 0xFFFFFFF8); },
     kAllGood},
    {"Idx1SizePastEnd",
     [] { return sizedPastEnd("idx1"); },
     kAllGood},
    {"IndxSizeZero",
     [] { return sized("indx", 0, true); },
     "loaded with INDX chunk size was invalid.: open 80004005 No index table.; open 80004005 No index table."},
    {"IndxSizeFFFFFFF8",
     [] { return sized("indx", 0xFFFFFFF8, true); },
     "video 6 good 0 bad 0 failed; open 80004005 No index table."},
    {"IndxSizePastEnd",
     [] { return sizedPastEnd("indx", true); },
     "video 6 good 0 bad 0 failed; open 80004005 No index table."},
    {"Ix00SizeZero",
     [] { return sized("ix00", 0, true); },
     kAllGood},
    {"Ix00SizeFFFFFFF8",
     [] { return sized("ix00", 0xFFFFFFF8, true); },
     kAllGood},
    {"Ix00SizePastEnd",
     [] { return sizedPastEnd("ix00", true); },
     kAllGood},
    {"OpenDmlIntact",
     [] { return edited(true, [](File&) {}); },
     kAllGood},
    {"FewerStreamsThanLists",
     [] { return knobs([](Knobs& k) { k.avih.dwStreams = 1; }); },
     "video 6 good 0 bad 0 failed"},
    {"MoreStreamsThanLists",
     [] { return knobs([](Knobs& k) { k.avih.dwStreams = 3; }); },
     "video 6 good 0 bad 0 failed; audio 6 good 0 bad 0 failed; audio 0 good 0 bad 0 failed"},
    {"StreamCountPastTheHeader",
     [] { return knobs([](Knobs& k) { k.avih.dwStreams = 0x10000; }); },
     "load 8007000E Failed to allocate stream array memory."},
    {"StrfBeforeStrh",
     [] {
         return edited(false, [](File& f) {
             // Swap the video strh (64 bytes) and strf (48 bytes).
             std::size_t h = f.at["strh"];
             Bytes strh(f.bytes.begin() + h, f.bytes.begin() + h + 64);
             Bytes strf(f.bytes.begin() + h + 64, f.bytes.begin() + h + 112);
             std::copy(strf.begin(), strf.end(), f.bytes.begin() + h);
             std::copy(strh.begin(), strh.end(), f.bytes.begin() + h + 48);
         });
     },
     "video 6 good 0 bad 0 failed; audio 0 good 0 bad 6 failed first 80004005 Audio stream has no block alignment."},
    {"StrhDuplicated",
     [] {
         return edited(false, [](File& f) {
             // The audio strl's strh becomes a second video strh.
             std::copy(f.bytes.begin() + f.at["strh"], f.bytes.begin() + f.at["strh"] + 64,
                       f.bytes.begin() + f.at["strh1"]);
         });
     },
     "video 6 good 0 bad 0 failed; video 0 good 6 bad 0 failed"},
    {"StrfDuplicated",
     [] {
         return edited(false, [](File& f) {
             // The audio strh becomes JUNK: both strf chunks meet one stream header.
             put32(f.bytes, f.at["strh1"], Morvane::makeFourCC("JUNK"));
         });
     },
     "video 6 good 0 bad 0 failed; audio 0 good 0 bad 0 failed"},
    {"StrhTruncated",
     [] { return edited(false, [](File& f) { put32(f.bytes, f.at["strh"] + 4, 20); }); },
     kNoIndex},
    {"VideoStrfTruncated",
     [] { return edited(false, [](File& f) { put32(f.bytes, f.at["strf"] + 4, 20); }); },
     kNoIndex},
    {"AudioStrfTruncatedTo16",
     [] { return edited(false, [](File& f) { put32(f.bytes, f.at["strf1"] + 4, 16); }); },
     kNoIndex},
    {"VideoScaleZero",
     [] { return knobs([](Knobs& k) { k.vstrh.dwScale = 0; }); },
     kAllGood},
    {"VideoRateZero",
     [] { return knobs([](Knobs& k) { k.vstrh.dwRate = 0; }); },
     kAllGood},
    {"AudioScaleZero",
     [] { return knobs([](Knobs& k) { k.astrh.dwScale = 0; }); },
     kAllGood},
    {"AudioRateZero",
     [] { return knobs([](Knobs& k) { k.astrh.dwRate = 0; }); },
     kAllGood},
    {"AudioNoChannels",
     [] { return knobs([](Knobs& k) { k.wfx.nChannels = 0; }); },
     kAllGood},
    {"AudioBlockAlignZero",
     [] { return knobs([](Knobs& k) { k.wfx.nBlockAlign = 0; }); },
     "video 6 good 0 bad 0 failed; audio 0 good 0 bad 6 failed first 80004005 Audio stream has no block alignment."},
    {"AudioBlockAlignZeroSixteenByteForm",
     [] {
         return edited(false, [](File& f) {
             put32(f.bytes, f.at["strf1"] + 4, 16);
             f.bytes[f.at["strf1"] + 8 + 12] = 0;
             f.bytes[f.at["strf1"] + 8 + 13] = 0;
         });
     },
     kNoIndex},
    {"FrameSizeOverflows",
     [] {
         return knobs([](Knobs& k) {
             k.bih.biWidth = 0x7FFFFFFF;
             k.bih.biHeight = -0x7FFFFFFF;
             k.bih.biBitCount = 0xFFFF;
             k.bih.biSizeImage = 0xFFFFFFFF;
         });
     },
     kAllGood},
    {"FormatSizeHuge",
     [] { return knobs([](Knobs& k) { k.bih.biSize = 0xFFFFFFF0; }); },
     kAllGood},
    {"FormatSizeUnderHeader",
     [] { return knobs([](Knobs& k) { k.bih.biSize = 4; }); },
     kAllGood},
    {"Idx1NotMultipleOf16",
     [] {
         return edited(false, [](File& f) { put32(f.bytes, f.at["idx1"] + 4, read32(f.bytes, f.at["idx1"] + 4) - 5); });
     },
     "video 6 good 0 bad 0 failed; audio 5 good 0 bad 1 failed first 80004005 Failed to find superindex."},
    {"Idx1LargerThanFile",
     [] { return sized("idx1", 0x7FFFFFF0); },
     kAllGood},
    {"Idx1OffsetsPastEndAbsolute",
     [] {
         return edited(false, [](File& f) {
             for (unsigned i = 0; i < 2 * kFrames; ++i)
                 put32(f.bytes, f.at["idx1"] + 8 + 16 * i + 8, 0xFFFFFF00u - i * 0x1000);
         });
     },
     "video 0 good 0 bad 6 failed first 80004005 Frame[0] Failed to read from disk. ; audio 0 good 0 bad 6 failed first 80070026 Audio chunk at 4294962944 runs past the end of the file. "},
    {"Idx1FrameOver256MiB",
     [] {
         return edited(false, [](File& f) { put32(f.bytes, f.at["idx1"] + 8 + 12, 0x10000001); });
     },
     "video 5 good 0 bad 1 failed first 80090321 ; audio 6 good 0 bad 0 failed"},
    {"Idx1AudioOver256MiB",
     [] {
         return edited(false, [](File& f) { put32(f.bytes, f.at["idx1"] + 8 + 16 + 12, 0x10000000); });
     },
     "video 6 good 0 bad 0 failed; audio 0 good 0 bad 6 failed first 80070026 Audio chunk at 642 runs past the end of the file. "},
    {"Idx1UnknownStream",
     [] {
         return edited(false, [](File& f) { put32(f.bytes, f.at["idx1"] + 8, Morvane::makeFourCC("99dc")); });
     },
     "video 0 good 5 bad 1 failed first 80004005 Failed to find superindex.; audio 6 good 0 bad 0 failed"},
    {"IndxEntriesInUseMax",
     [] { return edited(true, [](File& f) { put32(f.bytes, f.at["indx"] + 12, 0xFFFFFFFF); }); },
     "loaded with INDX chunk size was invalid2.: video 6 good 0 bad 0 failed; audio 6 good 0 bad 0 failed"},
    {"IndxLongsPerEntry0",
     [] { return edited(true, [](File& f) { f.bytes[f.at["indx"] + 8] = 0; }); },
     "loaded with INDX chunk wLongsPerEntry was not 4.: video 6 good 0 bad 0 failed; audio 6 good 0 bad 0 failed"},
    {"IndxLongsPerEntry1",
     [] { return edited(true, [](File& f) { f.bytes[f.at["indx"] + 8] = 1; }); },
     "loaded with INDX chunk wLongsPerEntry was not 4.: video 6 good 0 bad 0 failed; audio 6 good 0 bad 0 failed"},
    {"IndxLongsPerEntry3",
     [] { return edited(true, [](File& f) { f.bytes[f.at["indx"] + 8] = 3; }); },
     "loaded with INDX chunk wLongsPerEntry was not 4.: video 6 good 0 bad 0 failed; audio 6 good 0 bad 0 failed"},
    {"IndxLongsPerEntry255",
     [] { return edited(true, [](File& f) { f.bytes[f.at["indx"] + 8] = 255; }); },
     "loaded with INDX chunk size was invalid2.: video 6 good 0 bad 0 failed; audio 6 good 0 bad 0 failed"},
    {"IndxEntryPointsAtItself",
     [] {
         return edited(true, [](File& f) { put64(f.bytes, f.at["indx"] + sizeof(AVISUPERINDEX), f.at["indx"]); });
     },
     "open 80004005 LoadINDX Error: index type not AVI_INDEX_OF_CHUNKS; audio 6 good 0 bad 0 failed"},
    {"IndxEntryPointsPastEnd",
     [] {
         return edited(true, [](File& f) {
             put64(f.bytes, f.at["indx"] + sizeof(AVISUPERINDEX), f.bytes.size() - 16);
         });
     },
     "open 80004005 Failed to read indx data.; audio 6 good 0 bad 0 failed"},
    {"IndxEntryPointsAtMaxOffset",
     [] {
         return edited(true, [](File& f) { put64(f.bytes, f.at["indx"] + sizeof(AVISUPERINDEX), ~0ull - 8); });
     },
     "open 80004005 Failed to seek to indx entry.; audio 6 good 0 bad 0 failed"},
    {"IndxEntrySizeHuge",
     [] {
         return edited(true, [](File& f) { put32(f.bytes, f.at["indx"] + sizeof(AVISUPERINDEX) + 8, 0xFFFFFFF0); });
     },
     "open 80004005 Failed to read indx data.; audio 6 good 0 bad 0 failed"},
    {"IndxEntryDurationZero",
     [] {
         return edited(true, [](File& f) { put32(f.bytes, f.at["indx"] + sizeof(AVISUPERINDEX) + 12, 0); });
     },
     "open 80004005 Failed to find superindex.; audio 6 good 0 bad 0 failed"},
    {"IndxEntryDurationMax",
     [] {
         return edited(true, [](File& f) { put32(f.bytes, f.at["indx"] + sizeof(AVISUPERINDEX) + 12, 0xFFFFFFFF); });
     },
     kAllGood},
    {"IxBaseOffsetPastEnd",
     [] { return edited(true, [](File& f) { put64(f.bytes, f.at["ix00"] + 20, 1ull << 40); }); },
     "video 0 good 0 bad 6 failed first 80004005 Frame[0] Failed to read from disk. ; audio 6 good 0 bad 0 failed"},
    {"IxBaseOffsetWraps",
     [] { return edited(true, [](File& f) { put64(f.bytes, f.at["ix00"] + 20, ~0ull - 100); }); },
     "video 0 good 0 bad 6 failed first 80070026 Frame[0] Failed to seek to 18446744073709551615. ; audio 6 good 0 bad 0 failed"},
    {"IxEntriesInUseMax",
     [] { return edited(true, [](File& f) { put32(f.bytes, f.at["ix00"] + 12, 0xFFFFFFFF); }); },
     "open 80004005 Failed to read indx data.; audio 6 good 0 bad 0 failed"},
    {"IxFrameOver256MiB",
     [] { return edited(true, [](File& f) { put32(f.bytes, f.at["ix00"] + 32 + 4, 0x10000001); }); },
     "open 80004005 LoadINDX invalid entry size.; audio 6 good 0 bad 0 failed"},
    {"IxFrameSizeWithKeyBit",
     [] { return edited(true, [](File& f) { put32(f.bytes, f.at["ix00"] + 32 + 12, 0x8000012C); }); },
     kAllGood},
    {"IxTwoFieldSubType",
     [] { return edited(true, [](File& f) { f.bytes[f.at["ix00"] + 10] = AVI_INDEX_2FIELD; }); },
     "open 80004005 Failed to read indx data.; audio 6 good 0 bad 0 failed"},
    {"IxFrameTypeSubType",
     [] { return edited(true, [](File& f) { f.bytes[f.at["ix00"] + 10] = AVI_INDEX_IBP; }); },
     "open 80004005 Failed to read indx data.; audio 6 good 0 bad 0 failed"},
    {"IxIndexOfIndexes",
     [] { return edited(true, [](File& f) { f.bytes[f.at["ix00"] + 11] = AVI_INDEX_OF_INDEXES; }); },
     "open 80004005 LoadINDX Error: index type not AVI_INDEX_OF_CHUNKS; audio 6 good 0 bad 0 failed"},
};

class Hardening : public testing::TestWithParam<Case>
{};

TEST_P(Hardening, EndsWithCodeAndTextOrTheFramesThatExist)
{
    const Case& c = GetParam();
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::string path = (dir.path() / "bad.avi").string();
    writeFile(path, c.file());
    avitest::AllocationWatch watch;
    EXPECT_EQ(outcome(path), c.expected);
    // Nothing in these files justifies more than a few header buffers.
    EXPECT_LE(watch.largest(), 4u << 20);
}

INSTANTIATE_TEST_SUITE_P(Reader, Hardening, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case>& i) { return std::string(i.param.name); });

// A file cut anywhere inside movi: without the idx1 at the end nothing is
// indexed; with the OpenDML index at the front of movi the frames wholly
// before the cut read back with their bytes and the later ones fail.
TEST(ReaderHardening, FilesCutInsideMovi)
{
    testutil::TempDir dir;
    std::string path = (dir.path() / "cut.avi").string();
    for (bool openDml : {false, true}) {
        Knobs k;
        k.openDml = openDml;
        File f = make(k);
        const std::size_t indexEnd = openDml ? f.at["ix00"] + sizeof(AVISTDINDEX) + 8 * kFrames : 0;
        for (std::size_t cut = f.at["movi"] + 12; cut <= f.at["idx1"]; cut += 37) {
            SCOPED_TRACE(std::string(openDml ? "OpenDML" : "idx1") + " cut at " + std::to_string(cut));
            writeFile(path, Bytes(f.bytes.begin(), f.bytes.begin() + static_cast<long>(cut)));
            avitest::AllocationWatch watch;
            std::string got = outcome(path);
            EXPECT_LE(watch.largest(), 4u << 20);
            const std::string walk = "loaded with Failed to read after movi data.: ";
            if (!openDml) {
                EXPECT_EQ(got, walk + kNoIndex);
                continue;
            }
            if (cut < indexEnd) {
                const char* text = cut <= f.at["ix00"] ? "Failed to seek to indx entry." : "Failed to read indx data.";
                EXPECT_EQ(got, walk + "open 80004005 " + text + "; open 80004005 No index table.");
                continue;
            }
            unsigned whole = 0;
            while (whole < kFrames && f.at["frame" + std::to_string(whole)] + 8 + kVideoBytes <= cut)
                ++whole;
            std::string video = walk + "video " + std::to_string(whole) + " good 0 bad " +
                                std::to_string(kFrames - whole) + " failed";
            if (whole == kFrames) {
                EXPECT_EQ(got, video + "; open 80004005 No index table.");
                continue;
            }
            // A frame read short ends the file; one whose sector lies past it fails outright.
            std::string failure = "] Failed to read from disk. ; open 80004005 No index table.";
            std::string frame = "Frame[" + std::to_string(whole);
            EXPECT_TRUE(got == video + " first 80070026 " + frame + failure ||
                        got == video + " first 80004005 " + frame + failure)
                << got;
        }
    }
}

} // namespace
