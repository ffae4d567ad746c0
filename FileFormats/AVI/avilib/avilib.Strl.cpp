#include "FileFormats/AVI/avilib/avilib.Strl.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "FileFormats/AVI/avilib/avilib.AutoUpdateSize.h"
#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "FileFormats/AVI/avilib/avilib.WriterBytes.h"

namespace Morvane::Avi {

namespace {

constexpr std::uint32_t kMaxSuperIndexEntriesHeader = 1024;
// The copies kept by the writer refuse entries earlier than the header's room runs out.
constexpr std::uint32_t kMaxSuperIndexEntriesCopy = 638;
constexpr std::uint32_t kIndxHeaderSize = 32;
constexpr std::uint32_t kNoRealLocation = 0xFFFFFFFFu;

// The MPEG-2 extra data holds a media type from byte 4 on; its fixed part
// (up to the format size) is all the writer looks at.
constexpr std::size_t kMmesMediaTypeAt = 4;
constexpr std::size_t kMmesMediaTypeBytes = offsetof(AM_MEDIA_TYPE, pbFormat);

bool isFourCC(std::uint32_t fcc, const char (&a)[5], const char (&b)[5])
{
    return fcc == makeFourCC(a) || fcc == makeFourCC(b);
}

} // namespace

CStrl::CStrl(FileWriter* pParent) : m_dwMaxSuperIndexEntries(kMaxSuperIndexEntriesHeader), m_cbIndxHeader(kIndxHeaderSize)
{
    InitVariables();
    MORVANE_ASSERT(pParent);
    m_pParent = pParent;
}

CStrl::CStrl(const CStrl& other) : m_dwMaxSuperIndexEntries(kMaxSuperIndexEntriesCopy), m_cbIndxHeader(kIndxHeaderSize)
{
    InitVariables();
    Assign(other);
}

CStrl& CStrl::operator=(const CStrl& other)
{
    if (this != &other)
        Assign(other);
    return *this;
}

CStrl::~CStrl()
{
    FreeExtraData();
}

void CStrl::InitVariables()
{
    m_pParent = nullptr;
    std::memset(&m_Data, 0, sizeof(m_Data));
    m_cbOffset_STRH_Length = 0;
    m_cbOffset_STRH_SuggestedBufferSize = 0;
    m_cbOffset_STRF_SizeImage = 0;
    m_ChunkId = 0;
    m_IxChunkId = 0;
    m_IndexType = 0;
    m_cbFixedBufferSize = 0;
    m_cbOffset_INDX_FirstEntry = 0;
    m_cbOffset_INDX_EntriesInUse = 0;
    m_dwSuperIndexEntries = 0;
    m_cbMaxItemSize = 0;
    m_bNewSuperIndexEntry = false;
    m_dwSamplesInChunk = 0;
    m_dwSamplesWritten = 0;
    m_nStreamIndex = 0;
    m_dwNextIndexRealLocation = kNoRealLocation;
    m_bFindIBPIndexRealLocation = true;
    m_dwLastLength = 0;
    m_dwLastSuggestedBufferSize = 0;
    m_dwLastSizeImage = 0;
    m_dwIndexListBase = 0;
}

void CStrl::FreeExtraData()
{
    std::free(m_Data.pExtraData);
    m_Data.pExtraData = nullptr;
    m_Data.cbExtra = 0;
}

bool CStrl::CopyTrack(const TrackStructuralData& track)
{
    FreeExtraData();
    m_Data = track;
    m_Data.pExtraData = nullptr;
    m_Data.cbExtra = 0;
    if (track.cbExtra && track.pExtraData) {
        m_Data.pExtraData = static_cast<unsigned char*>(std::malloc(track.cbExtra));
        if (!m_Data.pExtraData)
            return false;
        std::memcpy(m_Data.pExtraData, track.pExtraData, track.cbExtra);
        m_Data.cbExtra = track.cbExtra;
    }
    return true;
}

void CStrl::Assign(const CStrl& other)
{
    CopyTrack(other.m_Data);
    m_pParent = other.m_pParent;
    m_cbOffset_STRH_Length = other.m_cbOffset_STRH_Length;
    m_cbOffset_STRH_SuggestedBufferSize = other.m_cbOffset_STRH_SuggestedBufferSize;
    m_cbOffset_STRF_SizeImage = other.m_cbOffset_STRF_SizeImage;
    m_ChunkId = other.m_ChunkId;
    m_IxChunkId = other.m_IxChunkId;
    m_IndexType = other.m_IndexType;
    m_cbFixedBufferSize = other.m_cbFixedBufferSize;
    m_cbOffset_INDX_FirstEntry = other.m_cbOffset_INDX_FirstEntry;
    m_cbOffset_INDX_EntriesInUse = other.m_cbOffset_INDX_EntriesInUse;
    m_dwSuperIndexEntries = other.m_dwSuperIndexEntries;
    m_cbMaxItemSize = other.m_cbMaxItemSize;
    m_IndexList = other.m_IndexList;
    m_bNewSuperIndexEntry = other.m_bNewSuperIndexEntry;
    m_dwSamplesInChunk = other.m_dwSamplesInChunk;
    m_dwSamplesWritten = other.m_dwSamplesWritten;
    m_nStreamIndex = other.m_nStreamIndex;
    m_dwNextIndexRealLocation = other.m_dwNextIndexRealLocation;
    m_bFindIBPIndexRealLocation = other.m_bFindIBPIndexRealLocation;
    m_dwLastLength = other.m_dwLastLength;
    m_dwLastSuggestedBufferSize = other.m_dwLastSuggestedBufferSize;
    m_dwLastSizeImage = other.m_dwLastSizeImage;
    m_dwIndexListBase = other.m_dwIndexListBase;
}

bool CStrl::AppendToHeader(const void* p, std::uint64_t n)
{
    return m_pParent && m_pParent->AppendToHeader(p, n);
}

std::uint64_t CStrl::Create(int nStream, const TrackStructuralData* pTrack)
{
    MORVANE_ASSERT(pTrack);
    MORVANE_ASSERT(m_pParent);
    if (!pTrack || !m_pParent)
        return 0;
    m_nStreamIndex = static_cast<std::uint32_t>(nStream);
    m_IxChunkId = makeFourCC("ix00");

    char chunkId[5] = "00dc";
    if (pTrack->Type == StreamVideo) {
        const VideoTrackInfo& v = pTrack->Data.VInfo;
        const std::uint32_t fcc = static_cast<std::uint32_t>(v.fourcc);
        const double fps = v.scale ? static_cast<double>(v.rate) / static_cast<double>(v.scale) : 0.0;
        const bool pal = v.width == 720 && v.height == 576 && fps == 25.0;
        const bool ntsc = v.width == 720 && v.height == 480 && fps > 29.96 && fps < 29.98;
        if (fcc == makeFourCC("dv50")) {
            if (pal)
                m_cbFixedBufferSize = 288256;
            else if (ntsc)
                m_cbFixedBufferSize = 240128;
        } else if (isFourCC(fcc, "dv25", "dvsd")) {
            if (pal)
                m_cbFixedBufferSize = 144384;
            else if (ntsc)
                m_cbFixedBufferSize = 120320;
        } else if (isFourCC(fcc, "YUY2", "yuy2") || isFourCC(fcc, "UYVY", "uyvy")) {
            std::memcpy(chunkId, "00db", 4);
        } else if (isFourCC(fcc, "MMES", "mmes") || isFourCC(fcc, "M701", "m701")) {
            // SD and HD long GOP alike.
            MORVANE_ASSERT(pTrack->pExtraData);
            MORVANE_ASSERT(pTrack->cbExtra == 212);
            // Only look into the media type when its bytes are really there.
            if (pTrack->pExtraData && pTrack->cbExtra >= kMmesMediaTypeAt + kMmesMediaTypeBytes) {
                AM_MEDIA_TYPE mediaType = {};
                std::memcpy(&mediaType, pTrack->pExtraData + kMmesMediaTypeAt, kMmesMediaTypeBytes);
                const AM_MEDIA_TYPE* pmt = &mediaType;
                MORVANE_ASSERT(pmt->majortype == MEDIATYPE_Video);
                MORVANE_ASSERT(pmt->subtype == MEDIASUBTYPE_MPEG2_VIDEO);
                if (pmt->majortype == MEDIATYPE_Video && pmt->subtype == MEDIASUBTYPE_MPEG2_VIDEO &&
                    pmt->bTemporalCompression) {
                    MORVANE_ASSERT(pTrack->Data.VInfo.gopLength > 1);
                    m_IndexType = AVI_INDEX_IBP;
                    m_pParent->m_dwMaxIndexEntries =
                        (m_cbIXChunkSize - m_cbIndxHeader) / (4 * GetLongsPerEntryForIndexType(AVI_INDEX_IBP));
                }
            }
        }
    } else if (pTrack->Type == StreamAudio) {
        std::memcpy(chunkId, "00wb", 4);
    } else {
        MORVANE_ASSERT(FALSE);
        return 0;
    }
    MORVANE_ASSERT(m_cbIXChunkSize % m_pParent->sectorSize() == 0);

    char text[5];
    std::snprintf(text, sizeof(text), "%02d%c%c", nStream, chunkId[2], chunkId[3]);
    std::memcpy(&m_ChunkId, text, 4);
    std::snprintf(text, sizeof(text), "ix%02d", nStream);
    std::memcpy(&m_IxChunkId, text, 4);

    if (!CopyTrack(*pTrack))
        return 0;

    Morvane::CByteBuffer& header = m_pParent->m_HeaderBuffer;
    const std::uint64_t start = header.getUsed();
    RIFFLIST list = {ckid::LIST, 0, ckid::strl};
    if (!AppendToHeader(&list, sizeof(list)))
        return 0;
    AutoUpdateChunkSize listSize(header.getBuffer(start + 4), 12);

    std::uint64_t cb = CreateChunk_strh();
    if (cb == 0) {
        MORVANE_ASSERT(FALSE);
        return 0;
    }
    listSize += cb;
    cb = CreateChunk_strf();
    if (cb == 0) {
        MORVANE_ASSERT(FALSE);
        return 0;
    }
    listSize += cb;
    cb = CreateChunk_indx();
    if (cb == 0) {
        MORVANE_ASSERT(FALSE);
        return 0;
    }
    listSize += cb;
    if (m_Data.Type == StreamVideo)
        listSize += CreateChunk_vprp();
    return listSize.get();
}

std::uint64_t CStrl::CreateChunk_strh()
{
    AVISTREAMHEADER strh = {};
    strh.fcc = ckid::strh;
    strh.cb = sizeof(AVISTREAMHEADER) - 8;
    if (m_Data.Type == StreamVideo) {
        const VideoTrackInfo& v = m_Data.Data.VInfo;
        strh.fccType = streamtype::vids;
        strh.fccHandler = static_cast<std::uint32_t>(v.fourcc);
        strh.dwScale = static_cast<std::uint32_t>(v.scale);
        strh.dwRate = static_cast<std::uint32_t>(v.rate);
        strh.dwSampleSize = 0;
        strh.rcFrame.left = 0;
        strh.rcFrame.top = 0;
        strh.rcFrame.right = static_cast<std::int16_t>(static_cast<std::uint16_t>(v.width));
        strh.rcFrame.bottom = static_cast<std::int16_t>(static_cast<std::uint16_t>(v.height));
    } else {
        const AudioTrackInfo& a = m_Data.Data.AInfo;
        strh.fccType = streamtype::auds;
        strh.fccHandler = a.formatTag;
        strh.dwScale = 1;
        strh.dwRate = a.samplesPerSec;
        // Counted in samples at the sample rate, and timed by the format's
        // block alignment: with a sample size of 0, ffmpeg takes the stream's
        // length from dwLength and shows the audio's duration; every reader
        // we know of still times each chunk by its bytes over nBlockAlign.
        strh.dwSampleSize = 0;
    }
    const std::uint64_t start = m_pParent->m_HeaderBuffer.getUsed();
    if (!AppendToHeader(&strh, sizeof(strh)))
        return 0;
    m_cbOffset_STRH_Length = static_cast<std::uint32_t>(start + offsetof(AVISTREAMHEADER, dwLength));
    m_cbOffset_STRH_SuggestedBufferSize =
        static_cast<std::uint32_t>(start + offsetof(AVISTREAMHEADER, dwSuggestedBufferSize));
    return sizeof(strh);
}

std::uint64_t CStrl::CreateChunk_strf()
{
    const std::uint64_t start = m_pParent->m_HeaderBuffer.getUsed();
    if (m_Data.Type == StreamVideo) {
        const VideoTrackInfo& v = m_Data.Data.VInfo;
        if (m_Data.cbExtra)
            MORVANE_ASSERT(m_Data.pExtraData);
        const std::uint32_t cbExtra = m_Data.pExtraData ? m_Data.cbExtra : 0;
        RIFFCHUNK ck = {ckid::strf, static_cast<std::uint32_t>(sizeof(BITMAPINFOHEADER) + cbExtra)};
        BITMAPINFOHEADER bih = {};
        bih.biSize = static_cast<std::uint32_t>(sizeof(BITMAPINFOHEADER) + cbExtra);
        bih.biWidth = static_cast<std::int32_t>(v.width);
        bih.biHeight = static_cast<std::int32_t>(v.height);
        bih.biPlanes = 1;
        bih.biBitCount = static_cast<std::uint16_t>(v.bitCount);
        bih.biCompression = static_cast<std::uint32_t>(v.fourcc);
        bih.biSizeImage = 0;
        // An odd codec block gets the RIFF pad byte, or every later chunk would be misplaced.
        const std::uint64_t pad = cbExtra & 1;
        const std::uint64_t total = sizeof(ck) + sizeof(bih) + cbExtra + pad;
        Morvane::CByteBuffer& header = m_pParent->m_HeaderBuffer;
        if (total > header.getCapacity() - header.getUsed())
            return 0;
        AppendToHeader(&ck, sizeof(ck));
        AppendToHeader(&bih, sizeof(bih));
        if (cbExtra)
            AppendToHeader(m_Data.pExtraData, cbExtra);
        if (pad) {
            const unsigned char zero = 0;
            AppendToHeader(&zero, 1);
        }
        m_cbOffset_STRF_SizeImage = static_cast<std::uint32_t>(start + 8 + offsetof(BITMAPINFOHEADER, biSizeImage));
        return total;
    }
    if (m_Data.Type == StreamAudio) {
        MORVANE_ASSERT(m_Data.cbExtra == 0);
        const AudioTrackInfo& a = m_Data.Data.AInfo;
        // The 16-byte PCM format: WAVEFORMATEX without its cbSize word.
        WAVEFORMATEX wfx = {};
        wfx.wFormatTag = static_cast<std::uint16_t>(a.formatTag);
        wfx.nChannels = a.channels;
        wfx.nSamplesPerSec = a.samplesPerSec;
        wfx.nAvgBytesPerSec = a.avgBytesPerSec;
        wfx.nBlockAlign = a.blockAlign;
        wfx.wBitsPerSample = a.bitsPerSample;
        constexpr std::uint32_t cbFormat = offsetof(WAVEFORMATEX, cbSize);
        RIFFCHUNK ck = {ckid::strf, cbFormat};
        Morvane::CByteBuffer& header = m_pParent->m_HeaderBuffer;
        if (sizeof(ck) + cbFormat > header.getCapacity() - header.getUsed())
            return 0;
        AppendToHeader(&ck, sizeof(ck));
        AppendToHeader(&wfx, cbFormat);
        return sizeof(ck) + cbFormat;
    }
    MORVANE_ASSERT(FALSE);
    return 0;
}

std::uint64_t CStrl::CreateChunk_indx()
{
    const std::uint64_t M = m_dwMaxSuperIndexEntries;
    const std::uint64_t total = m_cbIndxHeader + sizeof(AVISUPERINDEX_ENTRY) * M;
    Morvane::CByteBuffer& header = m_pParent->m_HeaderBuffer;
    const std::uint64_t start = header.getUsed();
    if (total > header.getCapacity() - start)
        return 0;
    AVISUPERINDEX indx = {};
    indx.fcc = ckid::indx;
    indx.cb = static_cast<std::uint32_t>(total - 8);
    indx.wLongsPerEntry = 4;
    indx.bIndexSubType = m_IndexType;
    indx.bIndexType = AVI_INDEX_OF_INDEXES;
    indx.nEntriesInUse = 0;
    indx.dwChunkId = m_ChunkId;
    AppendToHeader(&indx, sizeof(indx));
    std::memset(header.getBuffer(header.getUsed()), 0, total - sizeof(indx));
    header.setUsed(start + total);
    m_cbOffset_INDX_EntriesInUse = static_cast<std::uint32_t>(start + offsetof(AVISUPERINDEX, nEntriesInUse));
    m_cbOffset_INDX_FirstEntry = static_cast<std::uint32_t>(start + sizeof(AVISUPERINDEX));
    return total;
}

std::uint64_t CStrl::CreateChunk_vprp()
{
    const VideoTrackInfo& v = m_Data.Data.VInfo;
    const std::uint32_t fcc = static_cast<std::uint32_t>(v.fourcc);
    AVIVIDEOPROPERTIES VideoProps = {};
    VideoProps.fcc = ckid::vprp;
    VideoProps.dwFrameWidthInPixels = static_cast<std::uint32_t>(v.width);
    VideoProps.dwFrameHeightInLines = static_cast<std::uint32_t>(v.height);
    VideoProps.dwFrameAspectRatio = static_cast<std::uint32_t>(v.aspectRatio);
    MORVANE_ASSERT(VideoProps.dwFrameAspectRatio > 0);

    // The scan the editor asked for decides; without one, the field code,
    // and without that, what the essence kind usually is.
    const std::uint64_t scan = v.scanMode;
    bool interlaced;
    if (scan >= 1 && scan <= 4)
        interlaced = scan <= 2;
    else if (v.fieldCode == 3 || v.fieldCode == 4)
        interlaced = v.fieldCode == 3;
    else
        interlaced = isFourCC(fcc, "M101", "M102") || isFourCC(fcc, "M701", "m701") || isFourCC(fcc, "MJPG", "mjpg") ||
                     isFourCC(fcc, "MMES", "mmes");
    const bool lowerFirst = scan == 2;
    const bool segmented = scan == 4;

    const double fps = v.scale ? static_cast<double>(v.rate) / static_cast<double>(v.scale) : 0.0;
    const bool is25 = fps == 25.0;
    const bool is2997 = fps > 29.96 && fps < 29.98;
    auto set = [&](std::uint32_t token, std::uint32_t standard, std::uint32_t refresh, std::uint32_t hTotal,
                   std::uint32_t vTotal) {
        VideoProps.VideoFormatToken = token;
        VideoProps.VideoStandard = standard;
        VideoProps.dwVerticalRefreshRate = refresh;
        VideoProps.dwHTotalInT = hTotal;
        VideoProps.dwVTotalInLines = vTotal;
    };
    if (v.width == 720 && is25) {
        set(2, 1, 50, 864, 625);
    } else if (v.width == 720 && is2997) {
        set(4, 2, 60, 858, 525);
    } else if (v.width == 1920 && is25) {
        set(5, 4, 50, 2640, 1125);
        VideoProps.dwFrameAspectRatio = 0x100009;
    } else if (v.width == 1920 && is2997) {
        set(5, 6, 60, 2200, 1125);
        VideoProps.dwFrameAspectRatio = 0x100009;
    } else if (v.width == 1280 && ((fps > 59.93 && fps < 59.95) || (fps > 59.9999 && fps < 60.00001))) {
        set(7, 14, 60, 1650, 750);
        VideoProps.dwFrameAspectRatio = 0x100009;
    } else {
        // A raster of no standard: unknown format and standard, the
        // picture itself as the totals.
        const double refresh = fps * (interlaced ? 2.0 : 1.0) + 0.5;
        set(0, 0, refresh > 0.0 && refresh < 1e6 ? static_cast<std::uint32_t>(refresh) : 0,
            static_cast<std::uint32_t>(v.width), static_cast<std::uint32_t>(v.height));
    }

    // One description per field, the first field in time first: readers
    // tell the field order from their start lines (0 for the upper field,
    // 1 for the lower). A progressive frame carried as two segments keeps
    // one field per frame and describes both segments.
    VideoProps.nbFieldPerFrame = interlaced ? 2 : 1;
    const std::uint32_t described = interlaced || segmented ? 2 : 1;
    const std::uint32_t height = static_cast<std::uint32_t>(v.height);
    VIDEO_FIELD_DESC fields[2] = {};
    for (std::uint32_t i = 0; i < described; ++i) {
        VIDEO_FIELD_DESC& f = fields[i];
        f.CompressedBMHeight = interlaced ? height / 2 : height;
        f.CompressedBMWidth = static_cast<std::uint32_t>(v.width);
        f.ValidBMHeight = f.CompressedBMHeight;
        f.ValidBMWidth = f.CompressedBMWidth;
        f.VideoYValidStartLine = (i == 0) == lowerFirst ? 1 : 0;
    }
    constexpr std::size_t kFixed = offsetof(AVIVIDEOPROPERTIES, CompressedBMHeight);
    VideoProps.cb = static_cast<std::uint32_t>(kFixed - 8 + described * sizeof(VIDEO_FIELD_DESC));
    if (!AppendToHeader(&VideoProps, kFixed) || !AppendToHeader(fields, described * sizeof(VIDEO_FIELD_DESC)))
        return 0;
    return kFixed + described * sizeof(VIDEO_FIELD_DESC);
}

std::uint16_t CStrl::GetLongsPerEntryForIndexType(std::uint8_t type)
{
    if (type == AVI_INDEX_SUB_DEFAULT)
        return 2;
    if (type == AVI_INDEX_IBP)
        return 6;
    MORVANE_ASSERT(FALSE);
    return 0;
}

void CStrl::set_MaxItemSize(std::uint64_t cb)
{
    m_cbMaxItemSize = std::max(m_cbMaxItemSize, cb);
}

std::uint32_t CStrl::get_MaxBufferSize() const
{
    if (m_cbFixedBufferSize)
        return m_cbFixedBufferSize;
    return static_cast<std::uint32_t>(m_cbMaxItemSize + 32);
}

std::uint64_t CStrl::get_SampleCountFromDataSize(std::uint64_t cbData) const
{
    if (m_Data.Type == StreamVideo)
        return 1;
    if (m_Data.Type == StreamAudio) {
        if (m_Data.Data.AInfo.blockAlign == 0) {
            MORVANE_ASSERT(FALSE);
            return 0;
        }
        MORVANE_ASSERT(cbData%m_Data.Data.AInfo.blockAlign == 0);
        return cbData / m_Data.Data.AInfo.blockAlign;
    }
    MORVANE_ASSERT(FALSE);
    return 1;
}

void CStrl::IncrementSamplesWritten(std::uint32_t n)
{
    m_dwSamplesInChunk += n;
    m_dwSamplesWritten += n;
}

HRESULT CStrl::IndexList_Add(std::uint64_t cbFilesize, const TrackData* pTrackData)
{
    if (!m_pParent || !pTrackData)
        return E_INVALIDARG;
    MORVANE_ASSERT(cbFilesize-m_pParent->m_cbTotalPrevRiffBytes < 0x7F000000);
    CIndexEntry entry = {};
    entry.offset = static_cast<std::uint32_t>(cbFilesize - m_pParent->m_cbOffset_MOVI_Size) - 4 -
                   static_cast<std::uint32_t>(m_pParent->m_cbTotalPrevRiffBytes);
    entry.sample = m_dwIndexListBase + static_cast<std::uint32_t>(m_IndexList.size());
    entry.realLocation = entry.sample;
    if (m_dwNextIndexRealLocation != kNoRealLocation) {
        entry.realLocation = m_dwNextIndexRealLocation;
        m_dwNextIndexRealLocation = kNoRealLocation;
    } else if (!m_IndexList.empty()) {
        entry.realLocation = m_IndexList.back().realLocation + 1;
    }
    entry.display =
        pTrackData->dwDisplayNumber != kDisplayNumberNotGiven ? pTrackData->dwDisplayNumber : entry.realLocation;
    entry.ckid = m_ChunkId;
    // Only intra frames are key frames in idx1 too.
    entry.flags = pTrackData->dwFrameType > 4 ? 0 : AVIIF_KEYFRAME;
    entry.size = pTrackData->cbData;
    entry.position = cbFilesize;
    entry.frameType = pTrackData->dwFrameType > 4 ? pTrackData->dwFrameType : 4;
    m_IndexList.push_back(entry);
    return S_OK;
}

void CStrl::IndexList_GetEntry(std::uint64_t nIndex, INDEXENTRY* pEntry) const
{
    if (!pEntry)
        return;
    MORVANE_ASSERT(nIndex < IndexList_Count());
    if (nIndex >= IndexList_Count()) {
        *pEntry = INDEXENTRY{};
        return;
    }
    const CIndexEntry& e = m_IndexList[nIndex];
    pEntry->dwChunkId = e.ckid;
    pEntry->dwFlags = e.flags;
    pEntry->dwOffset = e.offset;
    pEntry->dwSize = e.size;
}

void CStrl::IndexList_RemoveLast()
{
    if (!m_IndexList.empty())
        m_IndexList.pop_back();
}

void CStrl::IndexList_Reset()
{
    m_dwIndexListBase += static_cast<std::uint32_t>(m_IndexList.size());
    m_IndexList.clear();
}

bool CStrl::HaveAllFrames() const
{
    if (m_Data.Type != StreamVideo || m_IndexType != AVI_INDEX_IBP)
        return true;
    const std::uint32_t c = m_dwSamplesInChunk;
    if (c == 0) {
        MORVANE_ASSERT(FALSE);
        return false;
    }
    // The display numbers are compared as the host gives them with a count
    // inside the current RIFF.
    for (std::size_t i = c > 65 ? c - 65 : 0; i < m_IndexList.size(); ++i)
        if (m_IndexList[i].display == c - 1)
            return true;
    return false;
}

std::uint32_t CStrl::get_ApproxGopLen() const
{
    if (m_IndexList.empty())
        return 1;
    const std::size_t n = std::min<std::size_t>(m_IndexList.size(), 128);
    std::size_t last = 0, longest = 0;
    for (std::size_t i = 0; i < n; ++i) {
        if (m_IndexList[i].frameType != 4)
            continue;
        longest = std::max(longest, i - last);
        last = i;
    }
    return static_cast<std::uint32_t>(std::max<std::size_t>(longest, 1));
}

bool CStrl::Flush(std::uint32_t& suggested)
{
    MORVANE_ASSERT(m_cbOffset_STRH_Length > 0);
    MORVANE_ASSERT(m_cbOffset_STRH_SuggestedBufferSize > 0);
    if (!m_pParent)
        return false;
    suggested = static_cast<std::uint32_t>(m_pParent->roundUpToSectorBoundary(m_cbMaxItemSize + 8));
    suggested = std::max(suggested, m_cbFixedBufferSize);
    const std::uint32_t sizeImage = static_cast<std::uint32_t>(m_cbMaxItemSize);
    if (m_cbOffset_STRH_Length)
        m_pParent->PutHeader32(m_cbOffset_STRH_Length, m_dwSamplesWritten);
    if (m_cbOffset_STRH_SuggestedBufferSize)
        m_pParent->PutHeader32(m_cbOffset_STRH_SuggestedBufferSize, suggested);
    if (m_cbOffset_STRF_SizeImage)
        m_pParent->PutHeader32(m_cbOffset_STRF_SizeImage, sizeImage);
    bool changed = m_dwLastLength != m_dwSamplesWritten || m_dwLastSuggestedBufferSize != suggested ||
                   (m_cbOffset_STRF_SizeImage && m_dwLastSizeImage != sizeImage);
    m_dwLastLength = m_dwSamplesWritten;
    m_dwLastSuggestedBufferSize = suggested;
    if (m_cbOffset_STRF_SizeImage)
        m_dwLastSizeImage = sizeImage;
    return changed;
}

} // namespace Morvane::Avi
