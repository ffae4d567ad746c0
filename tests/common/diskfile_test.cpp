#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <tuple>
#include <vector>

#include "FileFormats/common/filereaderunbuffered.h"
#include "FileFormats/common/filewriterunbuffered.h"
#include "common/AssertCapture.h"
#include "common/TempDir.h"

using testutil::captureStdout;

namespace {

unsigned char patternByte(unsigned long pos)
{
    return static_cast<unsigned char>(pos * 7 + (pos >> 8));
}

// A file of n pattern bytes, written with ordinary streams so that the
// classes under test only ever read it.
std::wstring makePatternFile(const testutil::TempDir& dir, const char* name, unsigned long n)
{
    std::ofstream f(dir.path() / name, std::ios::binary);
    for (unsigned long i = 0; i < n; ++i)
        f.put(static_cast<char>(patternByte(i)));
    return dir.file(name);
}

// A sector-aligned block from the editor's memory service.
struct AlignedBlock
{
    explicit AlignedBlock(std::size_t n) : p(static_cast<unsigned char*>(OS().memory().allocate(n))), size(n) {}
    ~AlignedBlock() { OS().memory().free(p); }
    unsigned char* p;
    std::size_t size;
};

class UnbufferedReader : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.ok());
        path = makePatternFile(dir, "data.bin", 8192);
        ASSERT_EQ(reader.load(path, iFile::eUnbuffered), S_OK);
        ASSERT_EQ(reader.getSectorSize(), 512u) << "this machine's disk has 512-byte sectors";
    }
    testutil::TempDir dir;
    std::wstring path;
    Pell::CFileReaderUnbuffered reader;
};

TEST_F(UnbufferedReader, SeekLandsOnTheSectorAndReadCoversWholeSectors)
{
    ASSERT_EQ(reader.seek(1000, 0), S_OK);
    EXPECT_EQ(std::pair(reader.getPos(), reader.getOffset()), std::pair(512ul, 488u));
    AlignedBlock buf(2048);
    unsigned actual = 77, offset = 77;
    // 488 + 537 = 1025 bytes need three sectors; a count that would wrap a
    // 32-bit sum is refused as well; nothing is read.
    for (unsigned n : {537u, 0xFFFFFF00u}) {
        EXPECT_EQ(reader.read(buf.p, 1024, n, actual, offset), static_cast<HRESULT>(0x8007007A)) << n;
        EXPECT_EQ(std::tuple(actual, offset, reader.getPos()), std::tuple(77u, 77u, 512ul)) << n;
    }
    ASSERT_EQ(reader.read(buf.p, 1024, 100, actual, offset), S_OK);
    EXPECT_EQ(actual, 1024u) << "588 rounded up to two sectors";
    EXPECT_EQ(offset, 488u);
    for (unsigned i = 0; i < 100; ++i)
        ASSERT_EQ(buf.p[offset + i], patternByte(1000 + i)) << i;
    EXPECT_EQ(reader.getPos(), 1536u);

    // At the end, what is there; past it, nothing.
    ASSERT_EQ(reader.seek(8000, 0), S_OK);
    ASSERT_EQ(reader.read(buf.p, 2048, 1000, actual, offset), S_OK);
    EXPECT_EQ(std::pair(actual, offset), std::pair(8192u - 7680u, 320u));
    ASSERT_EQ(reader.seek(8192, 0), S_OK);
    errno = 0;
    EXPECT_EQ(reader.read(buf.p, 2048, 10, actual, offset), E_FAIL);

    // A second open fails and keeps the first file.
    HRESULT hr = S_OK;
    std::string out = captureStdout([&] { hr = reader.load(path, iFile::eUnbuffered); });
    EXPECT_EQ(hr, static_cast<HRESULT>(0x8007139F));
    EXPECT_TRUE(testutil::isAssertion(out, "0", "FileFormats/common/filereader")) << out;
    EXPECT_EQ(std::tuple(reader.isOpen(), reader.getFilename(), reader.getSize()), std::tuple(true, path, 8192ul));
}

