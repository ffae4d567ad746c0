#pragma once
#include <cstdint>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.Records.h"
#include "FileFormats/AVI/avilib/avilib.TrackData.h"
#include "FileFormats/AVI/avilib/avilib.WriterIndexEntry.h"
#include "util/linux/platform.h"

namespace Morvane::Avi {

class FileWriter;

// One written stream: appends its LIST "strl" to the writer's header and
// keeps the stream's index list for the current RIFF, its sample counters
// and its largest chunk.
class CStrl
{
public:
    // Size of a stream's index region at the front of every movi list.
    static constexpr std::uint32_t m_cbIXChunkSize = 65536;

    explicit CStrl(FileWriter* pParent);
    CStrl(const CStrl& other);
    CStrl& operator=(const CStrl& other);
    ~CStrl();

    void Assign(const CStrl& other);

    // Appends the whole strl list; the bytes appended, 0 on failure.
    std::uint64_t Create(int nStream, const TrackStructuralData* pTrack);
    std::uint64_t CreateChunk_strh();
    std::uint64_t CreateChunk_strf();
    std::uint64_t CreateChunk_vprp();
    std::uint64_t CreateChunk_indx();

    static std::uint16_t GetLongsPerEntryForIndexType(std::uint8_t type);

    void set_MaxItemSize(std::uint64_t cb);
    std::uint32_t get_MaxBufferSize() const;
    std::uint64_t get_SampleCountFromDataSize(std::uint64_t cbData) const;
    void IncrementSamplesWritten(std::uint32_t n);

    HRESULT IndexList_Add(std::uint64_t cbFilesize, const TrackData* pTrackData);
    void IndexList_GetEntry(std::uint64_t nIndex, INDEXENTRY* pEntry) const;
    void IndexList_RemoveLast();
    void IndexList_Reset();
    std::uint64_t IndexList_Count() const { return m_IndexList.size(); }
    const CIndexEntry& IndexList_At(std::uint64_t i) const { return m_IndexList[i]; }

    bool HaveAllFrames() const;
    std::uint32_t get_ApproxGopLen() const;
    void set_NextIndexRealLocation(std::uint32_t n) { m_dwNextIndexRealLocation = n; }
    void set_FindIBPIndexRealLocation(bool b) { m_bFindIBPIndexRealLocation = b; }

    bool Flush(std::uint32_t& suggested);
    HRESULT WriteIndexTable(bool& updated);
    void WriteMQIndexEntry(MQ_AVIIBPINDEX_ENTRY* pOut, const CIndexEntry* pEntry) const;

    std::uint32_t get_Type() const { return m_Data.Type; }
    std::uint8_t get_IndexType() const { return m_IndexType; }
    std::uint32_t get_ChunkId() const { return m_ChunkId; }
    std::uint32_t get_IxChunkId() const { return m_IxChunkId; }
    std::uint32_t get_SamplesInChunk() const { return m_dwSamplesInChunk; }
    std::uint32_t get_SamplesWritten() const { return m_dwSamplesWritten; }
    std::uint32_t get_SuperIndexEntries() const { return m_dwSuperIndexEntries; }
    std::uint32_t get_MaxSuperIndexEntries() const { return m_dwMaxSuperIndexEntries; }
    std::uint32_t get_FixedBufferSize() const { return m_cbFixedBufferSize; }

private:
    friend class FileWriter;

    void InitVariables();
    void FreeExtraData();
    bool CopyTrack(const TrackStructuralData& track);
    // Appends n bytes from p at the end of the parent's header buffer.
    bool AppendToHeader(const void* p, std::uint64_t n);
    std::uint64_t FindRealLocation(std::uint64_t i, bool& found) const;

    std::uint32_t m_dwMaxSuperIndexEntries;
    std::uint32_t m_cbIndxHeader;
    TrackStructuralData m_Data;
    FileWriter* m_pParent;
    std::uint32_t m_cbOffset_STRH_Length;
    std::uint32_t m_cbOffset_STRH_SuggestedBufferSize;
    std::uint32_t m_cbOffset_STRF_SizeImage;
    std::uint32_t m_ChunkId;
    std::uint32_t m_IxChunkId;
    std::uint8_t m_IndexType;
    std::uint32_t m_cbFixedBufferSize;
    std::uint32_t m_cbOffset_INDX_FirstEntry;
    std::uint32_t m_cbOffset_INDX_EntriesInUse;
    std::uint32_t m_dwSuperIndexEntries;
    std::uint64_t m_cbMaxItemSize;
    std::vector<CIndexEntry> m_IndexList;
    bool m_bNewSuperIndexEntry;
    std::uint32_t m_dwSamplesInChunk;
    std::uint32_t m_dwSamplesWritten;
    std::uint32_t m_nStreamIndex;
    std::uint32_t m_dwNextIndexRealLocation;
    bool m_bFindIBPIndexRealLocation;
    std::uint32_t m_dwLastLength;
    std::uint32_t m_dwLastSuggestedBufferSize;
    std::uint32_t m_dwLastSizeImage;
    std::uint32_t m_dwIndexListBase;
};

} // namespace Morvane::Avi
