// Broken files beyond the named failures: every size field of the header
// at 0, at 0xFFFFFFF8 and past the end, broken stream headers and formats,
// broken legacy and OpenDML indexes, and files cut inside movi. Each must
// end with the container's code and text, or read the frames that really
// are there, without a fault, a hang or an allocation the file cannot
// justify.
#include <gtest/gtest.h>

#include <cctype>

#include "avi/AllocationWatch.h"
#include "avi/reader_small_file.h"

using namespace readertest;

namespace {

constexpr const char* kVideoOnly = "video 6 good 0 bad 0 failed";
constexpr const char* kNoAudioAlign =
    "video 6 good 0 bad 0 failed; audio 0 good 0 bad 6 failed first 80004005 Audio stream has no block alignment.";
const std::string kAudioOnly = "; audio 6 good 0 bad 0 failed";

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
        // The file ends inside the audio format, whose size runs to 4 GiB.
        {"AudioStrfCutInsideItsHeader", edit(false,
                                             [](File& f) {
                                                 put32(f.bytes, f.at["strf1"] + 4, 0xFFFFFFFFu);
                                                 f.bytes.resize(f.at["strf1"] + 8 + 17);
                                             }),
         kNoIndex},
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
    avitest::AllocationWatch watch;
    EXPECT_EQ(outcomeOf(GetParam()), GetParam().expected);
    // Nothing in these files justifies more than a few header buffers.
    EXPECT_LE(watch.largest(), 4u << 20);
}

INSTANTIATE_TEST_SUITE_P(Reader, Hardening, testing::ValuesIn(kCases), caseName);

// Every prefix of the file and every 4 header bytes set to 0 or 0xFF must
// load or fail cleanly (under the address sanitizer this means something).
// Cut inside movi: without the idx1 at the end nothing is indexed; with the
// OpenDML index at the front of movi the frames wholly before the cut read
// back with their bytes and the later ones fail.
TEST(ReaderHardening, TruncatedAndScribbledFiles)
{
    testutil::TempDir dir;
    std::string path = (dir.path() / "cut.avi").string();
    auto exercise = [&](const Bytes& b) {
        writeFile(path, b);
        avitest::AllocationWatch watch;
        std::string got = outcome(path);
        EXPECT_LE(watch.largest(), 4u << 20);
        return got;
    };
    for (bool openDml : {false, true}) {
        Knobs k;
        k.openDml = openDml;
        File f = make(k);
        for (std::size_t i = 4; i < f.at["movi"]; ++i) {
            for (std::uint8_t v : {0x00, 0xFF}) {
                Bytes b = f.bytes;
                std::fill_n(b.begin() + static_cast<long>(i), 4, v);
                exercise(b);
            }
        }
        const std::size_t indexEnd = openDml ? f.at["ix00"] + sizeof(AVISTDINDEX) + 8 * kFrames : 0;
        for (std::size_t cut = 0; cut <= f.at["idx1"]; cut += 7) {
            SCOPED_TRACE(std::string(openDml ? "OpenDML" : "idx1") + " cut at " + std::to_string(cut));
            std::string got = exercise(Bytes(f.bytes.begin(), f.bytes.begin() + static_cast<long>(cut)));
            if (cut < f.at["movi"] + 12)
                continue;
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
