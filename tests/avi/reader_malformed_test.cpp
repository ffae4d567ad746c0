// Broken files, built field by field: each must give its own text and
// result code, and none may crash, hang or read outside a buffer.
#include <gtest/gtest.h>

#include "avi/reader_small_file.h"

using namespace readertest;
using Morvane::convertString;

namespace {

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

const Case kCases[] = {
    {"ZeroLength", bytes({}), refused("8007139F", "Failed to open file, zero length.")},
    {"NotRiff", poke(false, "RIFF", 0, 'X'), refused("80004005", "File is not an avi file.")},
    {"NotAviForm", poke(false, "RIFF", 8, 'W'), refused("80004005", "File is not an avi file.")},
    {"TooShortForRiff", bytes({'R', 'I', 'F', 'F'}), refused("80004005", "File is not an avi file.")},
    {"NoHdrl", poke(false, "hdrl", 8, 'x'), refused("80004005", "Failed to find hdrl chunk.")},
    {"HdrlTooLarge", poke(false, "hdrl", 4, 0x100000u), refused("80004005", "'hdrl' chunk is too large.")},
    // A JUNK as long as the first header buffer inside hdrl (capture tools
    // reserve that much): the walk reads on past the buffer.
    {"LongJunkInHdrl", knob([](Knobs& k) { k.hdrlJunk = 0x30000; }), kAllGood},
    {"NoStreams", knob([](Knobs& k) { k.avih.dwStreams = 0; }), refused("80004005", "No streams found in header.")},
    {"AbsurdStreamCount", knob([](Knobs& k) { k.avih.dwStreams = 0xFFFFFFFF; }),
     refused("8007000E", "Failed to allocate stream array memory.")},
    {"StrhBeforeAvih", knob([](Knobs& k) { k.avihLast = true; }), refused("80004005", "Stream array is null.")},
    {"StrfBeforeAvih", knob([](Knobs& k) { k.avihLast = true, k.vstrh.fcc = Morvane::makeFourCC("JUNK"); }),
     refused("80004005", "Stream array is null2.")},
    {"AudioStrfUnder14", knob([](Knobs& k) { k.wfxSize = 12; }),
     refused("80004005", "Invalid size for wav format data.")},
    {"AudioWithoutChannels", knob([](Knobs& k) { k.wfxSize = 14, k.wfx.nChannels = 0; }),
     refused("80004005", "Invalid wav format data: no channels.")},
    {"TypeOneDv", knob([](Knobs& k) { k.vstrh.fccType = Morvane::makeFourCC("iavs"); }),
     refused("80070032", "type 1 AVI unsupported.")},
    // indx faults do not fail the header walk; they leave their text and no super index.
    {"IndxUnder48", poke(true, "indx", 4, 40u), indxIgnored("INDX chunk size was invalid.")},
    {"IndxTooSmallForEntries", poke(true, "indx", 12, 5u), indxIgnored("INDX chunk size was invalid2.")},
    // Four entries in use, two of them in the chunk.
    {"IndxEntriesNotThere", edit(true, [](File& f) { put32(f.bytes, f.at["indx"] + 4, 56), put32(f.bytes, f.at["indx"] + 12, 4); }),
     indxIgnored("INDX chunk size was invalid2.")},
    {"IndxLongsPerEntry", poke(true, "indx", 8, std::uint16_t(2)), indxIgnored("INDX chunk wLongsPerEntry was not 4.")},
    {"IndxNotIndexOfIndexes", poke(true, "indx", 11, std::uint8_t(1)),
     indxIgnored("INDX chunk bIndexSubType was not zero which is not supported.")},
    {"IndxStreamOutOfRange", poke(true, "indx", 16, Morvane::makeFourCC("07dc")),
     indxIgnored("INDX chunk referenced invalid stream index.")},
    {"IndxSubTypeUnknown", poke(true, "indx", 10, std::uint8_t(5)),
     indxIgnored("INDX chunk bIndexSubType was not a supported value.")},
    {"IndxTwice", knob([](Knobs& k) { k.openDml = true, k.indxCopies = 2; }),
     indxIgnored("INDX chunk already allocated.")},
    // The one super index entry points at 1 MiB, far past the end: the
    // idx1 indexes the video instead.
    {"SuperIndexPastEnd", poke(true, "indx", sizeof(AVISUPERINDEX), std::uint64_t(1) << 20), kAllGood},
    // The idx1 falls inside the movi that the walk steps over: the chunks
    // themselves are walked.
    {"MoviSizeHidesTheIdx1", poke(false, "movi", 4, 0x10000u), kAllGood},
    // Offsets that name no chunk either way are not trusted: the same.
    {"Idx1OffsetsNameNoChunk", edit(false,
                                    [](File& f) {
                                        for (unsigned i = 0; i < 2 * kFrames; i += 2)
                                            put32(f.bytes, f.at["idx1"] + 16 + 16 * i,
                                                  get32(f.bytes, f.at["idx1"] + 16 + 16 * i) + 0x100000);
                                    }),
     kAllGood},
};

class Malformed : public testing::TestWithParam<Case>
{};

TEST_P(Malformed, GivesItsTextAndCode)
{
    EXPECT_EQ(outcomeOf(GetParam()), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Reader, Malformed, testing::ValuesIn(kCases), caseName);

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
