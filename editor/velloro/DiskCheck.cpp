#include "DiskCheck.h"

#include <cstdio>
#include <vector>

#include "FileFormats/common/filereaderunbuffered.h"
#include "FileFormats/common/filewriterunbuffered.h"
#include "util/stringUtils.h"

namespace velloro {

namespace {

constexpr unsigned kSectors = 2048;

unsigned char patternByte(unsigned long pos)
{
    return static_cast<unsigned char>((pos * 2654435761u) >> 24);
}

int fail(const char* what, HRESULT hr)
{
    std::fprintf(stderr, "disk-check: %s failed: 0x%08X\n", what, static_cast<unsigned>(hr));
    return 1;
}

} // namespace

int diskCheck(const std::string& dir)
{
    std::wstring path = Morvane::convertString(dir + "/velloro-disk-check.bin");
    Pell::CFileWriterUnbuffered writer;
    HRESULT hr = writer.create(path, iFile::eUnbuffered);
    if (FAILED(hr))
        return fail("create", hr);
    const unsigned sector = writer.getSectorSize();
    const unsigned long total = static_cast<unsigned long>(sector) * kSectors;

    // Sector-aligned memory from the editor's memory service, as the writer uses it.
    auto* block = static_cast<unsigned char*>(OS().memory().allocate(total + 2 * sector));
    if (!block)
        return fail("allocate", E_OUTOFMEMORY);
    for (unsigned long i = 0; i < total; ++i)
        block[i] = patternByte(i);
    unsigned written = 0;
    hr = writer.write(block, static_cast<unsigned>(total), written);
    writer.close();
    if (FAILED(hr)) {
        OS().memory().free(block);
        return fail("write", hr);
    }

    Pell::CFileReaderUnbuffered reader;
    hr = reader.load(path, iFile::eUnbuffered);
    int bad = 0;
    unsigned long checked = 0;
    for (unsigned long start = 1; SUCCEEDED(hr) && start + 4096 < total; start += 7919) {
        unsigned actual = 0, offset = 0;
        if (FAILED(hr = reader.seek(start, 0)) ||
            FAILED(hr = reader.read(block, static_cast<unsigned>(4096 + 2 * sector), 4096, actual, offset)))
            break;
        for (unsigned i = 0; i < 4096 && offset + i < actual; ++i, ++checked)
            bad += block[offset + i] != patternByte(start + i);
    }
    OS().memory().free(block);
    reader.close();
    Pell::CDiskFile::remove(path);
    if (FAILED(hr))
        return fail("read", hr);
    std::printf("sector size %u, wrote %lu bytes, read back %lu bytes at unaligned offsets: %s\n", sector, total,
                checked, bad ? "MISMATCH" : "ok");
    return bad ? 1 : 0;
}

} // namespace velloro
