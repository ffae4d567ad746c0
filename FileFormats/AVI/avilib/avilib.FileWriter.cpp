#include "FileFormats/AVI/avilib/avilib.FileWriter.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cmath>
#include <cstring>
#include <new>

#include "FileFormats/AVI/avilib/avilib.AutoUpdateSize.h"
#include "FileFormats/AVI/avilib/avilib.Records.h"
#include "FileFormats/AVI/avilib/avilib.WriterBytes.h"
#include "util/pellistimecode.h"
#include "util/stringUtils.h"

namespace Morvane::Avi {

namespace {

constexpr std::uint32_t kMaxTotalExtraData = 4096;
constexpr std::uint32_t kHeaderBytesPerStream = 4096 * 21;

constexpr std::uint32_t kAvihFlagsOneStream = 0x10030;    // HASINDEX, MUSTUSEINDEX, WASCAPTUREFILE
constexpr std::uint32_t kAvihFlagsInterleaved = 0x10130; // the same plus ISINTERLEAVED

} // namespace

FileWriter::FileWriter() : m_dwFlushFrequency(0), m_pTracks(nullptr), m_pCurMovi(nullptr)
{
    m_dwMaxFrames = 2000000;
    m_dwMaxIndexEntries = 8188;
    InitVariables();
}

FileWriter::~FileWriter()
{
    close();
}

void FileWriter::InitVariables()
{
    m_dwFramesSinceFlush = 0;
    m_pTracks = nullptr;
    m_dwStartTimecode = 0;
    m_bHasStartTimecode = false;
    m_bDropFrame = false;
    m_dwRIFF_Chunk_Index = 0;
    m_bLegacyIndexWritten = false;
    m_pCurMovi = nullptr;
    m_cbRiffSize = 0;
    m_cbMoviSize = 0;
    m_cbTotalPrevRiffBytes = 0;
    m_cbCurRiffOffset = 0;
    m_cbOffset_AVIH_TotalFrames = 0;
    m_cbOffset_AVIH_MaxBytesPerSec = 0;
    m_cbOffset_AVIH_SuggestedBufferSize = 0;
    m_cbOffset_DMLH_TotalFrames = 0;
    m_cbOffset_MOVI_Size = 0;
    m_cbMoviJunk = 0;
    m_HeaderImage = DiskImage();
    m_HeadImage = DiskImage();
}

double FileWriter::VideoFramesPerSecond() const
{
    if (!m_pTracks || m_pTracks[0].Data.VInfo.scale == 0)
        return 0.0;
    return static_cast<double>(m_pTracks[0].Data.VInfo.rate) / static_cast<double>(m_pTracks[0].Data.VInfo.scale);
}

void FileWriter::FreeTracks()
{
    if (m_pTracks) {
        for (std::size_t i = 0; i < m_Trackmapping.size(); ++i)
            delete[] m_pTracks[i].pExtraData;
        delete[] m_pTracks;
    }
    m_pTracks = nullptr;
    m_Trackmapping.clear();
}

HRESULT FileWriter::create(const std::wstring& path, TrackStructuralData* pTracks, std::uint16_t nTracks)
{
    close();
    if (nTracks == 0 || !pTracks)
        return E_INVALIDARG;

    HRESULT hr = CFileWriterUnbuffered::create(path, iFile::eUnbuffered);
    if (FAILED(hr))
        return hr;

    for (std::uint16_t i = 0; i < nTracks; ++i) {
        if (pTracks[i].Type != StreamVideo)
            continue;
        const VideoTrackInfo& v = pTracks[i].Data.VInfo;
        // A rate of 0 or a scale of 0 would make every derived value meaningless.
        if (v.rate == 0 || v.scale == 0) {
            setLastError(L"Cannot create file with a video frame rate of zero.");
            return E_INVALIDARG;
        }
        double frames = static_cast<double>(v.rate) / static_cast<double>(v.scale) * 86400.0;
        m_dwMaxFrames = frames >= 4294967295.0 ? 0xFFFFFFFFu : static_cast<std::uint32_t>(frames);
        m_Trackmapping.push_back(i);
        break;
    }
    if (m_Trackmapping.empty()) {
        setLastError(L"Cannot create file with no video track.");
        MORVANE_ASSERT(FALSE);
        return E_INVALIDARG;
    }
    for (std::uint16_t i = 0; i < nTracks; ++i) {
        const AudioTrackInfo& a = pTracks[i].Data.AInfo;
        // Audio is counted in blocks, and a format without channels is refused by every reader.
        if (pTracks[i].Type == StreamAudio && (a.channels == 0 || a.blockAlign == 0)) {
            close();
            setLastError(L"Cannot create file with an audio track of no channels or no block alignment.");
            return E_INVALIDARG;
        }
        if (pTracks[i].Type == StreamAudio)
            m_Trackmapping.push_back(i);
        else if (pTracks[i].Type == StreamTimecode && (pTracks[i].Data.TCInfo.flags & kTimecodeGiven)) {
            m_bHasStartTimecode = true;
            m_bDropFrame = (pTracks[i].Data.TCInfo.flags & kTimecodeDropFrame) != 0;
            m_dwStartTimecode = pTracks[i].Data.TCInfo.startFrame;
        }
    }

    const std::size_t nStreams = m_Trackmapping.size();
    m_pTracks = new (std::nothrow) TrackStructuralData[nStreams]();
    if (!m_pTracks) {
        m_Trackmapping.clear();
        return E_OUTOFMEMORY;
    }
    std::uint64_t cbExtraTotal = 0;
    for (std::size_t k = 0; k < nStreams; ++k) {
        const TrackStructuralData& src = pTracks[m_Trackmapping[k]];
        m_pTracks[k] = src;
        m_pTracks[k].pExtraData = nullptr;
        if (src.cbExtra && src.pExtraData) {
            m_pTracks[k].pExtraData = new (std::nothrow) unsigned char[src.cbExtra];
            if (!m_pTracks[k].pExtraData) {
                m_pTracks[k].cbExtra = 0;
                return E_OUTOFMEMORY;
            }
            std::memcpy(m_pTracks[k].pExtraData, src.pExtraData, src.cbExtra);
        } else {
            // The strf builder trusts cbExtra only together with the bytes.
            m_pTracks[k].cbExtra = 0;
        }
        cbExtraTotal += m_pTracks[k].cbExtra;
    }
    if (cbExtraTotal > kMaxTotalExtraData) {
        close();
        return E_FAIL;
    }

    const std::uint32_t S = sectorSize();
    const std::uint64_t capacity =
        roundUpToSectorBoundary(static_cast<std::uint64_t>(kHeaderBytesPerStream) * nStreams + 4096) + S;
    if (!m_HeaderBuffer.alloc(capacity))
        return E_OUTOFMEMORY;
    m_HeaderBuffer.flush(0);

    RIFFLIST riff = {ckid::RIFF, 0, ckid::AVI};
    AppendToHeader(&riff, sizeof(riff));
    hr = S_OK;
    std::uint64_t cbHeader;
    {
        AutoUpdateChunkSize riffSize(m_HeaderBuffer.getBuffer(4), 12);

        std::uint64_t cb = Header_CreateChunk_hdrl();
        riffSize += cb;
        if (cb == 0)
            hr = E_FAIL;
        if (SUCCEEDED(hr)) {
            cb = Header_CreateChunk_INFO();
            riffSize += cb;
            if (cb == 0)
                hr = E_FAIL;
        }
        if (SUCCEEDED(hr)) {
            std::uint64_t r = S ? riffSize.get() % S : 0;
            if (r != 0) {
                std::uint64_t cbJunk = S - r;
                // A JUNK chunk needs room for its header and 4 bytes.
                if (cbJunk < 12)
                    cbJunk += S;
                RIFFCHUNK junk = {ckid::JUNK, static_cast<std::uint32_t>(cbJunk - 8)};
                if (cbJunk > m_HeaderBuffer.getCapacity() - m_HeaderBuffer.getUsed()) {
                    hr = E_FAIL;
                } else {
                    AppendToHeader(&junk, sizeof(junk));
                    riffSize += cbJunk;
                }
            }
            std::uint64_t RiffChunkSize = riffSize.get();
            MORVANE_ASSERT(RiffChunkSize % sectorSize() == 0);
        }
        cbHeader = riffSize.get();
        if (SUCCEEDED(hr)) {
            m_HeaderBuffer.setUsed(cbHeader);
            m_cbRiffSize = static_cast<std::uint32_t>(cbHeader - 8);
            if (cbHeader + nStreams * CStrl::m_cbIXChunkSize + 12 > m_HeaderBuffer.getCapacity()) {
                hr = E_FAIL;
            } else {
                m_pCurMovi = &m_HeaderBuffer;
                MORVANE_ASSERT(m_Trackmapping.size() == m_StrlChunks.size());
            }
        }
    }
    if (FAILED(hr))
        close();
    return hr;
}

bool FileWriter::AppendToHeader(const void* p, std::uint64_t n)
{
    if (n > m_HeaderBuffer.getCapacity() - m_HeaderBuffer.getUsed())
        return false;
    unsigned char* end = m_HeaderBuffer.getBuffer(m_HeaderBuffer.getUsed());
    if (!end)
        return false;
    std::memcpy(end, p, n);
    return m_HeaderBuffer.setUsed(m_HeaderBuffer.getUsed() + n);
}

void FileWriter::PutHeader32(std::uint64_t offset, std::uint32_t value)
{
    if (offset + 4 <= m_HeaderBuffer.getCapacity())
        bytes::put32(m_HeaderBuffer.getBuffer(offset), value);
}

std::uint64_t FileWriter::Header_CreateChunk_hdrl()
{
    RIFFLIST list = {ckid::LIST, 0, ckid::hdrl};
    std::uint64_t start = m_HeaderBuffer.getUsed();
    if (!AppendToHeader(&list, sizeof(list)))
        return 0;
    AutoUpdateChunkSize listSize(m_HeaderBuffer.getBuffer(start + 4), 12);

    std::uint64_t cb = Header_CreateChunk_avih();
    if (cb == 0) {
        MORVANE_ASSERT(FALSE);
        return 0;
    }
    listSize += cb;
    MORVANE_ASSERT(m_StrlChunks.empty());
    for (std::size_t k = 0; k < m_Trackmapping.size(); ++k) {
        if (m_pTracks[k].Type == StreamTimecode)
            continue;
        CStrl strl(this);
        cb = strl.Create(static_cast<int>(k), &m_pTracks[k]);
        if (cb == 0) {
            MORVANE_ASSERT(FALSE);
            return 0;
        }
        listSize += cb;
        m_StrlChunks.push_back(strl);
    }
    cb = Header_CreateChunk_odml();
    if (cb == 0) {
        MORVANE_ASSERT(FALSE);
        return 0;
    }
    listSize += cb;
    return listSize.get();
}

std::uint64_t FileWriter::Header_CreateChunk_avih()
{
    const VideoTrackInfo& v = m_pTracks[0].Data.VInfo;
    AVIMAINHEADER avih = {};
    avih.fcc = ckid::avih;
    avih.cb = sizeof(AVIMAINHEADER) - 8;
    double fps = VideoFramesPerSecond();
    // A rate of a frame every hour and more still fits: clamp, never convert out of range.
    double microSeconds = fps > 0.0 ? 1000000.0 / fps : 0.0;
    avih.dwMicroSecPerFrame =
        microSeconds >= 4294967295.0 ? 0xFFFFFFFFu : static_cast<std::uint32_t>(microSeconds);
    avih.dwMaxBytesPerSec = 0;
    avih.dwPaddingGranularity = sectorSize();
    avih.dwFlags = m_Trackmapping.size() > 1 ? kAvihFlagsInterleaved : kAvihFlagsOneStream;
    avih.dwTotalFrames = 0;
    avih.dwInitialFrames = 0;
    avih.dwStreams = static_cast<std::uint32_t>(m_Trackmapping.size());
    avih.dwSuggestedBufferSize = 0;
    avih.dwWidth = static_cast<std::uint32_t>(v.width);
    avih.dwHeight = static_cast<std::uint32_t>(v.height);

    std::uint64_t start = m_HeaderBuffer.getUsed();
    if (!AppendToHeader(&avih, sizeof(avih)))
        return 0;
    m_cbOffset_AVIH_TotalFrames = static_cast<std::uint32_t>(start + offsetof(AVIMAINHEADER, dwTotalFrames));
    m_cbOffset_AVIH_MaxBytesPerSec = static_cast<std::uint32_t>(start + offsetof(AVIMAINHEADER, dwMaxBytesPerSec));
    m_cbOffset_AVIH_SuggestedBufferSize =
        static_cast<std::uint32_t>(start + offsetof(AVIMAINHEADER, dwSuggestedBufferSize));
    return sizeof(avih);
}

std::uint64_t FileWriter::Header_CreateChunk_odml()
{
    RIFFLIST list = {ckid::LIST, 4 + sizeof(AVIEXTHEADER), ckid::odml};
    AVIEXTHEADER dmlh = {};
    dmlh.fcc = ckid::dmlh;
    dmlh.cb = sizeof(AVIEXTHEADER) - 8;
    dmlh.dwTotalFrames = 0;
    std::uint64_t start = m_HeaderBuffer.getUsed();
    if (sizeof(list) + sizeof(dmlh) > m_HeaderBuffer.getCapacity() - start)
        return 0;
    AppendToHeader(&list, sizeof(list));
    AppendToHeader(&dmlh, sizeof(dmlh));
    m_cbOffset_DMLH_TotalFrames = static_cast<std::uint32_t>(start + sizeof(list) + 8);
    return sizeof(list) + sizeof(dmlh);
}

std::uint64_t FileWriter::Header_CreateChunk_INFO()
{
    RIFFLIST list = {ckid::LIST, 0, ckid::INFO};
    std::uint64_t start = m_HeaderBuffer.getUsed();
    if (!AppendToHeader(&list, sizeof(list)))
        return 0;
    AutoUpdateChunkSize listSize(m_HeaderBuffer.getBuffer(start + 4), 12);
    std::uint64_t cb = Header_CreateChunk_ISFT();
    if (cb == 0) {
        MORVANE_ASSERT(FALSE);
        return listSize.get();
    }
    listSize += cb;
    // A start timecode is only written when the editor gave one: any text
    // here is taken by every reader as the first frame's label.
    if (!m_bHasStartTimecode)
        return listSize.get();
    cb = Header_CreateChunk_ISMP();
    if (cb == 0) {
        MORVANE_ASSERT(FALSE);
        return listSize.get();
    }
    listSize += cb;
    return listSize.get();
}

std::uint32_t FileWriter::Header_CreateChunk_ISXX(std::uint32_t fourcc, const char* text)
{
    if (!text)
        return 0;
    std::uint32_t cbInfoLen = static_cast<std::uint32_t>(std::strlen(text) + 1);
    // Only reported: the texts are chosen so that no pad byte is needed.
    MORVANE_ASSERT(cbInfoLen % 2 == 0);
    RIFFCHUNK ck = {fourcc, cbInfoLen};
    if (sizeof(ck) + cbInfoLen > m_HeaderBuffer.getCapacity() - m_HeaderBuffer.getUsed())
        return 0;
    AppendToHeader(&ck, sizeof(ck));
    AppendToHeader(text, cbInfoLen);
    return cbInfoLen + 8;
}

std::uint64_t FileWriter::Header_CreateChunk_ISFT()
{
    return Header_CreateChunk_ISXX(makeFourCC("ISFT"), "Morvane AVI v3.0.0.0 ");
}

std::uint64_t FileWriter::Header_CreateChunk_ISMP()
{
    const double fps = VideoFramesPerSecond();
    Morvane::CTimeCodeEx tc(fps, m_dwStartTimecode);
    // Drop frame exists only at the 1000/1001 rates of 30 and 60.
    const bool dropRate = std::fabs(fps * 1.001 / 30.0 - 1.0) < 1e-4 || std::fabs(fps * 1.001 / 60.0 - 1.0) < 1e-4;
    tc.setDropFrame(m_bDropFrame && dropRate);
    unsigned h = 0, m = 0, s = 0, f = 0;
    if (!tc.toHHMMSSFF(h, m, s, f, true))
        return 0;
    // The label as ffmpeg and mediainfo show it: ';' before the frames
    // marks drop frame.
    char text[32];
    std::snprintf(text, sizeof(text), "%02u:%02u:%02u%c%02u", h % 100, m % 100, s % 100, tc.isDropFrame() ? ';' : ':',
                  f % 100);
    return Header_CreateChunk_ISXX(makeFourCC("ISMP"), text);
}

HRESULT FileWriter::WriteAtOffset(std::uint64_t dwOffset, unsigned char* pBuffer, std::uint64_t cbSize)
{
    MORVANE_ASSERT(dwOffset % sectorSize() == 0);
    if (!pBuffer || cbSize > 0xFFFFFFFFu)
        return E_INVALIDARG;
    unsigned long previous = 0;
    HRESULT hr = seek(dwOffset, &previous, 0);
    if (FAILED(hr))
        return hr;
    unsigned int written = 0;
    hr = write(pBuffer, static_cast<unsigned int>(cbSize), written);
    if (FAILED(hr))
        MORVANE_ASSERT(FALSE);
    // Back to where the caller was; that position need not be on a sector.
    CDiskFile::seek(previous, 0);
    return hr;
}

HRESULT FileWriter::WriteHeader()
{
    return WriteHeadBytes(m_HeaderBuffer, 0, m_HeaderBuffer.getUsed(), false);
}

void FileWriter::CoverStrayBytes()
{
    const std::uint64_t end = RiffEnd();
    const std::uint64_t size = getSize();
    const std::uint32_t S = sectorSize();
    if (size <= end || S < 8)
        return;
    const std::uint64_t n = roundUpToSectorBoundary(size - end);
    if (static_cast<std::uint64_t>(m_cbRiffSize) + n > 0xFFFFFFFFu)
        return;
    Morvane::CByteBuffer sector;
    if (!sector.alloc(S))
        return;
    sector.flush(0);
    // The JUNK's last sector is written too, so that the file holds all of it.
    if (n > S && FAILED(WriteAtOffset(end + n - S, sector.getBuffer(0), S)))
        return;
    bytes::put32(sector.getBuffer(0), ckid::JUNK);
    bytes::put32(sector.getBuffer(4), static_cast<std::uint32_t>(n - 8));
    if (SUCCEEDED(WriteAtOffset(end, sector.getBuffer(0), S)))
        m_cbRiffSize += static_cast<std::uint32_t>(n);
}

void FileWriter::close()
{
    finish();
}

HRESULT FileWriter::finish()
{
    HRESULT hr = S_OK;
    if (isOpen() && !m_StrlChunks.empty() && m_StrlChunks[0].m_dwSamplesWritten > 0) {
        setLastError(L"");
        hr = WriteIndexTable(false);
        const HRESULT legacy = WriteLegacyIndexTable();
        if (SUCCEEDED(hr))
            hr = legacy;
        CoverStrayBytes();
        const HRESULT flushed = Flush();
        if (SUCCEEDED(hr))
            hr = flushed;
        if (FAILED(hr) && getLastError().empty())
            setLastError(Morvane::format(L"Failed to write the indexes at close, error 0x%08X.",
                                         static_cast<unsigned>(hr)));
        // A file that closed must survive a power cut.
        const HRESULT synced = sync();
        if (SUCCEEDED(hr))
            hr = synced;
    }
    bool noFrames = m_StrlChunks.empty() || m_StrlChunks[0].m_dwSamplesWritten == 0;
    FreeTracks();
    std::wstring name = getFilename();
    Pell::CDiskFile::close();
    // An empty take leaves no file behind.
    if (!name.empty() && noFrames)
        Pell::CDiskFile::remove(name);
    if (m_pCurMovi && m_pCurMovi != &m_HeaderBuffer)
        delete m_pCurMovi;
    m_pCurMovi = nullptr;
    m_StrlChunks.clear();
    InitVariables();
    return hr;
}

void FileWriter::set_NextIndexRealLocation(std::uint32_t n)
{
    for (CStrl& strl : m_StrlChunks)
        if (strl.get_Type() == StreamVideo)
            strl.set_NextIndexRealLocation(n);
}

void FileWriter::set_FindIBPIndexRealLocation(bool b)
{
    for (CStrl& strl : m_StrlChunks)
        if (strl.get_Type() == StreamVideo)
            strl.set_FindIBPIndexRealLocation(b);
}

} // namespace Morvane::Avi
