// The editor stand-in's file services, as the disk files meet them.
#include <fcntl.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "FileFormats/common/filereaderunbuffered.h"
#include "FileFormats/common/filewriterunbuffered.h"
#include "common/TempDir.h"
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
        if (fs::read_symlink(entry.path(), ec) != path)
            continue;
        std::ifstream info("/proc/self/fdinfo/" + entry.path().filename().string());
        std::string key;
        while (info >> key) {
            if (key == "flags:") {
                std::string octal;
                info >> octal;
                flags.push_back(std::stol(octal, nullptr, 8));
            }
        }
    }
    return flags;
}

void writePattern(const fs::path& path, unsigned long n)
{
    std::ofstream f(path, std::ios::binary);
    for (unsigned long i = 0; i < n; ++i)
        f.put(static_cast<char>(i % 251));
}

TEST(HostFile, UnbufferedOpenUsesDirectIoOnARealDisk)
{
    testutil::TempDir dir; // in the build tree, on the machine's disk
    ASSERT_TRUE(dir.ok());
    struct statfs where;
    if (::statfs(dir.path().c_str(), &where) == 0 && where.f_type == 0x01021994) // tmpfs has no O_DIRECT
        GTEST_SKIP() << "the build tree is on tmpfs";
    fs::path file = dir.path() / "direct.bin";
    writePattern(file, 200000);

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

    // Unaligned ranges through the unbuffered reader, every byte checked.
    ASSERT_EQ(reader.load(file.wstring(), iFile::eUnbuffered), S_OK);
    const unsigned sector = reader.getSectorSize();
    // Direct reads need the memory service's blocks sector-aligned.
    auto* buf = static_cast<unsigned char*>(OS().memory().allocate(65536));
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(buf) % 4096, 0u);
    for (unsigned long pos : {0ul, 1ul, 511ul, 4097ul, 100000ul}) {
        unsigned actual = 0, offset = 0;
        ASSERT_EQ(reader.seek(pos, 0), S_OK);
        ASSERT_EQ(reader.read(buf, 65536, 3000, actual, offset), S_OK) << pos;
        EXPECT_EQ(offset, pos % sector);
        for (unsigned i = 0; i < 3000; ++i)
            ASSERT_EQ(buf[offset + i], (pos + i) % 251) << pos << "+" << i;
    }
    // An unaligned destination is not an error either: it goes buffered.
    unsigned actual = 0, offset = 0;
    ASSERT_EQ(reader.seek(4096, 0), S_OK);
    ASSERT_EQ(reader.read(buf + 1, 65535, 1000, actual, offset), S_OK);
    EXPECT_EQ(buf[1], 4096 % 251);
    OS().memory().free(buf);
}

// A full disk is the writer fault tests' own check (its code and what was
// kept); here the short system writes and the sector size they lean on.
TEST(HostFile, ShortWritesAndSectorSizeOverride)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::wstring path = dir.file("faulty.bin");
    auto* block = static_cast<unsigned char*>(OS().memory().allocate(8192));
    std::memset(block, 0x5A, 8192);

    vlhost::FileFaults faults;
    faults.maxBytesPerWriteCall = 100;
    faults.sectorSize = 4096;
    vlhost::setFileFaults(path, faults);
    EXPECT_EQ(Pell::CDiskFile::sectorSizeFromPath(path), 4096u);
    {
        Pell::CFileWriterUnbuffered writer;
        ASSERT_EQ(writer.create(path, iFile::eUnbuffered), S_OK);
        EXPECT_EQ(writer.getSectorSize(), 4096u);
        unsigned written = 0;
        ASSERT_EQ(writer.write(block, 8192, written), S_OK) << "short system writes are carried on";
    }
    EXPECT_EQ(fs::file_size(dir.path() / "faulty.bin"), 8192u);
    vlhost::clearFileFaults();
    OS().memory().free(block);
}

} // namespace
