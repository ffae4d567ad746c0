// Broken files, built field by field: each must give its own text and
// result code, and none may crash, hang or read outside a buffer.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "AviFrameMd5.h"
#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "avi/reader_builder.h"
#include "common/AssertCapture.h"
#include "common/TempDir.h"
#include "util/stringUtils.h"

using namespace readertest;
using Morvane::convertString;

namespace {

// A small interleaved file: one video and one audio stream, four frames,
// an idx1 with movi-relative offsets. Every knob is a field a case breaks.
struct Simple
{
    AVIMAINHEADER avih = mainHeader(2, 4);
    bool avihFirst = true;
    AVISTREAMHEADER vstrh = streamHeader("vids", "dvsd", 25, 1, 4);
    Bytes vstrf = bytesOf(videoFormat("dvsd"));
    AVISTREAMHEADER astrh = streamHeader("auds", "\0\0\0\0", 48000, 1, 4 * 100);
    Bytes astrf = bytesOf(pcm(2, 16, 48000));
    Bytes hdrlTail;      // raw chunks at the end of hdrl
    Bytes afterStrf;     // raw chunks after the video strf (e.g. an indx)
    std::uint32_t moviSizeDelta = 0;
    bool idx1 = true;
    std::uint32_t idx1OffsetDelta = 0;
    std::uint32_t frameSize = 300;
};

Bytes build(const Simple& s)
{
    RiffBuilder b;
    std::size_t riff = b.begin("RIFF", "AVI ");
    std::size_t hdrl = b.begin("LIST", "hdrl");
    if (s.avihFirst)
        b.record(s.avih);
    std::size_t strl = b.begin("LIST", "strl");
    b.record(s.vstrh);
    b.chunk("strf", s.vstrf);
    b.putBytes(s.afterStrf);
    b.end(strl);
    strl = b.begin("LIST", "strl");
    b.record(s.astrh);
    b.chunk("strf", s.astrf);
    b.end(strl);
    if (!s.avihFirst)
        b.record(s.avih);
    b.putBytes(s.hdrlTail);
    b.end(hdrl);
    std::size_t movi = b.begin("LIST", "movi");
    std::vector<INDEXENTRY> entries;
    for (unsigned k = 0; k < 4; ++k) {
        std::size_t at = b.chunk("00dc", frameData(k, s.frameSize));
        entries.push_back({Morvane::makeFourCC("00dc"), AVIIF_KEYFRAME,
                           static_cast<std::uint32_t>(at - (movi + 4)) + s.idx1OffsetDelta, s.frameSize});
        at = b.chunk("01wb", Bytes(400, static_cast<std::uint8_t>(0x80 + k)));
        entries.push_back({Morvane::makeFourCC("01wb"), 0, static_cast<std::uint32_t>(at - (movi + 4)), 400});
    }
    b.end(movi);
    b.patch32(movi, static_cast<std::uint32_t>(b.pos() - movi - 4) + s.moviSizeDelta);
    if (s.idx1)
        b.chunk("idx1", bytesOf(entries));
    b.end(riff);
    return b.bytes();
}

// An indx super index chunk for stream 0 with the given fields.
Bytes indx(std::uint32_t cb, std::uint16_t longs, std::uint8_t subType, std::uint8_t type, std::uint32_t entries,
           const char (&chunkId)[5], std::uint32_t entriesWritten = 0)
{
    RiffBuilder b;
    b.fcc("indx");
    b.put(cb);
    b.put(longs);
    b.put(subType);
    b.put(type);
    b.put(entries);
    b.fcc(chunkId);
    for (int i = 0; i < 3; ++i)
        b.put(std::uint32_t(0));
    for (std::uint32_t i = 0; i < entriesWritten; ++i) {
        AVISUPERINDEX_ENTRY e = {1u << 20, 64, 4};
        b.put(e);
    }
    while (b.pos() < cb + 8)
        b.put(std::uint8_t(0));
    return b.bytes();
}

enum class Stage { Load, Open, Read };

struct Case
{
    const char* name;
    std::function<Bytes()> file;
    Stage stage;
    HRESULT code;
    const char* text;
};

std::function<Bytes()> with(std::function<void(Simple&)> f)
{
    return [=] {
        Simple s;
        f(s);
        return build(s);
    };
}

// The simple file with one byte changed.
std::function<Bytes()> poked(std::size_t at, std::uint8_t v)
{
    return [=] {
        Bytes b = build(Simple());
        b[at] = v;
        return b;
    };
}

// The simple file with its own indx chunks after the video strf.
std::function<Bytes()> withIndx(std::uint32_t cb, std::uint16_t longs, std::uint8_t subType, std::uint8_t type,
                                std::uint32_t entries, const char (&chunkId)[5], std::uint32_t written, int copies = 1)
{
    Bytes one = indx(cb, longs, subType, type, entries, chunkId, written);
    return with([=](Simple& s) {
        for (int i = 0; i < copies; ++i)
            s.afterStrf.insert(s.afterStrf.end(), one.begin(), one.end());
    });
}

const Case kCases[] = {
    {"ZeroLength", [] { return Bytes(); }, Stage::Load, E_INVALID_STATE, "Failed to open file, zero length."},
    {"NotRiff", poked(0, 'X'), Stage::Load, E_FAIL, "File is not an avi file."},
    {"NotAviForm", poked(8, 'W'), Stage::Load, E_FAIL, "File is not an avi file."},
    {"TooShortForRiff", [] { return Bytes{'R', 'I', 'F', 'F'}; }, Stage::Load, E_FAIL, "File is not an avi file."},
    {"NoHdrl", poked(20, 'x'), Stage::Load, E_FAIL, "Failed to find hdrl chunk."},
    {"HdrlTooLarge", [] { Bytes b = build(Simple()); return put32(b, 16, 0x100000), b; }, Stage::Load, E_FAIL, "'hdrl' chunk is too large."},
    // hdrl just over the first 0x30000-byte buffer: the second pass asks for
    // hdrl + 4108 bytes, not a whole number of sectors.
    {"SecondHeaderPass", with([](Simple& s) { s.hdrlTail = junk(0x30000); }), Stage::Load, E_INSUFFICIENT_BUFFER,
     "Failed to read header data."},
    {"NoStreams", with([](Simple& s) { s.avih.dwStreams = 0; }), Stage::Load, E_FAIL, "No streams found in header."},
    {"AbsurdStreamCount", with([](Simple& s) { s.avih.dwStreams = 0xFFFFFFFF; }), Stage::Load, E_OUTOFMEMORY,
     "Failed to allocate stream array memory."},
    {"StrhBeforeAvih", with([](Simple& s) { s.avihFirst = false; }), Stage::Load, E_FAIL, "Stream array is null."},
    {"StrfBeforeAvih", with([](Simple& s) { s.avihFirst = false, s.vstrh.fcc = Morvane::makeFourCC("JUNK"); }),
     Stage::Load, E_FAIL, "Stream array is null2."},
    {"AudioStrfUnder14", with([](Simple& s) { s.astrf.resize(12); }), Stage::Load, E_FAIL,
     "Invalid size for wav format data."},
    {"AudioWithoutChannels", with([](Simple& s) { s.astrf.resize(14), s.astrf[2] = 0; }), Stage::Load, E_FAIL,
     "Invalid wav format data: no channels."},
    {"TypeOneDv", with([](Simple& s) { s.vstrh.fccType = Morvane::makeFourCC("iavs"); }), Stage::Load,
     E_NOT_SUPPORTED, "type 1 AVI unsupported."},
    // indx faults do not fail the header walk; they leave their text and no super index.
    {"IndxUnder48", withIndx(40, 4, 0, 0, 1, "00dc", 0), Stage::Load, S_OK, "INDX chunk size was invalid."},
    {"IndxTooSmallForEntries", withIndx(56, 4, 0, 0, 3, "00dc", 0), Stage::Load, S_OK,
     "INDX chunk size was invalid2."},
    {"IndxEntriesNotThere", withIndx(64, 4, 0, 0, 4, "00dc", 2), Stage::Load, S_OK, "INDX chunk size was invalid2."},
    {"IndxLongsPerEntry", withIndx(88, 2, 0, 0, 1, "00dc", 1), Stage::Load, S_OK,
     "INDX chunk wLongsPerEntry was not 4."},
    {"IndxNotIndexOfIndexes", withIndx(88, 4, 0, 1, 1, "00dc", 1), Stage::Load, S_OK,
     "INDX chunk bIndexSubType was not zero which is not supported."},
    {"IndxStreamOutOfRange", withIndx(88, 4, 0, 0, 1, "07dc", 1), Stage::Load, S_OK,
     "INDX chunk referenced invalid stream index."},
    {"IndxSubTypeUnknown", withIndx(88, 4, 5, 0, 1, "00dc", 1), Stage::Load, S_OK,
     "INDX chunk bIndexSubType was not a supported value."},
    {"IndxTwice", withIndx(88, 4, 0, 0, 1, "00dc", 1, 2), Stage::Load, S_OK, "INDX chunk already allocated."},
    // The one super index entry points at 1 MiB, far past the end.
    {"SuperIndexPastEnd", withIndx(88, 4, 0, 0, 1, "00dc", 1), Stage::Open, E_FAIL, "Failed to seek to indx entry."},
    {"MoviPastEndAndNoIndex", with([](Simple& s) { s.moviSizeDelta = 0x10000; }), Stage::Open, E_FAIL,
     "No index table."},
    {"Idx1OffsetsPastEnd", with([](Simple& s) { s.idx1OffsetDelta = 0x100000; }), Stage::Read, E_FAIL,
     "Frame[0] Failed to read from disk. "},
};

class Malformed : public testing::TestWithParam<Case>
{};

TEST_P(Malformed, GivesItsTextAndCode)
{
    const Case& c = GetParam();
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::string path = (dir.path() / "bad.avi").string();
    writeFile(path, c.file());
    Morvane::Avi::FileReader r;
    HRESULT hr = S_OK;
    testutil::captureStdout([&] {
        hr = r.load(convertString(path));
        if (c.stage != Stage::Load && SUCCEEDED(hr))
            hr = r.essenceOpen(0);
        if (c.stage == Stage::Read && SUCCEEDED(hr)) {
            std::vector<unsigned char> buf(8192);
            hr = r.ReadVideo(0, buf.data(), buf.size(), nullptr, nullptr);
        }
    });
    EXPECT_EQ(hr, c.code) << std::hex << hr;
    EXPECT_EQ(convertString(r.getLastError()), c.text);
    if (c.stage == Stage::Load && FAILED(hr)) {
        EXPECT_EQ(r.get_StreamCount(), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Reader, Malformed, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case>& i) { return std::string(i.param.name); });

TEST(ReaderHeader, QuirksOfTheWalk)
{
    testutil::TempDir dir;
    std::string path = (dir.path() / "q.avi").string();
    // A short strh consumes no record; a 16-byte audio strf derives its bits
    // from block align and channels; dwScale 0 gives rate 0.
    Simple s;
    Bytes shortStrh = bytesOf(streamHeader("vids", "xxxx", 1, 1, 1));
    RiffBuilder extra;
    extra.chunk("strh", Bytes(shortStrh.begin() + 8, shortStrh.begin() + 48));
    s.vstrh.dwScale = 0;
    WAVEFORMATEX w = pcm(2, 16, 48000);
    w.wBitsPerSample = 99;
    s.astrf = bytesOf(w);
    s.astrf.resize(16);
    Bytes file = build(s);
    // Put the short strh in front of the first strh and grow RIFF, hdrl and strl by it.
    std::size_t at = 12 + 12 + 64 + 12; // RIFF, LIST hdrl, avih, LIST strl
    file.insert(file.begin() + static_cast<long>(at), extra.bytes().begin(), extra.bytes().end());
    for (std::size_t size : {std::size_t(4), std::size_t(16), at - 8})
        put32(file, size, get32(file, size) + static_cast<std::uint32_t>(extra.bytes().size()));
    writeFile(path, file);

    Morvane::Avi::FileReader r;
    ASSERT_EQ(r.load(convertString(path)), S_OK) << convertString(r.getLastError());
    ASSERT_EQ(r.get_StreamCount(), 2u);
    EXPECT_EQ(r.get_FCC(0), Morvane::makeFourCC("dvsd"));
    EXPECT_EQ(r.get_Rate(0), 0.0);
    EXPECT_EQ(r.get_BitsPerSample(1), 16u);
    EXPECT_EQ(r.get_ApproxDataRate(0), 0u);
    EXPECT_EQ(r.GetStreamIndexFromChunkId(Morvane::makeFourCC("01wb")), 1);
    // Relative idx1 offsets: data lies 16 bytes past movi + dwOffset.
    ASSERT_EQ(r.essenceOpen(0), S_OK);
    Morvane::Avi::IndexEntry* e = nullptr;
    ASSERT_EQ(r.get_IndexEntry(0, &e), S_OK);
    std::vector<unsigned char> buf(4096);
    unsigned offset = 0, size = 0;
    ASSERT_EQ(r.ReadVideo(3, buf.data(), buf.size(), &offset, &size), S_OK);
    EXPECT_EQ(size, 300u);
    EXPECT_EQ(buf[offset], 4);
    EXPECT_EQ(buf[offset + 299], 4);
}

TEST(ReaderHeader, SecondPassOfWholeSectorsSucceeds)
{
    testutil::TempDir dir;
    std::string path = (dir.path() / "big-hdrl.avi").string();
    Simple s;
    Bytes probe = build(s);
    // hdrl + 4108 a multiple of 512 and hdrl + 12 over 0x30000.
    s.hdrlTail = junk(0x31200 - 4108 - get32(probe, 16) - 8);
    writeFile(path, build(s));
    Morvane::Avi::FileReader r;
    ASSERT_EQ(r.load(convertString(path)), S_OK) << convertString(r.getLastError());
    EXPECT_EQ(r.get_StreamCount(), 2u);
    ASSERT_EQ(r.essenceOpen(1), S_OK);
    std::vector<unsigned char> audio(1600);
    unsigned bytes = 0;
    ASSERT_EQ(r.ReadAudio(100, 200, audio.data(), audio.size(), nullptr, &bytes), S_OK);
    EXPECT_EQ(bytes, 800u);
    EXPECT_EQ(audio[0], 0x81);
    EXPECT_EQ(audio[799], 0x82);
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

// Every prefix of a valid file and every byte of its header set to 0xFF
// must load or fail cleanly and read through without a fault (run under
// the address sanitizer to mean anything).
TEST(ReaderRobustness, TruncatedAndScribbledFilesFailCleanly)
{
    testutil::TempDir dir;
    std::string path = (dir.path() / "t.avi").string();
    Bytes good = build(Simple());
    auto exercise = [&](const Bytes& b) {
        writeFile(path, b);
        std::string out, error;
        testutil::captureStdout([&] { velloro::aviFrameMd5(convertString(path), out, error); });
    };
    for (std::size_t n = 0; n < good.size(); n += 7)
        exercise(Bytes(good.begin(), good.begin() + static_cast<long>(n)));
    for (std::size_t i = 4; i < 400 && i < good.size(); ++i) {
        Bytes b = good;
        for (std::size_t k = i; k < i + 4 && k < b.size(); ++k)
            b[k] = 0xFF;
        exercise(b);
        b = good;
        for (std::size_t k = i; k < i + 4 && k < b.size(); ++k)
            b[k] = 0;
        exercise(b);
    }
}

} // namespace
