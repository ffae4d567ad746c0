// The editor stand-in's file services, as the disk files meet them.
#include <fcntl.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "FileFormats/common/filereaderunbuffered.h"
#include "FileFormats/common/filewriterunbuffered.h"
#include "common/TempDir.h"
#include "util/bytebuffer.h"
#include "host/iFileSystem.h"
#include "vlhost/FileFaults.h"

namespace fs = std::filesystem;

namespace {

// The open flags of every descriptor this process holds on path.
std::vector<long> openFlagsOf(const fs::path& path)
{
    std::vector<long> flags;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ec;
        std::ifstream info("/proc/self/fdinfo/" + entry.path().filename().string());
        std::string key, octal;
        while (fs::read_symlink(entry.path(), ec) == path && info >> key >> octal)
            if (key == "flags:")
                flags.push_back(std::stol(octal, nullptr, 8));
    }
    return flags;
}

TEST(HostFile, UnbufferedOpenUsesDirectIoOnARealDisk)
{
    testutil::TempDir dir; // in the build tree, on the machine's disk
    ASSERT_TRUE(dir.ok());
    struct statfs where;
    if (::statfs(dir.path().c_str(), &where) == 0 && where.f_type == 0x01021994) // tmpfs has no O_DIRECT
        GTEST_SKIP() << "the build tree is on tmpfs";
    fs::path file = dir.path() / "direct.bin";
    {
        std::ofstream f(file, std::ios::binary);
        for (unsigned long i = 0; i < 200000; ++i)
            f.put(static_cast<char>(i % 251));
    }

    // Whether the one descriptor open on the file is O_DIRECT.
    auto direct = [&] {
        auto flags = openFlagsOf(file);
        EXPECT_EQ(flags.size(), 1u);
        return !flags.empty() && (flags[0] & O_DIRECT) != 0;
    };
    Pell::CFileReaderUnbuffered reader;
    ASSERT_EQ(reader.load(file.wstring(), iFile::eUnbuffered), S_OK);
    EXPECT_TRUE(direct()) << "unbuffered means O_DIRECT";
    reader.close();
    Pell::CFileReader buffered;
    ASSERT_EQ(buffered.load(file.wstring()), S_OK);
    EXPECT_FALSE(direct());
    buffered.close();

    // Direct reads need the memory service's blocks sector-aligned; an
    // unaligned destination is not an error either: it goes buffered.
    ASSERT_EQ(reader.load(file.wstring(), iFile::eUnbuffered), S_OK);
    auto* buf = static_cast<unsigned char*>(OS().memory().allocate(65536));
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(buf) % 4096, 0u);
    unsigned actual = 0, offset = 0;
    ASSERT_EQ(reader.seek(4096, 0), S_OK);
    ASSERT_EQ(reader.read(buf + 1, 65535, 1000, actual, offset), S_OK);
    EXPECT_EQ(buf[1], 4096 % 251);
    OS().memory().free(buf);
}

// The writer builds its header, frames and indexes in byte buffers and
// writes them whole: blocks that were not sector-aligned in memory went
// through a second, buffered descriptor and the page cache, at a quarter of
// the disk's speed and with seconds of system time per take.
TEST(HostFile, WriterBuffersGoToTheDiskDirect)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    struct statfs where;
    if (::statfs(dir.path().c_str(), &where) == 0 && where.f_type == 0x01021994)
        GTEST_SKIP() << "the build tree is on tmpfs";
    fs::path file = dir.path() / "take.avi";
    Pell::CFileWriterUnbuffered writer;
    ASSERT_EQ(writer.create(file.wstring(), iFile::eUnbuffered), S_OK);
    // A header, a large frame, a small chunk, an index: sizes as a take has them.
    for (unsigned long size : {176640ul, 4147712ul, 1024ul, 65536ul}) {
        Morvane::CByteBuffer block(size);
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(block.getBuffer(0)) % 4096, 0u) << size;
        std::fill_n(block.getBuffer(0), size, static_cast<unsigned char>(size % 251));
        unsigned written = 0;
        ASSERT_EQ(writer.write(block.getBuffer(0), static_cast<unsigned>(size), written), S_OK);
    }
    auto flags = openFlagsOf(file);
    ASSERT_EQ(flags.size(), 1u) << "a buffered descriptor was opened beside the direct one";
    EXPECT_NE(flags[0] & O_DIRECT, 0);
}

// Short system writes, a full disk and a failing sync are the writer fault
// tests' own checks; here the sector size they and the fuzzers lean on.
TEST(HostFile, SectorSizeOverride)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::wstring path = dir.file("sectors.bin");
    vlhost::FileFaults faults;
    faults.sectorSize = 4096;
    vlhost::setFileFaults(path, faults);
    EXPECT_EQ(Pell::CDiskFile::sectorSizeFromPath(path), 4096u);
    Pell::CFileWriterUnbuffered writer;
    ASSERT_EQ(writer.create(path, iFile::eUnbuffered), S_OK);
    EXPECT_EQ(writer.getSectorSize(), 4096u);
    vlhost::clearFileFaults();
}

} // namespace
