// The editor stand-in's file services, as the disk files meet them.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "FileFormats/common/filereaderunbuffered.h"
#include "FileFormats/common/filewriterunbuffered.h"
#include "common/TempDir.h"
#include "host/iFileSystem.h"
#include "vlhost/FileFaults.h"
#include "vlhost/HostStats.h"

namespace fs = std::filesystem;

namespace {

constexpr long kTmpfsMagic = 0x01021994;

bool isTmpfs(const fs::path& p)
{
    struct statfs s;
    return ::statfs(p.c_str(), &s) == 0 && s.f_type == kTmpfsMagic;
}

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

// Reads the same unaligned ranges through the unbuffered reader and checks
// every byte; the reads must work whether or not direct I/O is in use.
void readBackUnaligned(const std::wstring& path)
{
    Pell::CFileReaderUnbuffered reader;
    ASSERT_EQ(reader.load(path, iFile::eUnbuffered), S_OK);
    const unsigned sector = reader.getSectorSize();
    auto* buf = static_cast<unsigned char*>(OS().memory().allocate(65536));
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

TEST(HostFile, UnbufferedOpenUsesDirectIoOnARealDisk)
{
    testutil::TempDir dir; // in the build tree, on the machine's disk
    ASSERT_TRUE(dir.ok());
    if (isTmpfs(dir.path()))
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

    readBackUnaligned(file.wstring());
}

TEST(HostFile, SameReadsWorkOnTmpfs)
{
    if (!isTmpfs("/dev/shm"))
        GTEST_SKIP() << "no tmpfs at /dev/shm";
    testutil::TempDir dir("/dev/shm");
    ASSERT_TRUE(dir.ok());
    writePattern(dir.path() / "tmpfs.bin", 200000);
    readBackUnaligned(dir.file("tmpfs.bin"));
    EXPECT_EQ(Pell::CDiskFile::sectorSizeFromPath(dir.file("tmpfs.bin")), 512u)
        << "no block device: the default sector size";
}

TEST(HostFile, DriveSectorSizeIsTheDevicesLogicalBlockSize)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    if (isTmpfs(dir.path()))
        GTEST_SKIP();
    // Read the device's own figure independently through sysfs.
    struct stat st;
    ASSERT_EQ(::stat(dir.path().c_str(), &st), 0);
    std::ifstream q("/sys/dev/block/" + std::to_string(major(st.st_dev)) + ":" + std::to_string(minor(st.st_dev)) +
                    "/queue/logical_block_size");
    unsigned expected = 0;
    if (!(q >> expected))
        GTEST_SKIP() << "no queue for this device";
    // A path that does not exist yet is answered for its folder.
    EXPECT_EQ(Pell::CDiskFile::sectorSizeFromPath(dir.file("not-yet.avi")), expected);
}

TEST(HostFile, FaultsDiskFullShortWritesAndReadErrors)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::wstring path = dir.file("faulty.bin");
    auto* block = static_cast<unsigned char*>(OS().memory().allocate(8192));
    std::memset(block, 0x5A, 8192);

    vlhost::FileFaults full;
    full.writeLimit = 5000;
    vlhost::setFileFaults(path, full);
    {
        Pell::CFileWriterUnbuffered writer;
        ASSERT_EQ(writer.create(path, iFile::eUnbuffered), S_OK);
        unsigned written = 0;
        ASSERT_EQ(writer.write(block, 4096, written), S_OK);
        EXPECT_EQ(writer.write(block, 4096, written), static_cast<HRESULT>(0x80070070)) << "ENOSPC";
    }
    EXPECT_EQ(fs::file_size(dir.path() / "faulty.bin"), 5000u) << "what fitted was written";

    vlhost::FileFaults shortWrites;
    shortWrites.maxBytesPerWriteCall = 100;
    vlhost::setFileFaults(path, shortWrites);
    {
        Pell::CFileWriterUnbuffered writer;
        ASSERT_EQ(writer.create(path, iFile::eUnbuffered), S_OK);
        unsigned written = 0;
        ASSERT_EQ(writer.write(block, 8192, written), S_OK) << "short system writes are carried on";
    }
    EXPECT_EQ(fs::file_size(dir.path() / "faulty.bin"), 8192u);

    vlhost::FileFaults badSector;
    badSector.readFailFromOffset = 4096;
    vlhost::setFileFaults(path, badSector);
    {
        Pell::CFileReaderUnbuffered reader;
        ASSERT_EQ(reader.load(path, iFile::eUnbuffered), S_OK);
        unsigned actual = 0, offset = 0;
        ASSERT_EQ(reader.seek(0, 0), S_OK);
        EXPECT_EQ(reader.read(block, 8192, 4096, actual, offset), S_OK);
        ASSERT_EQ(reader.seek(4096, 0), S_OK);
        EXPECT_EQ(reader.read(block, 8192, 512, actual, offset), static_cast<HRESULT>(0x80070005))
            << "EIO";
    }
    vlhost::clearFileFaults();
    OS().memory().free(block);
}

struct Counted : Vl::RefCounted
{
    explicit Counted(int* deaths) : deaths_(deaths) {}
    ~Counted() override { ++*deaths_; }
    int* deaths_;
};

TEST(HostServices, PtrAtomicsAndMemoryServices)
{
    int deaths = 0;
    {
        Vl::Ptr<Counted> p(new Counted(&deaths));
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([p] {
                for (int i = 0; i < 10000; ++i) {
                    Vl::Ptr<Counted> copy = p;
                    Vl::Ptr<Counted> moved = std::move(copy);
                }
            });
        for (auto& t : threads)
            t.join();
        EXPECT_EQ(*p->refCounter(), 1u);
        EXPECT_EQ(deaths, 0);
    }
    EXPECT_EQ(deaths, 1);

    std::uint32_t counter = 0;
    EXPECT_EQ(OS().atomics().increment(&counter), 1u);
    EXPECT_EQ(OS().atomics().increment(&counter), 2u);
    EXPECT_EQ(OS().atomics().decrement(&counter), 1u);

    // Memory: aligned from one block up, every allocation and free counted.
    for (std::size_t size : {4096u, 4097u, 1u << 20}) {
        void* p = OS().memory().allocate(size);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 4096, 0u) << size;
        OS().memory().free(p);
    }
    auto before = vlhost::memoryStats();
    OS().memory().free(OS().memory().allocate(10));
    OS().memory().free(nullptr);
    auto after = vlhost::memoryStats();
    EXPECT_EQ(std::pair(after.allocations - before.allocations, after.frees - before.frees), std::pair(1ul, 1ul));
}

} // namespace
