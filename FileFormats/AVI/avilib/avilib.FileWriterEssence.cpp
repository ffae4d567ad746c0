// Frames into sector-aligned chunks, RIFF rollover and header flushes.
#include <cstdio>
#include <cstring>
#include <new>

#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.Records.h"
#include "FileFormats/AVI/avilib/avilib.WriterBytes.h"
#include "util/stringUtils.h"

namespace Morvane::Avi {

namespace {

constexpr std::uint32_t RIFF_CHUNK_SIZE = 8;
// The first RIFF stops 16 MiB earlier so that its idx1 still fits under 2 GiB.
constexpr std::uint64_t kFirstRiffLimit = 0x7E000000;
constexpr std::uint64_t kRiffLimit = 0x7F000000;
// Entries kept free in an index chunk for the frames of an unfinished GOP.
constexpr std::uint32_t kIndexEntryReserve = 64;

} // namespace

HRESULT FileWriter::WriteSamples(TrackData* pTrackData, short nTrackData)
{
    if (!pTrackData)
        return E_INVALIDARG;
    if (nTrackData < 0 || static_cast<std::size_t>(nTrackData) < m_StrlChunks.size())
        return E_INVALIDARG;
    if (m_StrlChunks.empty() || !isOpen() || m_StrlChunks.size() != m_Trackmapping.size())
        return E_INVALID_STATE;
    CStrl& video = m_StrlChunks[0];
    if (video.m_dwSamplesWritten >= m_dwMaxFrames)
        return E_FRAME_LIMIT;

    const std::uint32_t S = sectorSize();
    std::vector<std::uint64_t> samples(m_StrlChunks.size());
    std::uint64_t estimate = 0;
    for (std::size_t j = 0; j < m_StrlChunks.size(); ++j) {
        // The track array must reach every mapped track, and sizes need data.
        if (m_Trackmapping[j] >= nTrackData)
            return E_INVALIDARG;
        const TrackData& t = pTrackData[m_Trackmapping[j]];
        if (t.cbData && !t.pData)
            return E_INVALIDARG;
        samples[j] = m_StrlChunks[j].get_SampleCountFromDataSize(t.cbData);
        estimate += static_cast<std::uint64_t>(t.cbData) + 2ull * S;
    }
    if (m_EssenceBuffer.getCapacity() < estimate) {
        if (!m_EssenceBuffer.alloc(2 * estimate))
            return E_OUTOFMEMORY;
        // JUNK bodies are not cleared per frame; clearing the block once
        // keeps stray process memory out of the file.
        m_EssenceBuffer.flush(0);
    }

    // A failing disk write deep in the RIFF change leaves no text of its own.
    auto newRiff = [this] {
        setLastError(L"");
        HRESULT result = CreateNewRIFFChunk();
        if (FAILED(result) && getLastError().empty())
            setLastError(Morvane::format(L"Failed to start a new RIFF chunk, error 0x%08X.",
                                         static_cast<unsigned>(result)));
        return result;
    };
    HRESULT hr;
    if (video.m_dwSamplesInChunk == 0) {
        hr = newRiff();
        if (FAILED(hr))
            return hr;
    } else {
        const std::uint64_t limit = m_dwRIFF_Chunk_Index == 0 ? kFirstRiffLimit : kRiffLimit;
        const bool fits = static_cast<std::uint64_t>(video.m_dwSamplesInChunk) + 1 + kIndexEntryReserve <=
                              m_dwMaxIndexEntries &&
                          static_cast<std::uint64_t>(m_cbRiffSize) + 2 * estimate <= limit;
        if (!fits) {
            if (pTrackData[0].dwFrameType > 4) {
                // Only an intra frame may open a RIFF: this one joins the full RIFF.
                std::wstring text = Morvane::format(L"Cannot create new riff chunk item not a key frame, frame type=%d",
                                                    static_cast<int>(pTrackData[0].dwFrameType));
                (void)text;
            } else {
                hr = newRiff();
                if (FAILED(hr))
                    return hr;
            }
        }
    }

    hr = WriteNextFrame(pTrackData, nTrackData);
    if (FAILED(hr))
        return hr;
    m_cbRiffSize += static_cast<std::uint32_t>(hr);
    m_cbMoviSize += static_cast<std::uint32_t>(hr);
    for (std::size_t j = 0; j < m_StrlChunks.size(); ++j) {
        const TrackData& t = pTrackData[m_Trackmapping[j]];
        m_StrlChunks[j].set_MaxItemSize(t.cbData);
        m_StrlChunks[j].IncrementSamplesWritten(static_cast<std::uint32_t>(samples[j]));
    }

    if (m_dwFlushFrequency) {
        ++m_dwFramesSinceFlush;
        // A long-GOP stream waits until its presentation order is complete.
        if (m_dwFramesSinceFlush >= m_dwFlushFrequency && video.HaveAllFrames()) {
            WriteIndexTable(false);
            FlushChanges();
            m_dwFramesSinceFlush = 0;
        }
    }
    return S_OK;
}

void FileWriter::DropLastIndexEntries()
{
    for (CStrl& strl : m_StrlChunks)
        strl.IndexList_RemoveLast();
}

HRESULT FileWriter::WriteNextFrame(TrackData* pTrackData, short nTrackData)
{
    if (!pTrackData || nTrackData < 0)
        return E_INVALIDARG;
    const std::uint32_t S = sectorSize();
    // The frame starts where the RIFF ends; a failed write before may have
    // left bytes, and the file position, past that.
    const std::uint64_t cbFilesize = RiffEnd();
    m_EssenceBuffer.clear();

    std::uint64_t cbOffset = 0;
    std::size_t added = 0;
    HRESULT hr = S_OK;
    for (std::size_t j = 0; j < m_StrlChunks.size() && SUCCEEDED(hr); ++j) {
        const std::uint16_t nIndex = m_Trackmapping[j];
        const short nArray = nTrackData;
        MORVANE_ASSERT(nIndex < nArray);
        if (nIndex >= nArray) {
            hr = E_INVALIDARG;
            break;
        }
        const TrackData& t = pTrackData[nIndex];
        const std::uint64_t p = m_EssenceBuffer.getUsed();
        const std::uint64_t cbData = t.cbData + (t.cbData % 2);
        const std::uint64_t afterData = p + 8 + cbData;
        std::uint64_t pad = S - afterData % S;
        if (pad < 12)
            pad += S;
        const std::uint64_t cbTotal = 8 + cbData + pad;
        if (cbTotal > m_EssenceBuffer.getCapacity() - p) {
            hr = E_UNEXPECTED;
            break;
        }
        unsigned char* out = m_EssenceBuffer.getBuffer(p);
        bytes::put32(out, m_StrlChunks[j].m_ChunkId);
        bytes::put32(out + 4, t.cbData);
        if (t.cbData)
            std::memcpy(out + 8, t.pData, t.cbData);
        // The pad byte of an odd size is ours; the caller's data ends at cbData.
        if (cbData != t.cbData)
            out[8 + t.cbData] = 0;
        bytes::put32(out + 8 + cbData, ckid::JUNK);
        bytes::put32(out + 12 + cbData, static_cast<std::uint32_t>(pad - 8));
        m_EssenceBuffer.setUsed(p + cbTotal);
        m_StrlChunks[j].IndexList_Add(cbFilesize + p, &t);
        ++added;
        MORVANE_ASSERT(cbTotal % sectorSize() == 0);
        cbOffset += cbTotal;
    }
    if (FAILED(hr)) {
        for (std::size_t j = 0; j < added; ++j)
            m_StrlChunks[j].IndexList_RemoveLast();
        return hr;
    }
    MORVANE_ASSERT(m_EssenceBuffer.getUsed() == cbOffset);
    MORVANE_ASSERT(m_EssenceBuffer.getUsed() % sectorSize() == 0);

    const std::uint64_t cbWrite = m_EssenceBuffer.getUsed();
    if (cbWrite > 0x7FFFFFFFu) {
        DropLastIndexEntries();
        return E_INVALIDARG;
    }
    unsigned int written = 0;
    hr = seek(static_cast<unsigned long>(cbFilesize), nullptr, 0);
    if (SUCCEEDED(hr))
        hr = write(m_EssenceBuffer.getBuffer(0), static_cast<unsigned int>(cbWrite), written);
    if (FAILED(hr) || written != cbWrite) {
        if (FAILED(hr)) {
            setLastError(L"WriteNextFrame failed to write data. ", hr);
        } else {
            wchar_t text[4096];
            std::swprintf(text, 4096, L"WriteNextFrame only write %d/%d bytes", static_cast<int>(written),
                          static_cast<int>(cbWrite));
            setLastError(text);
            hr = E_FAIL;
        }
        DropLastIndexEntries();
        // What was stored of the frame is overwritten by what comes next.
        CDiskFile::seek(static_cast<unsigned long>(cbFilesize), 0);
        return hr;
    }
    return static_cast<HRESULT>(written);
}

HRESULT FileWriter::CreateNewRIFFChunk()
{
    if (m_StrlChunks.empty() || !m_pCurMovi)
        return E_INVALID_STATE;
    const std::uint32_t S = sectorSize();
    const std::uint64_t R = static_cast<std::uint64_t>(m_StrlChunks.size()) * CStrl::m_cbIXChunkSize;
    const bool closing = m_StrlChunks[0].m_dwSamplesInChunk != 0;

    // The head buffer of the next AVIX is had before the current RIFF is
    // closed: without it the RIFF stays open, whole and indexed.
    Morvane::CByteBuffer* pHead = nullptr;
    std::uint64_t cbToAlloc = R + S;
    if (closing || m_dwRIFF_Chunk_Index > 0) {
        if (cbToAlloc % S != 0) {
            MORVANE_ASSERT(FALSE);
            cbToAlloc = roundUpToSectorBoundary(cbToAlloc);
            MORVANE_ASSERT(cbToAlloc%sectorSize() == 0);
        }
        pHead = m_pCurMovi != &m_HeaderBuffer ? m_pCurMovi : nullptr;
        if (!pHead || pHead->getCapacity() < cbToAlloc) {
            pHead = new (std::nothrow) Morvane::CByteBuffer();
            if (!pHead || !pHead->alloc(cbToAlloc)) {
                delete pHead;
                setLastError(L"Not enough memory for the head of a new RIFF chunk.");
                return E_OUTOFMEMORY;
            }
            // Not needed by any reader; it keeps stale memory out of the file.
            pHead->flush(0);
        }
    }
    // Frees a new head buffer that did not become the current one.
    auto dropHead = [this, &pHead] {
        if (pHead && pHead != m_pCurMovi)
            delete pHead;
        pHead = nullptr;
    };

    HRESULT hr;
    if (closing) {
        if (!m_bLegacyIndexWritten) {
            MORVANE_ASSERT(m_dwRIFF_Chunk_Index==0);
            hr = WriteLegacyIndexTable();
            if (FAILED(hr))
                return dropHead(), hr;
        }
        hr = WriteIndexTable(true);
        if (FAILED(hr))
            return dropHead(), hr;
        hr = Flush();
        // The finished RIFF, its indexes and sizes, survive a power cut.
        if (SUCCEEDED(hr))
            hr = sync();
        if (FAILED(hr))
            return dropHead(), hr;
        for (CStrl& strl : m_StrlChunks)
            strl.m_dwSamplesInChunk = 0;
        ++m_dwRIFF_Chunk_Index;
    }
    for (CStrl& strl : m_StrlChunks)
        strl.IndexList_Reset();

    if (m_dwRIFF_Chunk_Index == 0) {
        const std::uint64_t C = m_HeaderBuffer.getCapacity();
        // A retry after a failed first frame finds the movi already laid out.
        const std::uint64_t H = m_cbOffset_MOVI_Size ? m_cbOffset_MOVI_Size - 4 : static_cast<std::uint64_t>(m_cbRiffSize) + 8;
        m_cbCurRiffOffset = 0;
        if (C < H + 12 + R + RIFF_CHUNK_SIZE) {
            MORVANE_ASSERT(FALSE);
            return E_FAIL;
        }
        m_cbOffset_MOVI_Size = static_cast<std::uint32_t>(H + 4);
        m_cbMoviJunk = static_cast<std::uint32_t>(C - H - 12 - R);
        if (m_cbMoviJunk <= RIFF_CHUNK_SIZE)
            MORVANE_ASSERT(m_cbMoviJunk > RIFF_CHUNK_SIZE);
        m_cbMoviSize = static_cast<std::uint32_t>(4 + m_cbMoviJunk + R);
        RIFFLIST movi = {ckid::LIST, m_cbMoviSize, ckid::movi};
        std::memcpy(m_HeaderBuffer.getBuffer(H), &movi, sizeof(movi));
        if (m_cbMoviJunk < 8) {
            MORVANE_ASSERT(FALSE);
            return E_FAIL;
        }
        RIFFCHUNK junk = {ckid::JUNK, m_cbMoviJunk - 8};
        std::memcpy(m_HeaderBuffer.getBuffer(H + 12), &junk, sizeof(junk));
        const std::uint64_t cbBufferPos = H + 12 + m_cbMoviJunk + R;
        MORVANE_ASSERT(m_pCurMovi->getCapacity()== cbBufferPos);
        m_cbRiffSize = static_cast<std::uint32_t>(C - 8);
        MORVANE_ASSERT(m_pCurMovi == &m_HeaderBuffer);
        m_HeaderBuffer.setUsed(C);
    } else {
        const std::uint64_t cap = pHead->getCapacity();
        if (cap < R + 24 + 8) {
            MORVANE_ASSERT(FALSE);
            dropHead();
            return E_FAIL;
        }
        // An AVIX whose head or first frame failed holds no frame: a retry
        // lays it out again in the same place rather than after it.
        if (closing || m_pCurMovi == &m_HeaderBuffer)
            m_cbTotalPrevRiffBytes += static_cast<std::uint64_t>(m_cbRiffSize) + 8;
        MORVANE_ASSERT(m_cbTotalPrevRiffBytes % sectorSize() == 0);
        if (pHead != m_pCurMovi && m_pCurMovi != &m_HeaderBuffer)
            delete m_pCurMovi;
        m_pCurMovi = pHead;
        RIFFLIST riff = {ckid::RIFF, static_cast<std::uint32_t>(cap - 8), ckid::AVIX};
        std::memcpy(pHead->getBuffer(0), &riff, sizeof(riff));
        m_cbOffset_MOVI_Size = 16;
        m_cbMoviSize = static_cast<std::uint32_t>(cap - 20);
        m_cbRiffSize = static_cast<std::uint32_t>(cap - 8);
        m_cbCurRiffOffset = m_cbTotalPrevRiffBytes;
        RIFFLIST movi = {ckid::LIST, m_cbMoviSize, ckid::movi};
        std::memcpy(pHead->getBuffer(12), &movi, sizeof(movi));
        m_cbMoviJunk = static_cast<std::uint32_t>(cap - R - 24);
        RIFFCHUNK junk = {ckid::JUNK, m_cbMoviJunk - 8};
        std::memcpy(pHead->getBuffer(24), &junk, sizeof(junk));
        const std::uint64_t cbBufferPos = 24 + m_cbMoviJunk + R;
        MORVANE_ASSERT(cbBufferPos == cbToAlloc);
        pHead->setUsed(cap);
    }

    hr = WriteIndexTable(true);
    if (FAILED(hr)) {
        MORVANE_ASSERT(FALSE);
        return hr;
    }
    for (CStrl& strl : m_StrlChunks)
        strl.m_bNewSuperIndexEntry = true;
    return S_OK;
}

} // namespace Morvane::Avi
