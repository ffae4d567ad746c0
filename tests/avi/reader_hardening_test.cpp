// Broken files beyond the named failures: every size field of the header
// at 0, at 0xFFFFFFF8 and past the end, broken stream headers and formats,
// broken legacy and OpenDML indexes, and files cut inside movi. Each must
// end with the container's code and text, or read the frames that really
// are there, without a fault, a hang or an allocation the file cannot
// justify.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <functional>
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
struct File { Bytes bytes; std::map<std::string, std::size_t> at; };

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
    f.at["idx1"] = b.chunk("idx1", bytesOf(idx));
    b.end(riffAt);
    if (k.openDml) {
        b.patch64(f.at["indx"] + sizeof(AVISUPERINDEX), ix);
        b.patch32(f.at["indx"] + sizeof(AVISUPERINDEX) + 8, static_cast<std::uint32_t>(sizeof(AVISTDINDEX) + 8 * kFrames));
    }
    f.bytes = b.bytes();
    return f;
}

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
    std::string name;
    std::function<Bytes()> file;
    std::string expected;
};

constexpr const char* kVideoOnly = "video 6 good 0 bad 0 failed";
constexpr const char* kNoAudioAlign =
    "video 6 good 0 bad 0 failed; audio 0 good 0 bad 6 failed first 80004005 Audio stream has no block alignment.";
const std::string kAudioOnly = "; audio 6 good 0 bad 0 failed";

std::function<Bytes()> knob(std::function<void(Knobs&)> change)
{
    return [=] {
        Knobs k;
        change(k);
        return make(k).bytes;
    };
}

std::function<Bytes()> edit(bool openDml, std::function<void(File&)> change)
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

// Every chunk's size at 0, at 0xFFFFFFF8 and past the end of the file.
struct SizeRow { const char* chunk; bool openDml; const char* zero; const char* big; const char* pastEnd; };

constexpr const char* kMoviWalk =
    "loaded with Failed to read after movi data.: open 80004005 No index table.; open 80004005 No index table.";
constexpr const char* kIndxLost = "video 6 good 0 bad 0 failed; open 80004005 No index table.";

const SizeRow kSizeRows[] = {
    {"RIFF", false, "no streams", kAllGood, kAllGood},
    {"hdrl", false, "no streams", "load 80004005 'hdrl' chunk is too large.",
     "load 8007007A Failed to read header data."},
    {"avih", false, "load 80004005 Stream array is null.", kNoIndex, kNoIndex},
    {"strl", false, kNoIndex, kAllGood, kAllGood},
    {"strh", false, kNoIndex, kNoIndex, kNoIndex},
    {"strf", false, kNoAudioAlign, kNoIndex, kNoIndex},
    {"strh1", false, kNoIndex, kNoIndex, kNoIndex},
    {"strf1", false, "load 80004005 Invalid size for wav format data.", kNoIndex, kNoIndex},
    {"movi", false, kNoIndex, kMoviWalk, kMoviWalk},
    {"idx1", false, kNoIndex, kAllGood, kAllGood},
    {"indx", true,
     "loaded with INDX chunk size was invalid.: open 80004005 No index table.; open 80004005 No index table.",
     kIndxLost, kIndxLost},
    {"ix00", true, kAllGood, kAllGood, kAllGood},
};

std::vector<Case> sizeCases()
{
    std::vector<Case> out;
    for (const SizeRow& r : kSizeRows) {
        std::string name = r.chunk;
        name[0] = static_cast<char>(std::toupper(name[0]));
        out.push_back({name + "SizeZero", poke(r.openDml, r.chunk, 4, std::uint32_t(0)), r.zero});
        out.push_back({name + "SizeFFFFFFF8", poke(r.openDml, r.chunk, 4, 0xFFFFFFF8u), r.big});
        std::string chunk = r.chunk;
        out.push_back({name + "SizePastEnd",
                       edit(r.openDml,
                            [chunk](File& f) {
                                put32(f.bytes, f.at.at(chunk) + 4, static_cast<std::uint32_t>(f.bytes.size() + 1000));
                            }),
                       r.pastEnd});
    }
    return out;
}

constexpr std::size_t kSuper = sizeof(AVISUPERINDEX); // the first super index entry
constexpr std::size_t kIxEntry = sizeof(AVISTDINDEX); // the first standard index entry

