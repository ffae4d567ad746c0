// The stream's ix## chunk of the current RIFF and its super index entry.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.Strl.h"
#include "FileFormats/AVI/avilib/avilib.WriterBytes.h"

namespace Morvane::Avi {

namespace {

constexpr std::uint32_t kIxChunkDataSize = CStrl::m_cbIXChunkSize - 8;
// Real locations are searched this many places either side of an entry.
constexpr std::uint64_t kRealLocationWindow = 64;

// Size flags of the IBP entries, indexed by frame type - 8.
constexpr std::uint32_t kIbpFrameTypeFlags[9] = {0x40000000u, 0, 0, 0, 0, 0, 0, 0, 0x20000000u};

} // namespace

void CStrl::WriteMQIndexEntry(MQ_AVIIBPINDEX_ENTRY* pOut, const CIndexEntry* pEntry) const
{
    if (!pOut || !pEntry)
        return;
    std::uint32_t flags = 0;
    if (pEntry->frameType >= 8 && pEntry->frameType <= 16)
        flags = kIbpFrameTypeFlags[pEntry->frameType - 8];
    pOut->qwOffset = pEntry->position;
    pOut->dwSizeAndType = pEntry->size | flags;
    pOut->dwDisplay = pEntry->display;
    pOut->dwRealLocation = pEntry->realLocation;
    pOut->dwReserved = 0;
}

std::uint64_t CStrl::FindRealLocation(std::uint64_t i, bool& found) const
{
    const std::uint64_t L = m_IndexList.size();
    std::uint64_t from, to;
    if (i > kRealLocationWindow) {
        from = i - kRealLocationWindow;
        to = std::min(i + kRealLocationWindow, L);
    } else {
        from = 0;
        to = std::min(2 * kRealLocationWindow, L);
    }
    const std::uint64_t wanted = m_dwIndexListBase + i;
    for (std::uint64_t j = from; j < to; ++j) {
        if (m_IndexList[j].display == wanted) {
            found = true;
            return j;
        }
    }
    found = false;
    return 0;
}

HRESULT CStrl::WriteIndexTable(bool& updated)
{
    if (!m_pParent || !m_pParent->m_pCurMovi)
        return E_UNEXPECTED;
    if (m_dwSuperIndexEntries >= m_dwMaxSuperIndexEntries) {
        char text[128];
        std::snprintf(text, sizeof(text), "SuperIndexEntries (%d) has exceed max entries (%d)",
                      static_cast<int>(m_dwSuperIndexEntries), static_cast<int>(m_dwMaxSuperIndexEntries));
        return E_FAIL;
    }
    Morvane::CByteBuffer& head = *m_pParent->m_pCurMovi;
    const std::uint64_t X = static_cast<std::uint64_t>(m_pParent->m_cbOffset_MOVI_Size) + 8 + m_pParent->m_cbMoviJunk +
                            static_cast<std::uint64_t>(m_nStreamIndex) * m_cbIXChunkSize;
    if (X + m_cbIXChunkSize > head.getCapacity())
        return E_UNEXPECTED;
    unsigned char* region = head.getBuffer(X);

    const std::uint16_t longs = GetLongsPerEntryForIndexType(m_IndexType);
    if (longs == 0) {
        MORVANE_ASSERT(FALSE);
        char text[128];
        std::snprintf(text, sizeof(text), "WriteIndexTable unexpected index type %d", static_cast<int>(m_IndexType));
        return E_UNEXPECTED;
    }
    // qwBaseOffset: the movi list's "LIST" word.
    const std::uint64_t B = static_cast<std::uint64_t>(m_pParent->m_cbOffset_MOVI_Size) + m_pParent->m_cbTotalPrevRiffBytes - 4;
    AVISTDINDEX ix = {};
    ix.fcc = m_IxChunkId;
    ix.cb = kIxChunkDataSize;
    ix.wLongsPerEntry = longs;
    ix.bIndexSubType = m_IndexType;
    ix.bIndexType = AVI_INDEX_OF_CHUNKS;
    ix.nEntriesInUse = static_cast<std::uint32_t>(m_IndexList.size());
    ix.dwChunkId = m_ChunkId;
    ix.qwBaseOffset = B;
    // dwReserved stays as the region holds it.
    std::memcpy(region, &ix, offsetof(AVISTDINDEX, dwReserved));

    // Never past the region, whatever the list holds.
    const std::uint64_t cbEntry = 4u * longs;
    const std::uint64_t room = (m_cbIXChunkSize - sizeof(AVISTDINDEX)) / cbEntry;
    const std::uint64_t count = std::min<std::uint64_t>(m_IndexList.size(), room);
    unsigned char* out = region + sizeof(AVISTDINDEX);
    for (std::uint64_t i = 0; i < count; ++i, out += cbEntry) {
        CIndexEntry& entry = m_IndexList[i];
        if (m_IndexType == AVI_INDEX_SUB_DEFAULT) {
            AVISTDINDEX_ENTRY std = {};
            std.dwOffset = static_cast<std::uint32_t>(entry.position + 8 - B);
            // Predicted pictures are delta frames, so that readers seek to
            // the intra frames that start their groups.
            std.dwSize = entry.size | (entry.frameType > 4 ? AVISTDINDEX_DELTAFRAME : 0);
            std::memcpy(out, &std, sizeof(std));
        } else {
            if (m_bFindIBPIndexRealLocation) {
                bool found = false;
                std::uint64_t j = FindRealLocation(i, found);
                if (!found) {
                    MORVANE_ASSERT(FALSE);
                    break;
                }
                entry.realLocation = static_cast<std::uint32_t>(m_dwIndexListBase + j);
            }
            MQ_AVIIBPINDEX_ENTRY mq;
            WriteMQIndexEntry(&mq, &entry);
            std::memcpy(out, &mq, sizeof(mq));
        }
    }

    if (m_dwSamplesInChunk == 0)
        return S_OK;
    Morvane::CByteBuffer& header = m_pParent->m_HeaderBuffer;
    if (m_bNewSuperIndexEntry) {
        ++m_dwSuperIndexEntries;
        m_bNewSuperIndexEntry = false;
        m_pParent->PutHeader32(m_cbOffset_INDX_EntriesInUse, m_dwSuperIndexEntries);
    }
    MORVANE_ASSERT(m_dwSuperIndexEntries > 0);
    if (m_dwSuperIndexEntries == 0)
        return E_UNEXPECTED;
    const std::uint64_t slot =
        m_cbOffset_INDX_FirstEntry + static_cast<std::uint64_t>(m_dwSuperIndexEntries - 1) * sizeof(AVISUPERINDEX_ENTRY);
    if (slot + sizeof(AVISUPERINDEX_ENTRY) > header.getCapacity())
        return E_UNEXPECTED;
    AVISUPERINDEX_ENTRY super = {};
    super.qwOffset = m_pParent->m_cbCurRiffOffset + X;
    super.dwSize = kIxChunkDataSize;
    super.dwDuration = m_dwSamplesInChunk;
    std::memcpy(header.getBuffer(slot), &super, sizeof(super));
    updated = true;
    return S_OK;
}

} // namespace Morvane::Avi