TEST_F(UnbufferedReader, AlignedReadPadsTheRequestedByteToTheAlignment)
{
    const struct { unsigned long pos, align; unsigned pad; } cases[] = {
        {1000, 16, 8},   // 488 % 16 = 8: pad 8 puts the byte at 496
        {1024, 16, 0},   // on the boundary: no pad
        {520, 4096, 4088},
        {513, 1, 0},
        {700, 0, 0},     // an alignment of 0 means none
    };
    for (const auto& c : cases) {
        ASSERT_EQ(reader.seek(c.pos, 0), S_OK);
        AlignedBlock buf(16384);
        unsigned actual = 0, offset = 0;
        ASSERT_EQ(reader.alignedRead(c.align, buf.p, 16384, 32, actual, offset), S_OK) << c.pos;
        EXPECT_EQ(offset, c.pos % 512 + c.pad) << c.pos << " align " << c.align;
        if (c.align) {
            EXPECT_EQ(offset % c.align, 0u) << c.pos;
        }
        EXPECT_EQ(buf.p[offset], patternByte(c.pos)) << c.pos;
    }
    ASSERT_EQ(reader.seek(1000, 0), S_OK);
    AlignedBlock small(1024);
    unsigned actual = 0, offset = 0;
    EXPECT_EQ(reader.alignedRead(16, small.p, 1024, 100, actual, offset), static_cast<HRESULT>(0x8007007A))
        << "1016 bytes left after the pad cannot take two sectors";
}

// A buffered open counts in bytes: no sector rounding, any seek origin.
TEST(DiskFile, BufferedOpenSeeksAndReadsBytes)
{
    testutil::TempDir dir;
    std::wstring path = makePatternFile(dir, "data.bin", 4096);
    Pell::CFileReaderUnbuffered reader;
    ASSERT_EQ(reader.load(path, iFile::eNone), S_OK);
    EXPECT_EQ(std::pair(reader.getSectorSize(), reader.roundUpToSectorBoundary(1001)), std::pair(1u, 1001ul));
    ASSERT_EQ(reader.seek(1001, 0), S_OK);
    EXPECT_EQ(std::pair(reader.getPos(), reader.getOffset()), std::pair(1001ul, 0u));
    unsigned char buf[200];
    unsigned actual = 0, offset = 9;
    ASSERT_EQ(reader.read(buf, 16, 16, actual, offset), S_OK);
    EXPECT_EQ(std::tuple(actual, offset, buf[0]), std::tuple(16u, 0u, patternByte(1001)));

    Pell::CFileReader plain;
    ASSERT_EQ(plain.load(path), S_OK);
    EXPECT_EQ(plain.getSectorSize(), 1u);
    ASSERT_EQ(plain.seek(100, 0), S_OK);
    ASSERT_EQ(plain.seek(50, 1), S_OK);
    EXPECT_EQ(plain.getPos(), 150u);
    ASSERT_EQ(plain.seek(static_cast<unsigned long>(-96), 2), S_OK);
    EXPECT_EQ(plain.getPos(), 4000u);
    std::string out = captureStdout([&] { EXPECT_EQ(plain.seek(0, 3), E_INVALIDARG); });
    EXPECT_TRUE(testutil::isAssertion(out, "0", "FileFormats/common/diskfile")) << out;
    ASSERT_EQ(plain.read(buf, 200, actual), S_OK);
    EXPECT_EQ(std::pair(actual, buf[0]), std::pair(96u, patternByte(4000)));
    // A held file is not replaced.
    out = captureStdout([&] { plain.setFilePtr(plain.getFilePtr()); });
    EXPECT_TRUE(testutil::isAssertion(out, "! file_", "FileFormats/common/diskfile")) << out;
    EXPECT_TRUE(plain.isOpen());
}

