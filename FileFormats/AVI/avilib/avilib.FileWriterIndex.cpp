// The writer's index writes: every stream's ix## chunk with its super index
// entry, and the legacy idx1 of the first RIFF.
#include <cstdio>
#include <cstring>

#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.Records.h"
#include "FileFormats/AVI/avilib/avilib.WriterBytes.h"

namespace Morvane::Avi {

HRESULT FileWriter::WriteIndexTable(bool writeHeadBuffer)
{
    if (m_StrlChunks.empty() || !m_pCurMovi)
        return E_INVALID_STATE;
    if (m_StrlChunks[0].m_dwSamplesInChunk >= m_dwMaxIndexEntries) {
        char text[128];
        std::snprintf(text, sizeof(text), "(%d) has exceed max entries (%d)",
                      static_cast<int>(m_StrlChunks[0].m_dwSamplesInChunk), static_cast<int>(m_dwMaxIndexEntries));
        return E_FAIL;
    }
    bool updated = false;
    for (CStrl& strl : m_StrlChunks) {
        HRESULT hr = strl.WriteIndexTable(updated);
        if (FAILED(hr)) {
            MORVANE_ASSERT(FALSE);
            return hr;
        }
    }
    if (!writeHeadBuffer)
        return S_OK;
    HRESULT hr = WriteHeadBytes(*m_pCurMovi, m_cbCurRiffOffset, m_pCurMovi->getCapacity(), false);
    if (FAILED(hr))
        return hr;
    if (updated && m_pCurMovi != &m_HeaderBuffer) {
        hr = WriteHeadBytes(m_HeaderBuffer, 0, m_HeaderBuffer.getCapacity(), false);
        if (FAILED(hr))
            return hr;
    }
    CDiskFile::seek(static_cast<unsigned long>(RiffEnd()), 0);
    return hr;
}

HRESULT FileWriter::WriteLegacyIndexTable()
{
    if (m_bLegacyIndexWritten)
        return S_OK;
    MORVANE_ASSERT(m_dwRIFF_Chunk_Index == 0);
    if (m_StrlChunks.empty())
        return S_OK;
    const std::uint64_t n = m_StrlChunks[0].m_dwSamplesInChunk;
    if (n == 0)
        return S_OK;
    const std::uint64_t N = m_StrlChunks.size();
    const std::uint64_t D = n * sizeof(INDEXENTRY) * N;
    // Room for the idx1 header, a JUNK header and 4 bytes.
    const std::uint64_t T = roundUpToSectorBoundary(D + 20);
    if (D > 0xFFFFFFFFu || T > 0xFFFFFFFFu)
        return E_FAIL;
    Morvane::CByteBuffer buffer;
    if (!buffer.alloc(T))
        return E_OUTOFMEMORY;
    buffer.flush(0);
    unsigned char* out = buffer.getBuffer(0);
    bytes::put32(out, ckid::idx1);
    bytes::put32(out + 4, static_cast<std::uint32_t>(D));
    out += 8;
    for (const CStrl& strl : m_StrlChunks) {
        const std::uint64_t nChunkSamples = n;
        MORVANE_ASSERT(nChunkSamples == strl.IndexList_Count());
    }
    for (std::uint64_t i = 0; i < n; ++i) {
        for (const CStrl& strl : m_StrlChunks) {
            INDEXENTRY entry;
            strl.IndexList_GetEntry(i, &entry);
            std::memcpy(out, &entry, sizeof(entry));
            out += sizeof(entry);
        }
    }
    const std::uint64_t cbJunk = T - (8 + D);
    MORVANE_ASSERT(cbJunk > 8);
    bytes::put32(out, ckid::JUNK);
    bytes::put32(out + 4, static_cast<std::uint32_t>(cbJunk - 8));

    // Behind the RIFF's last frame, whatever a failed write left past it.
    unsigned int written = 0;
    HRESULT hr = seek(static_cast<unsigned long>(RiffEnd()), nullptr, 0);
    if (SUCCEEDED(hr))
        hr = write(buffer.getBuffer(0), static_cast<unsigned int>(T), written);
    if (SUCCEEDED(hr) && written != T)
        hr = E_FAIL;
    if (FAILED(hr)) {
        CDiskFile::seek(static_cast<unsigned long>(RiffEnd()), 0);
        return hr;
    }
    m_cbRiffSize += static_cast<std::uint32_t>(T);
    m_bLegacyIndexWritten = true;

    MORVANE_ASSERT(m_cbOffset_AVIH_TotalFrames > 0);
    PutHeader32(m_cbOffset_AVIH_TotalFrames, static_cast<std::uint32_t>(n));
    MORVANE_ASSERT(m_pTracks);
    if (m_pTracks) {
        MORVANE_ASSERT(m_pTracks[0].Type == StreamVideo);
        const double maxBytesPerSec = m_StrlChunks[0].get_MaxBufferSize() * VideoFramesPerSecond();
        PutHeader32(m_cbOffset_AVIH_MaxBytesPerSec,
                    maxBytesPerSec >= 4294967295.0 ? 0xFFFFFFFFu : static_cast<std::uint32_t>(maxBytesPerSec));
    }
    for (CStrl& strl : m_StrlChunks) {
        std::uint32_t suggested = 0;
        strl.Flush(suggested);
    }
    return WriteHeadBytes(m_HeaderBuffer, 0, m_HeaderBuffer.getCapacity(), false);
}

} // namespace Morvane::Avi
