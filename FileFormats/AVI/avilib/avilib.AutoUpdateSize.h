#pragma once
#include <cstdint>

namespace Morvane::Avi {

// Keeps the byte count of an open RIFF or LIST chunk while its sub-chunks
// are appended and stores it into the chunk's size field when it leaves
// scope, on every return path.
class AutoUpdateChunkSize
{
public:
    // count includes the chunk's 8-byte header (12 with the form type).
    AutoUpdateChunkSize(unsigned char* pSizeField, std::uint64_t count = 12);
    ~AutoUpdateChunkSize();
    AutoUpdateChunkSize(const AutoUpdateChunkSize&) = delete;
    AutoUpdateChunkSize& operator=(const AutoUpdateChunkSize&) = delete;

    AutoUpdateChunkSize& operator+=(std::uint64_t cb)
    {
        m_cbSize += cb;
        return *this;
    }
    std::uint64_t get() const { return m_cbSize; }

private:
    unsigned char* m_pSizeField;
    std::uint64_t m_cbSize;
};

} // namespace Morvane::Avi