TEST(DiskFile, OpenFailuresAndErrorTexts)
{
    testutil::TempDir dir;
    Pell::CFileReaderUnbuffered reader;
    std::string out = captureStdout([&] { EXPECT_EQ(reader.load(L"", iFile::eUnbuffered), E_INVALIDARG); });
    EXPECT_TRUE(testutil::isAssertion(out, "0", "FileFormats/common/filereader")) << out;
    EXPECT_EQ(reader.load(dir.file("missing.avi"), iFile::eUnbuffered), static_cast<HRESULT>(0x80070002));
    EXPECT_FALSE(reader.isOpen());
    EXPECT_EQ(reader.seek(0, 0), E_FAIL) << "no file";
    EXPECT_EQ(reader.getPos(), 0u);

    Pell::CFileWriterUnbuffered writer;
    out = captureStdout([&] { EXPECT_EQ(writer.create(L"ab", iFile::eUnbuffered), E_INVALIDARG); });
    EXPECT_TRUE(testutil::isAssertion(out, "0", "FileFormats/common/filewriter")) << out;
    EXPECT_EQ(writer.create(dir.file("no/dir/x.avi"), iFile::eUnbuffered), static_cast<HRESULT>(0x80070002));

    Pell::CDiskFile file;
    file.setLastError(L"write failed", ENOSPC);
    EXPECT_EQ(file.getLastError(), L"write failed No space left on device");
    file.setLastError(L"odd", 4242);
    EXPECT_EQ(file.getLastError(), L"odd Error Code 0x1092");
}

TEST(DiskFile, UnbufferedWriterTakesWholeSectorsOnly)
{
    testutil::TempDir dir;
    std::wstring path = dir.file("out.bin");
    Pell::CFileWriterUnbuffered writer;
    ASSERT_EQ(writer.create(path, iFile::eUnbuffered), S_OK);
    ASSERT_EQ(writer.getSectorSize(), 512u);
    AlignedBlock block(2048);
    for (unsigned i = 0; i < 2048; ++i)
        block.p[i] = patternByte(i);

    unsigned written = 0;
    std::string out = captureStdout([&] { EXPECT_EQ(writer.write(block.p, 1000, written), E_INVALIDARG); });
    EXPECT_TRUE(testutil::isAssertion(out, "FALSE", "FileFormats/common/filewriterunbuffered")) << out;
    EXPECT_EQ(writer.getPos(), 0u);
    ASSERT_EQ(writer.write(block.p, 2048, written), S_OK);
    EXPECT_EQ(written, 2048u);

    unsigned long old = 0;
    EXPECT_EQ(writer.seek(100, &old, 0), E_INVALIDARG);
    EXPECT_EQ(writer.getPos(), 2048u) << "an unaligned seek is refused before moving";
    ASSERT_EQ(writer.seek(512, &old, 0), S_OK);
    EXPECT_EQ(old, 2048u);
    std::memset(block.p, 0xEE, 512);
    ASSERT_EQ(writer.write(block.p, 512, written), S_OK);

    out = captureStdout([&] { EXPECT_EQ(writer.create(path, iFile::eUnbuffered), static_cast<HRESULT>(0x8007139F)); });
    EXPECT_TRUE(testutil::isAssertion(out, "0", "FileFormats/common/filewriter")) << out;
    writer.close();

    std::ifstream f(dir.path() / "out.bin", std::ios::binary);
    std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    ASSERT_EQ(bytes.size(), 2048u);
    EXPECT_EQ(std::tuple(bytes[511], bytes[512], bytes[1024]),
              std::tuple(patternByte(511), static_cast<unsigned char>(0xEE), patternByte(1024)));
    // exists, remove, then neither again (braced lists run in order)
    EXPECT_EQ((std::vector<bool>{Pell::CDiskFile::exists(path), Pell::CDiskFile::remove(path),
                                 Pell::CDiskFile::exists(path), Pell::CDiskFile::remove(path)}),
              (std::vector<bool>{true, true, false, false}));
}

} // namespace
