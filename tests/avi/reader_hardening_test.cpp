// Broken files, built field by field: the named failures, every size field
// of the header at 0, at 0xFFFFFFF8 and past the end, broken stream headers
// and formats, broken legacy and OpenDML indexes, and files cut inside movi.
// Each must end with its own code and text, or read the frames that really
// are there, without a fault, a hang or an allocation the file cannot
// justify.
#include <gtest/gtest.h>

#include <cctype>

#include "avi/AllocationWatch.h"
#include "avi/reader_small_file.h"

using namespace readertest;
using Morvane::convertString;

namespace {

constexpr const char* kVideoOnly = "video 6 good 0 bad 0 failed";
// The audio stream lost its header or format: nothing of it is counted.
constexpr const char* kNoAudio = "video 6 good 0 bad 0 failed; audio 0 good 0 bad 0 failed";
const std::string kAudioOnly = "; audio 6 good 0 bad 0 failed";

std::function<Bytes()> bytes(Bytes b)
{
    return [=] { return b; };
}

// Nothing is read once the walk refuses the file.
std::string refused(const char* code, const char* text)
{
    return std::string("load ") + code + " " + text;
}

// A super index fault leaves its text; the idx1 still indexes both streams.
std::string indxIgnored(const char* text)
{
    return std::string("loaded with ") + text + ": " + kAllGood;
}

// Every chunk's size at 0, at 0xFFFFFFF8 and past the end of the file. A
// size that cannot be right loses at most that chunk: the walk over the
// chunks finds the frames whatever the list and index sizes say.
struct SizeRow { const char* chunk; bool openDml; std::string zero, big, pastEnd; };

constexpr const char* kHdrlTooLarge = "load 80004005 'hdrl' chunk is too large.";

const SizeRow kSizeRows[] = {
    {"RIFF", false, kAllGood, kAllGood, kAllGood},
    {"hdrl", false, "no streams", kHdrlTooLarge, kHdrlTooLarge},
    {"avih", false, "load 80004005 Stream array is null.", kNoIndex, kNoIndex},
    {"strl", false, kNoIndex, kAllGood, kAllGood},
    {"strh", false, kNoIndex, kNoAudio, kNoAudio},
    {"strf", false, kNoAudio, kAllGood, kAllGood},
    {"strh1", false, kNoAudio, kNoAudio, kNoAudio},
    {"strf1", false, "load 80004005 Invalid size for wav format data.", kAllGood, kAllGood},
    {"movi", false, kAllGood, kAllGood, kAllGood},
    {"idx1", false, kAllGood, kAllGood, kAllGood},
    {"indx", true, indxIgnored("INDX chunk size was invalid."), kAllGood, kAllGood},
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
// The video's standard index refused, the audio read through the idx1.
const std::string kIxUnread = "open 80004005 Failed to read indx data." + kAudioOnly;
const std::string kIxNotChunks = "open 80004005 LoadINDX Error: index type not AVI_INDEX_OF_CHUNKS" + kAudioOnly;

const std::vector<Case> kCases = [] {
    std::vector<Case> v = sizeCases();
    std::vector<Case> more = {
        {"ZeroLength", bytes({}), refused("8007139F", "Failed to open file, zero length.")},
        {"NotRiff", poke(false, "RIFF", 0, 'X'), refused("80004005", "File is not an avi file.")},
        {"NotAviForm", poke(false, "RIFF", 8, 'W'), refused("80004005", "File is not an avi file.")},
        {"TooShortForRiff", bytes({'R', 'I', 'F', 'F'}), refused("80004005", "File is not an avi file.")},
        {"NoHdrl", poke(false, "hdrl", 8, 'x'), refused("80004005", "Failed to find hdrl chunk.")},
        // A JUNK as long as the first header buffer inside hdrl (capture tools
        // reserve that much): the walk reads on past the buffer.
        {"LongJunkInHdrl", knob([](Knobs& k) { k.hdrlJunk = 0x30000; }), kAllGood},
        {"NoStreams", knob([](Knobs& k) { k.avih.dwStreams = 0; }), refused("80004005", "No streams found in header.")},
        {"StrhBeforeAvih", knob([](Knobs& k) { k.avihLast = true; }), refused("80004005", "Stream array is null.")},
        {"StrfBeforeAvih", knob([](Knobs& k) { k.avihLast = true, k.vstrh.fcc = Morvane::makeFourCC("JUNK"); }),
         refused("80004005", "Stream array is null2.")},
        {"AudioStrfUnder14", knob([](Knobs& k) { k.wfxSize = 12; }),
         refused("80004005", "Invalid size for wav format data.")},
        {"AudioWithoutChannels", knob([](Knobs& k) { k.wfxSize = 14, k.wfx.nChannels = 0; }),
         refused("80004005", "Invalid wav format data: no channels.")},
        {"TypeOneDv", knob([](Knobs& k) { k.vstrh.fccType = Morvane::makeFourCC("iavs"); }),
         refused("80070032", "type 1 AVI unsupported.")},
        {"OpenDmlIntact", edit(true, [](File&) {}), kAllGood},
        {"FewerStreamsThanLists", knob([](Knobs& k) { k.avih.dwStreams = 1; }), kVideoOnly},
        {"MoreStreamsThanLists", knob([](Knobs& k) { k.avih.dwStreams = 3; }),
         kAllGood + std::string("; audio 0 good 0 bad 0 failed")},
        {"StreamCountPastTheHeader", knob([](Knobs& k) { k.avih.dwStreams = 0x10000; }),
         refused("8007000E", "Failed to allocate stream array memory.")},
        // Swap the video strh (64 bytes) and strf (48 bytes).
        {"StrfBeforeStrh", edit(false, [](File& f) { std::rotate(&f.bytes[f.at["strh"]], &f.bytes[f.at["strh"] + 64],
                                                                 &f.bytes[f.at["strh"] + 112]); }),
         kNoAudio},
        // The audio strl's strh becomes a second video strh.
        {"StrhDuplicated",
         edit(false, [](File& f) { std::copy_n(&f.bytes[f.at["strh"]], 64, &f.bytes[f.at["strh1"]]); }),
         "video 6 good 0 bad 0 failed; video 0 good 0 bad 0 failed"},
        // The audio strh becomes JUNK: both strf chunks meet one stream header.
        {"StrfDuplicated", poke(false, "strh1", 0, Morvane::makeFourCC("JUNK")), kNoAudio},
        {"StrhTruncated", poke(false, "strh", 4, 20u), kNoIndex},
        {"VideoStrfTruncated", poke(false, "strf", 4, 20u), kNoAudio},
        {"AudioStrfTruncatedTo16", poke(false, "strf1", 4, 16u), kAllGood},
        // The file ends inside the audio format, whose size runs to 4 GiB.
        {"AudioStrfCutInsideItsHeader",
         edit(false, [](File& f) { put32(f.bytes, f.at["strf1"] + 4, ~0u), f.bytes.resize(f.at["strf1"] + 25); }),
         kHdrlTooLarge},
        {"VideoScaleZero", knob([](Knobs& k) { k.vstrh.dwScale = 0; }), kAllGood},
        {"VideoRateZero", knob([](Knobs& k) { k.vstrh.dwRate = 0; }), kAllGood},
        {"AudioScaleZero", knob([](Knobs& k) { k.astrh.dwScale = 0; }), kAllGood},
        {"AudioRateZero", knob([](Knobs& k) { k.astrh.dwRate = 0; }), kAllGood},
        {"AudioNoChannels", knob([](Knobs& k) { k.wfx.nChannels = 0; }), kAllGood},
        {"AudioBlockAlignZero", knob([](Knobs& k) { k.wfx.nBlockAlign = 0; }), kNoAudio},
        {"AudioBlockAlignZeroSixteenByteForm", edit(false, [](File& f) {
             put32(f.bytes, f.at["strf1"] + 4, 16);
             f.bytes[f.at["strf1"] + 20] = f.bytes[f.at["strf1"] + 21] = 0;
         }), kNoAudio},
        {"FrameSizeOverflows", knob([](Knobs& k) {
             k.bih.biWidth = 0x7FFFFFFF, k.bih.biHeight = -0x7FFFFFFF, k.bih.biBitCount = 0xFFFF, k.bih.biSizeImage = ~0u;
         }), kAllGood},
        {"FormatSizeHuge", knob([](Knobs& k) { k.bih.biSize = 0xFFFFFFF0; }), kAllGood},
        {"FormatSizeUnderHeader", knob([](Knobs& k) { k.bih.biSize = 4; }), kAllGood},
        {"Idx1NotMultipleOf16", poke(false, "idx1", 4, std::uint32_t(16 * 2 * kFrames - 5)),
         "video 6 good 0 bad 0 failed; audio 5 good 0 bad 0 failed"},
        {"Idx1LargerThanFile", poke(false, "idx1", 4, 0x7FFFFFF0u), kAllGood},
        // Offsets that name no chunk, relative or absolute, are not trusted: the chunks are walked.
        {"Idx1OffsetsPastEndAbsolute", edit(false, [](File& f) {
             for (unsigned i = 0; i < 2 * kFrames; ++i)
                 put32(f.bytes, f.at["idx1"] + 16 * i + 16, 0xFFFFFF00u - i * 0x1000);
         }), kAllGood},
        {"Idx1FrameOver256MiB", poke(false, "idx1", 8 + 12, 0x10000001u), kAllGood},
        {"Idx1AudioOver256MiB", poke(false, "idx1", 8 + 16 + 12, 0x10000000u),
         "video 6 good 0 bad 0 failed; audio 0 good 5 bad 0 failed"},
        {"Idx1UnknownStream", poke(false, "idx1", 8, Morvane::makeFourCC("99dc")),
         "video 0 good 5 bad 0 failed" + kAudioOnly},
        // indx faults do not fail the header walk; they leave their text and no super index.
        // Four entries in use, two of them in the chunk; then all of them.
        {"IndxEntriesNotThere",
         edit(true, [](File& f) { put32(f.bytes, f.at["indx"] + 4, 56), put32(f.bytes, f.at["indx"] + 12, 4); }),
         indxIgnored("INDX chunk size was invalid2.")},
        {"IndxEntriesInUseMax", poke(true, "indx", 12, 0xFFFFFFFFu), indxIgnored("INDX chunk size was invalid2.")},
        {"IndxLongsPerEntry", poke(true, "indx", 8, std::uint16_t(2)),
         indxIgnored("INDX chunk wLongsPerEntry was not 4.")},
        {"IndxLongsPerEntry255", poke(true, "indx", 8, std::uint8_t(255)), indxIgnored("INDX chunk size was invalid2.")},
        {"IndxNotIndexOfIndexes", poke(true, "indx", 11, std::uint8_t(1)),
         indxIgnored("INDX chunk bIndexSubType was not zero which is not supported.")},
        {"IndxStreamOutOfRange", poke(true, "indx", 16, Morvane::makeFourCC("07dc")),
         indxIgnored("INDX chunk referenced invalid stream index.")},
        {"IndxSubTypeUnknown", poke(true, "indx", 10, std::uint8_t(5)),
         indxIgnored("INDX chunk bIndexSubType was not a supported value.")},
        {"IndxTwice", knob([](Knobs& k) { k.openDml = true, k.indxCopies = 2; }),
         indxIgnored("INDX chunk already allocated.")},
        {"IndxEntryPointsAtItself",
         edit(true, [](File& f) { put64(f.bytes, f.at["indx"] + kSuper, f.at["indx"]); }), kIxNotChunks},
        // Super index entries past the end: the idx1 indexes the video instead.
        {"IndxEntryPointsPastEnd",
         edit(true, [](File& f) { put64(f.bytes, f.at["indx"] + kSuper, f.bytes.size() - 16); }), kAllGood},
        {"IndxEntryPointsAtMaxOffset", poke(true, "indx", kSuper, ~0ull - 8), kAllGood},
        {"IndxEntrySizeHuge", poke(true, "indx", kSuper + 8, 0xFFFFFFF0u), kAllGood},
        {"IndxEntryDurationZero", poke(true, "indx", kSuper + 12, 0u),
         "open 80004005 Failed to find superindex." + kAudioOnly},
        {"IndxEntryDurationMax", poke(true, "indx", kSuper + 12, 0xFFFFFFFFu), kAllGood},
        {"IxBaseOffsetPastEnd", poke(true, "ix00", 20, 1ull << 40),
         "video 0 good 0 bad 6 failed first 80004005 Frame[0] Failed to read from disk. " + kAudioOnly},
        {"IxBaseOffsetWraps", poke(true, "ix00", 20, ~0ull - 100),
         "video 0 good 0 bad 6 failed first 80070026 Frame[0] Failed to seek to 18446744073709551615. " +
             kAudioOnly},
        {"IxEntriesInUseMax", poke(true, "ix00", 12, 0xFFFFFFFFu), kIxUnread},
        {"IxFrameOver256MiB", poke(true, "ix00", kIxEntry + 4, 0x10000001u),
         "open 80004005 LoadINDX invalid entry size." + kAudioOnly},
        {"IxFrameSizeWithKeyBit", poke(true, "ix00", kIxEntry + 12, 0x8000012Cu), kAllGood},
        {"IxTwoFieldSubType", poke(true, "ix00", 10, std::uint8_t(AVI_INDEX_2FIELD)), kIxUnread},
        {"IxFrameTypeSubType", poke(true, "ix00", 10, std::uint8_t(AVI_INDEX_IBP)), kIxUnread},
        {"IxIndexOfIndexes", poke(true, "ix00", 11, std::uint8_t(AVI_INDEX_OF_INDEXES)), kIxNotChunks},
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
// Cut inside movi, the chunks wholly before the cut read back with their
// bytes: found by the walk when the idx1 at the end is gone, by the OpenDML
// index at the front of movi (the later frames then fail) when it is whole.
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
            unsigned video = 0, audio = 0;
            for (unsigned i = 0; i < kFrames; ++i) {
                std::size_t end = f.at["frame" + std::to_string(i)] + 8 + kVideoBytes;
                video += end <= cut;
                audio += end + 8 + kAudioBytes <= cut;
            }
            // The walk finds nothing before the first whole frame.
            std::string audioPart = video ? "audio " + std::to_string(audio) + " good 0 bad 0 failed"
                                          : std::string("open 80004005 No index table.");
            if (openDml && cut >= indexEnd) {
                std::string v = "video " + std::to_string(video) + " good 0 bad " + std::to_string(kFrames - video) +
                                " failed";
                if (video == kFrames) {
                    EXPECT_EQ(got, v + "; " + audioPart);
                    continue;
                }
                // A frame read short ends the file; one whose sector lies past it fails outright.
                std::string tail = "Frame[" + std::to_string(video) + "] Failed to read from disk. ; " + audioPart;
                EXPECT_TRUE(got == v + " first 80070026 " + tail || got == v + " first 80004005 " + tail) << got;
                continue;
            }
            if (video == 0)
                EXPECT_EQ(got, kNoIndex);
            else
                EXPECT_EQ(got, "video " + std::to_string(video) + " good 0 bad 0 failed; " + audioPart);
        }
    }
}

TEST(ReaderHeader, QuirksOfTheWalk)
{
    testutil::TempDir dir;
    std::string path = (dir.path() / "q.avi").string();
    // A short strh consumes no record; a 16-byte audio strf derives its bits
    // from block align and channels; dwScale 0 gives rate 0.
    Knobs k;
    Bytes shortStrh = bytesOf(streamHeader("vids", "xxxx", 1, 1, 1));
    RiffBuilder extra;
    extra.chunk("strh", Bytes(shortStrh.begin() + 8, shortStrh.begin() + 48));
    k.beforeStrh = extra.bytes();
    k.vstrh.dwScale = 0;
    k.wfx.wBitsPerSample = 99;
    k.wfxSize = 16;
    writeFile(path, make(k).bytes);

    Morvane::Avi::FileReader r;
    ASSERT_EQ(r.load(convertString(path)), S_OK) << convertString(r.getLastError());
    ASSERT_EQ(r.get_StreamCount(), 2u);
    EXPECT_EQ(r.get_FCC(0), Morvane::makeFourCC("dvsd"));
    EXPECT_EQ(r.get_Rate(0), 0.0);
    EXPECT_EQ(r.get_BitsPerSample(1), 16u);
    EXPECT_EQ(r.get_ApproxDataRate(0), 0u);
    EXPECT_EQ(r.GetStreamIndexFromChunkId(Morvane::makeFourCC("01wb")), 1);
}

TEST(ReaderHeader, NoFileMeansNoHeader)
{
    Morvane::Avi::FileReader r;
    EXPECT_EQ(r.ReaderHeader(), E_UNEXPECTED);
    EXPECT_EQ(convertString(r.getLastError()), "no file loaded.");
    EXPECT_NE(r.load(L"/nonexistent/file.avi"), S_OK);
    EXPECT_EQ(convertString(r.getLastError()), "Failed to open file.");
    EXPECT_EQ(r.get_StreamCount(), 0u);
    EXPECT_FALSE(r.ValidStream(0));
    EXPECT_EQ(r.get_BufferSize(-1), 0u);
    EXPECT_EQ(r.get_TimeCode(0, nullptr), E_NOTIMPL);
    EXPECT_EQ(r.get_VideoFormat(), nullptr);
}

} // namespace
