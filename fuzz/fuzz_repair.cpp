// Repairs arbitrary bytes as a killed take: the walk, the plan and the
// in-place writes must refuse or finish cleanly, and what they leave must
// open again; a refused file must be left exactly as it was.
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "FileFormats/AVI/avilib/avilib.FileRepair.h"
#include "util/stringUtils.h"
#include "FuzzInput.h"

namespace {

std::vector<char> contents(const std::wstring& path)
{
    std::ifstream in(Morvane::convertString(path), std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::ScratchFile file("repair", fuzz::sectorSizeOf(data, size));
    if (!file.write(data, size))
        return 0;
    Morvane::Avi::FileRepair repair;
    if (FAILED(repair.open(file.path())))
        return 0;
    HRESULT hr = repair.repairInPlace();
    if (FAILED(hr)) {
        // Refused before writing anything: the file is as it was.
        const std::vector<char> now = contents(file.path());
        if (now.size() != size || (size && std::memcmp(now.data(), data, size) != 0))
            __builtin_trap();
        return 0;
    }
    Morvane::Avi::FileReader r;
    if (SUCCEEDED(r.load(file.path())) && r.get_StreamCount() > 0)
        (void)r.essenceOpen(0);
    return 0;
}