const std::vector<Case> kCases = [] {
    std::vector<Case> v = sizeCases();
    std::vector<Case> more = {
        {"OpenDmlIntact", edit(true, [](File&) {}), kAllGood},
        {"FewerStreamsThanLists", knob([](Knobs& k) { k.avih.dwStreams = 1; }), kVideoOnly},
        {"MoreStreamsThanLists", knob([](Knobs& k) { k.avih.dwStreams = 3; }),
         kAllGood + std::string("; audio 0 good 0 bad 0 failed")},
        {"StreamCountPastTheHeader", knob([](Knobs& k) { k.avih.dwStreams = 0x10000; }),
         "load 8007000E Failed to allocate stream array memory."},
        {"StrfBeforeStrh", edit(false,
                                [](File& f) {
                                    // Swap the video strh (64 bytes) and strf (48 bytes).
                                    auto h = f.bytes.begin() + static_cast<long>(f.at["strh"]);
                                    std::rotate(h, h + 64, h + 112);
                                }),
         kNoAudioAlign},
        // The audio strl's strh becomes a second video strh.
        {"StrhDuplicated", edit(false,
                                [](File& f) {
                                    std::copy_n(f.bytes.begin() + static_cast<long>(f.at["strh"]), 64,
                                                f.bytes.begin() + static_cast<long>(f.at["strh1"]));
                                }),
         "video 6 good 0 bad 0 failed; video 0 good 6 bad 0 failed"},
        // The audio strh becomes JUNK: both strf chunks meet one stream header.
        {"StrfDuplicated", poke(false, "strh1", 0, Morvane::makeFourCC("JUNK")),
         "video 6 good 0 bad 0 failed; audio 0 good 0 bad 0 failed"},
        {"StrhTruncated", poke(false, "strh", 4, 20u), kNoIndex},
        {"VideoStrfTruncated", poke(false, "strf", 4, 20u), kNoIndex},
        {"AudioStrfTruncatedTo16", poke(false, "strf1", 4, 16u), kNoIndex},
        {"VideoScaleZero", knob([](Knobs& k) { k.vstrh.dwScale = 0; }), kAllGood},
        {"VideoRateZero", knob([](Knobs& k) { k.vstrh.dwRate = 0; }), kAllGood},
        {"AudioScaleZero", knob([](Knobs& k) { k.astrh.dwScale = 0; }), kAllGood},
        {"AudioRateZero", knob([](Knobs& k) { k.astrh.dwRate = 0; }), kAllGood},
        {"AudioNoChannels", knob([](Knobs& k) { k.wfx.nChannels = 0; }), kAllGood},
        {"AudioBlockAlignZero", knob([](Knobs& k) { k.wfx.nBlockAlign = 0; }), kNoAudioAlign},
        {"AudioBlockAlignZeroSixteenByteForm", edit(false,
                                                    [](File& f) {
                                                        put32(f.bytes, f.at["strf1"] + 4, 16);
                                                        f.bytes[f.at["strf1"] + 8 + 12] = 0;
                                                        f.bytes[f.at["strf1"] + 8 + 13] = 0;
                                                    }),
         kNoIndex},
        {"FrameSizeOverflows", knob([](Knobs& k) {
             k.bih.biWidth = 0x7FFFFFFF;
             k.bih.biHeight = -0x7FFFFFFF;
             k.bih.biBitCount = 0xFFFF;
             k.bih.biSizeImage = 0xFFFFFFFF;
         }),
         kAllGood},
        {"FormatSizeHuge", knob([](Knobs& k) { k.bih.biSize = 0xFFFFFFF0; }), kAllGood},
        {"FormatSizeUnderHeader", knob([](Knobs& k) { k.bih.biSize = 4; }), kAllGood},
        {"Idx1NotMultipleOf16", poke(false, "idx1", 4, std::uint32_t(16 * 2 * kFrames - 5)),
         "video 6 good 0 bad 0 failed; audio 5 good 0 bad 1 failed first 80004005 Failed to find superindex."},
        {"Idx1LargerThanFile", poke(false, "idx1", 4, 0x7FFFFFF0u), kAllGood},
        {"Idx1OffsetsPastEndAbsolute", edit(false,
                                            [](File& f) {
                                                for (unsigned i = 0; i < 2 * kFrames; ++i)
                                                    put32(f.bytes, f.at["idx1"] + 8 + 16 * i + 8,
                                                          0xFFFFFF00u - i * 0x1000);
                                            }),
         "video 0 good 0 bad 6 failed first 80004005 Frame[0] Failed to read from disk. ; audio 0 good 0 bad 6 "
         "failed first 80070026 Audio chunk at 4294962944 runs past the end of the file. "},
        {"Idx1FrameOver256MiB", poke(false, "idx1", 8 + 12, 0x10000001u),
         "video 5 good 0 bad 1 failed first 80090321 " + kAudioOnly},
        {"Idx1AudioOver256MiB", poke(false, "idx1", 8 + 16 + 12, 0x10000000u),
         "video 6 good 0 bad 0 failed; audio 0 good 0 bad 6 failed first 80070026 Audio chunk at 642 runs past "
         "the end of the file. "},
        {"Idx1UnknownStream", poke(false, "idx1", 8, Morvane::makeFourCC("99dc")),
         "video 0 good 5 bad 1 failed first 80004005 Failed to find superindex." + kAudioOnly},
        {"IndxEntriesInUseMax", poke(true, "indx", 12, 0xFFFFFFFFu),
         "loaded with INDX chunk size was invalid2.: " + std::string(kAllGood)},
        {"IndxLongsPerEntry0", poke(true, "indx", 8, std::uint8_t(0)),
         "loaded with INDX chunk wLongsPerEntry was not 4.: " + std::string(kAllGood)},
        {"IndxLongsPerEntry1", poke(true, "indx", 8, std::uint8_t(1)),
         "loaded with INDX chunk wLongsPerEntry was not 4.: " + std::string(kAllGood)},
        {"IndxLongsPerEntry3", poke(true, "indx", 8, std::uint8_t(3)),
         "loaded with INDX chunk wLongsPerEntry was not 4.: " + std::string(kAllGood)},
        {"IndxLongsPerEntry255", poke(true, "indx", 8, std::uint8_t(255)),
         "loaded with INDX chunk size was invalid2.: " + std::string(kAllGood)},
        {"IndxEntryPointsAtItself",
         edit(true, [](File& f) { put64(f.bytes, f.at["indx"] + kSuper, f.at["indx"]); }),
         "open 80004005 LoadINDX Error: index type not AVI_INDEX_OF_CHUNKS" + kAudioOnly},
        {"IndxEntryPointsPastEnd",
         edit(true, [](File& f) { put64(f.bytes, f.at["indx"] + kSuper, f.bytes.size() - 16); }),
         "open 80004005 Failed to read indx data." + kAudioOnly},
        {"IndxEntryPointsAtMaxOffset", poke(true, "indx", kSuper, ~0ull - 8),
         "open 80004005 Failed to seek to indx entry." + kAudioOnly},
        {"IndxEntrySizeHuge", poke(true, "indx", kSuper + 8, 0xFFFFFFF0u),
         "open 80004005 Failed to read indx data." + kAudioOnly},
        {"IndxEntryDurationZero", poke(true, "indx", kSuper + 12, 0u),
         "open 80004005 Failed to find superindex." + kAudioOnly},
        {"IndxEntryDurationMax", poke(true, "indx", kSuper + 12, 0xFFFFFFFFu), kAllGood},
        {"IxBaseOffsetPastEnd", poke(true, "ix00", 20, 1ull << 40),
         "video 0 good 0 bad 6 failed first 80004005 Frame[0] Failed to read from disk. " + kAudioOnly},
        {"IxBaseOffsetWraps", poke(true, "ix00", 20, ~0ull - 100),
         "video 0 good 0 bad 6 failed first 80070026 Frame[0] Failed to seek to 18446744073709551615. " +
             kAudioOnly},
        {"IxEntriesInUseMax", poke(true, "ix00", 12, 0xFFFFFFFFu),
         "open 80004005 Failed to read indx data." + kAudioOnly},
        {"IxFrameOver256MiB", poke(true, "ix00", kIxEntry + 4, 0x10000001u),
         "open 80004005 LoadINDX invalid entry size." + kAudioOnly},
        {"IxFrameSizeWithKeyBit", poke(true, "ix00", kIxEntry + 12, 0x8000012Cu), kAllGood},
        {"IxTwoFieldSubType", poke(true, "ix00", 10, std::uint8_t(AVI_INDEX_2FIELD)),
         "open 80004005 Failed to read indx data." + kAudioOnly},
        {"IxFrameTypeSubType", poke(true, "ix00", 10, std::uint8_t(AVI_INDEX_IBP)),
         "open 80004005 Failed to read indx data." + kAudioOnly},
        {"IxIndexOfIndexes", poke(true, "ix00", 11, std::uint8_t(AVI_INDEX_OF_INDEXES)),
         "open 80004005 LoadINDX Error: index type not AVI_INDEX_OF_CHUNKS" + kAudioOnly},
    };
    v.insert(v.end(), more.begin(), more.end());
    return v;
}();

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
                         [](const testing::TestParamInfo<Case>& i) { return i.param.name; });

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
