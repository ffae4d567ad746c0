// Header and index updates: the full rewrite at a RIFF change and at close,
// and the periodic flush that keeps a file whose writer dies mid-take
// readable up to its last flush while writing only what changed.
#include <algorithm>
#include <cstring>

#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.WriterBytes.h"

namespace Morvane::Avi {

namespace {

// Changed sectors closer than this are written as one run. Kept small: the
// header fields lie kilobytes apart, and a run across them would rewrite
// the whole header every second (2% of a DV take's bytes instead of 0.2%).
constexpr std::uint64_t kCoalesceGap = 4u << 10;

} // namespace

void FileWriter::StoreHeaderFields()
{
    for (std::size_t j = 0; j < m_StrlChunks.size(); ++j) {
        std::uint32_t suggested = 0;
        m_StrlChunks[j].Flush(suggested);
        if (j == 0) {
            PutHeader32(m_cbOffset_AVIH_SuggestedBufferSize, suggested);
            PutHeader32(m_cbOffset_DMLH_TotalFrames, m_StrlChunks[0].m_dwSamplesWritten);
            PutHeader32(m_cbOffset_AVIH_TotalFrames, m_StrlChunks[0].m_dwSamplesWritten);
        }
    }
    if (m_pCurMovi) {
        if (m_cbOffset_MOVI_Size && m_cbOffset_MOVI_Size + 4u <= m_pCurMovi->getCapacity())
            bytes::put32(m_pCurMovi->getBuffer(m_cbOffset_MOVI_Size), m_cbMoviSize);
        if (m_pCurMovi->getCapacity() >= 8)
            bytes::put32(m_pCurMovi->getBuffer(4), m_cbRiffSize);
    }
}

HRESULT FileWriter::Flush()
{
    if (m_StrlChunks.empty())
        return S_OK;
    StoreHeaderFields();
    HRESULT hr = WriteHeader();
    if (m_pCurMovi && m_pCurMovi != &m_HeaderBuffer && m_cbOffset_MOVI_Size) {
        const HRESULT head = WriteHeadBytes(*m_pCurMovi, m_cbCurRiffOffset, m_pCurMovi->getCapacity(), false);
        if (SUCCEEDED(hr))
            hr = head;
    }
    CDiskFile::seek(static_cast<unsigned long>(RiffEnd()), 0);
    return hr;
}

HRESULT FileWriter::FlushChanges()
{
    if (m_StrlChunks.empty() || !m_pCurMovi || !m_cbOffset_MOVI_Size)
        return S_OK;
    StoreHeaderFields();
    // The index chunks before the super index and sizes that count their
    // entries: a reader never finds a count the entries do not back.
    HRESULT hr = S_OK;
    if (m_pCurMovi != &m_HeaderBuffer)
        hr = WriteHeadBytes(*m_pCurMovi, m_cbCurRiffOffset, m_pCurMovi->getCapacity(), true);
    if (SUCCEEDED(hr))
        hr = WriteHeadBytes(m_HeaderBuffer, 0, m_HeaderBuffer.getUsed(), true);
    CDiskFile::seek(static_cast<unsigned long>(RiffEnd()), 0);
    return hr;
}

HRESULT FileWriter::WriteHeadBytes(Morvane::CByteBuffer& buffer, std::uint64_t offset, std::uint64_t n,
                                   bool changedOnly)
{
    DiskImage& image = &buffer == &m_HeaderBuffer ? m_HeaderImage : m_HeadImage;
    const std::uint64_t S = sectorSize();
    n = std::min<std::uint64_t>(n, buffer.getCapacity());
    const unsigned char* now = buffer.getBuffer(0);
    if (!changedOnly || image.offset != offset || S == 0) {
        image.offset = ~0ull;
        HRESULT hr = WriteAtOffset(offset, buffer.getBuffer(0), n);
        if (FAILED(hr))
            return hr;
        image.bytes.assign(now, now + n);
        image.offset = offset;
        return hr;
    }

    // Runs of changed sectors, [first, end) in bytes, in file order.
    std::vector<std::pair<std::uint64_t, std::uint64_t>> runs;
    const std::uint64_t known = image.bytes.size();
    for (std::uint64_t at = 0; at < n; at += S) {
        const std::uint64_t len = std::min(S, n - at);
        const bool same = at + len <= known && std::memcmp(now + at, image.bytes.data() + at, len) == 0;
        if (same)
            continue;
        if (!runs.empty() && at - runs.back().second <= kCoalesceGap)
            runs.back().second = at + len;
        else
            runs.emplace_back(at, at + len);
    }
    if (image.bytes.size() < n)
        image.bytes.resize(n);
    // Last runs first: in a first RIFF the index regions lie behind the
    // header fields that count their entries.
    for (auto run = runs.rbegin(); run != runs.rend(); ++run) {
        HRESULT hr = WriteAtOffset(offset + run->first, buffer.getBuffer(run->first), run->second - run->first);
        if (FAILED(hr)) {
            // Unknown what reached the disk: the next flush writes it all.
            image.offset = ~0ull;
            return hr;
        }
        std::memcpy(image.bytes.data() + run->first, now + run->first, run->second - run->first);
    }
    return S_OK;
}

} // namespace Morvane::Avi
