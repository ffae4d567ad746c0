#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.Strl.h"
#include "FileFormats/AVI/avilib/avilib.TrackData.h"
#include "FileFormats/common/filewriterunbuffered.h"
#include "util/bytebuffer.h"

namespace Morvane::Avi {

// Writes a sector-aligned OpenDML AVI: a first RIFF "AVI " and, as it
// grows, further RIFF "AVIX" chunks, with ix##, indx and idx1 indexes.
// Every write is whole sectors at a sector-aligned offset.
class FileWriter : public Pell::CFileWriterUnbuffered
{
public:
    static constexpr const wchar_t* kObjectName = L"Pell::Avi::FileWriter";

    FileWriter();
    ~FileWriter() override;
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    using Pell::CFileWriterUnbuffered::create;
    HRESULT create(const std::wstring& path, TrackStructuralData* pTracks, std::uint16_t nTracks);
    // finish() with its result dropped.
    void close() override;
    // Completes the indexes and header, syncs the file to the disk and closes
    // it (closed whatever the result): S_OK, or the first failure with its text.
    HRESULT finish();
    void set_FlushFrequency(std::uint32_t n) { m_dwFlushFrequency = n; }

    HRESULT WriteSamples(TrackData* pTrackData, short nTrackData);
    // Bytes written, or a failing result.
    HRESULT WriteNextFrame(TrackData* pTrackData, short nTrackData);
    HRESULT CreateNewRIFFChunk();
    // Patches the header fields and writes the header and the current head
    // buffer whole; the first failing write's result.
    HRESULT Flush();
    // The periodic flush: the same fields, but only the sectors that changed
    // since they last reached the disk are written, index regions first.
    HRESULT FlushChanges();

    HRESULT WriteIndexTable(bool writeHeadBuffer);
    HRESULT WriteLegacyIndexTable();
    void set_NextIndexRealLocation(std::uint32_t n);
    void set_FindIBPIndexRealLocation(bool b);

    std::uint32_t sectorSize() const { return getSectorSize(); }

    // State for callers and checks.
    std::uint32_t get_StreamCount() const { return static_cast<std::uint32_t>(m_StrlChunks.size()); }
    const CStrl* get_Stream(std::uint32_t n) const { return n < m_StrlChunks.size() ? &m_StrlChunks[n] : nullptr; }
    std::uint32_t get_MaxFrames() const { return m_dwMaxFrames; }
    std::uint32_t get_MaxIndexEntries() const { return m_dwMaxIndexEntries; }
    std::uint32_t get_RiffChunkIndex() const { return m_dwRIFF_Chunk_Index; }
    std::uint32_t get_StartTimecode() const { return m_dwStartTimecode; }
    bool get_HasStartTimecode() const { return m_bHasStartTimecode; }
    const std::vector<std::uint16_t>& get_Trackmapping() const { return m_Trackmapping; }
    const Morvane::CByteBuffer& get_HeaderBuffer() const { return m_HeaderBuffer; }

protected:
    virtual void InitVariables();

    std::uint64_t Header_CreateChunk_hdrl();
    std::uint64_t Header_CreateChunk_avih();
    std::uint64_t Header_CreateChunk_odml();
    std::uint64_t Header_CreateChunk_INFO();
    std::uint64_t Header_CreateChunk_ISFT();
    std::uint64_t Header_CreateChunk_ISMP();
    std::uint32_t Header_CreateChunk_ISXX(std::uint32_t fourcc, const char* text);

    HRESULT WriteHeader();
    HRESULT WriteAtOffset(std::uint64_t dwOffset, unsigned char* pBuffer, std::uint64_t cbSize);
    // Writes the first n bytes of the header buffer or of an AVIX head buffer
    // at offset: all of them, or only the sectors that differ from what the
    // disk was last given at that offset.
    HRESULT WriteHeadBytes(Morvane::CByteBuffer& buffer, std::uint64_t offset, std::uint64_t n, bool changedOnly);

private:
    friend class CStrl;

    // Appends n bytes at the end of the header buffer; false when they do not fit.
    bool AppendToHeader(const void* p, std::uint64_t n);
    void PutHeader32(std::uint64_t offset, std::uint32_t value);
    void FreeTracks();
    void DropLastIndexEntries();
    // Where the current RIFF ends, which is where the next frame or idx1
    // goes, whatever a failed write left past it.
    std::uint64_t RiffEnd() const { return m_cbCurRiffOffset + m_cbRiffSize + 8ull; }
    void StoreHeaderFields();
    // A failed frame write may have left bytes past the last RIFF: they
    // become a JUNK chunk of that RIFF, so the file is RIFF after RIFF.
    void CoverStrayBytes();
    double VideoFramesPerSecond() const;

    std::uint32_t m_dwFlushFrequency;
    std::uint32_t m_dwFramesSinceFlush;
    TrackStructuralData* m_pTracks;
    std::vector<std::uint16_t> m_Trackmapping;
    Morvane::CByteBuffer m_HeaderBuffer;
    Morvane::CByteBuffer m_EssenceBuffer;
    Morvane::CByteBuffer* m_pCurMovi;
    std::uint32_t m_cbRiffSize;
    std::uint32_t m_cbMoviSize;
    std::vector<CStrl> m_StrlChunks;
    std::uint32_t m_cbOffset_AVIH_TotalFrames;
    std::uint32_t m_cbOffset_AVIH_MaxBytesPerSec;
    std::uint32_t m_cbOffset_AVIH_SuggestedBufferSize;
    std::uint32_t m_cbOffset_DMLH_TotalFrames;
    std::uint32_t m_cbOffset_MOVI_Size;
    std::uint32_t m_dwStartTimecode;
    bool m_bHasStartTimecode;
    bool m_bDropFrame;
    std::uint32_t m_dwMaxFrames;
    std::uint32_t m_dwRIFF_Chunk_Index;
    std::uint32_t m_dwMaxIndexEntries;
    bool m_bLegacyIndexWritten;
    std::uint64_t m_cbTotalPrevRiffBytes;
    std::uint64_t m_cbCurRiffOffset;
    std::uint32_t m_cbMoviJunk;

    // The bytes of a head buffer as the disk last received them.
    struct DiskImage
    {
        std::uint64_t offset = ~0ull;
        std::vector<unsigned char> bytes;
    };
    DiskImage m_HeaderImage;
    DiskImage m_HeadImage;
};

} // namespace Morvane::Avi
