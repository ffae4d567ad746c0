#include "FileFormats/AVI/avilib/avilib.FileReader.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Morvane::Avi {

namespace {

constexpr std::uint32_t kMaxFirstHeaderRead = 0x2FFFF;
// The most of one header chunk (strf, indx, ...) that is read.
constexpr std::uint64_t kMaxHeaderChunk = 16u << 20;

std::uint32_t word(const unsigned char* p)
{
    std::uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

} // namespace

FileReader::FileReader()
{
    std::memset(m_szLabel, 0, sizeof m_szLabel);
    std::strncpy(m_szLabel, "Pell::Avi::FileReader", sizeof m_szLabel - 1);
    std::memset(&m_AviHeader, 0, sizeof m_AviHeader);
    std::memset(&m_OpenDmlHeader, 0, sizeof m_OpenDmlHeader);
    std::memset(&m_VideoProperties, 0, sizeof m_VideoProperties);
    m_VideoFieldLayout = {};
    std::memset(&m_MT, 0, sizeof m_MT);
}

FileReader::~FileReader()
{
    freeStreams();
    freeMediaType();
    freeIndex();
    dropParsedIndexes();
}

void FileReader::freeStreams()
{
    if (!m_pAviStreams)
        return;
    unsigned n = m_AviHeader.dwStreams;
    for (unsigned i = 0; i < n; ++i)
        delete[] m_pAviStreams[i].m_pStreamFormatExtra;
    delete[] m_pAviStreams;
    m_pAviStreams = nullptr;
}

void FileReader::freeMediaType()
{
    delete[] m_MT.pbFormat;
    std::memset(&m_MT, 0, sizeof m_MT);
}

void FileReader::freeIndex()
{
    if (m_pIndex && m_Resident.stream >= 0) {
        m_Resident.entries = m_pIndex;
        m_Resident.audioStarts = std::move(m_AudioEntryStart);
        m_ParsedIndexes.push_back(std::move(m_Resident));
        // The least recently used go first; a few are kept whatever their size.
        std::uint64_t bytes = 0;
        for (const ParsedIndex& p : m_ParsedIndexes)
            bytes += parsedBytes(p);
        while (m_ParsedIndexes.size() > kParsedIndexSlots && bytes > kParsedIndexBytes) {
            bytes -= parsedBytes(m_ParsedIndexes.front());
            delete[] m_ParsedIndexes.front().entries;
            m_ParsedIndexes.erase(m_ParsedIndexes.begin());
        }
    } else {
        delete[] m_pIndex;
    }
    m_Resident = ParsedIndex();
    m_AudioEntryStart.clear();
    m_pIndex = nullptr;
    m_nIndexCount = 0;
}

void FileReader::dropParsedIndexes()
{
    for (ParsedIndex& p : m_ParsedIndexes)
        delete[] p.entries;
    m_ParsedIndexes.clear();
}

void FileReader::InitVariables()
{
    freeStreams();
    std::memset(&m_AviHeader, 0, sizeof m_AviHeader);
    std::memset(&m_OpenDmlHeader, 0, sizeof m_OpenDmlHeader);
    std::memset(&m_VideoProperties, 0, sizeof m_VideoProperties);
    m_VideoFieldLayout = {};
    m_InfoTimecode.clear();
    freeMediaType();
    m_dwIdx1Position = 0xFFFFFFFF;
    m_cbIdx1Size = 0;
    m_qwMoviPosition = 0;
    m_bFollowingRiff = false;
    m_WalkedRiffs.clear();
    m_qwWalkEnd = 0;
    m_dwWalkCutId = 0;
    m_qwAvihPosition = 0;
    m_qwDmlhPosition = 0;
    m_nHeaderStream = -1;
    m_qwStrlEnd = 0;
    m_FileIndex.clear();
    m_eFileIndexSource = IndexSource::none;
    m_bWarnedAudioAlign = false;
    m_qwBufferFilePosition = 0;
    m_nCurrentStream = -1;
    freeIndex();
    dropParsedIndexes();
    m_nMaxGopLength = 1;
    m_nIndexStartSample = 0;
    m_nResidentLength = 0;
    m_dwAudioBufferStart = 0;
    m_dwAudioBufferLength = 0;
    m_qwAudioCacheStart = 0;
    m_cbAudioCacheBytes = 0;
    m_bTemporalReordering = false;
}

HRESULT FileReader::load(const std::wstring& path)
{
    m_ReadAhead.clear();
    HRESULT hr = Pell::CFileReaderUnbuffered::load(path, iFile::eUnbuffered);
    if (FAILED(hr)) {
        setLastError(L"Failed to open file.");
        return hr;
    }
    m_ReadAhead.readNextInBackground(path, iFile::eUnbuffered);
    unsigned long fileSize = getSize();
    if (fileSize == 0) {
        MORVANE_ASSERT(FALSE);
        setLastError(L"Failed to open file, zero length.");
        return E_INVALID_STATE;
    }
    m_cbHeaderBufferSize =
        static_cast<std::uint32_t>(roundUpToSectorBoundary(std::min<unsigned long>(fileSize, kMaxFirstHeaderRead)));
    if (!m_HeaderBuffer.alloc(m_cbHeaderBufferSize + 2ul * getSectorSize())) {
        setLastError(L"Failed to allocate header buffer memory.");
        return E_OUTOFMEMORY;
    }
    hr = ReaderHeader();
    if (FAILED(hr))
        return hr;
    unsigned long at = m_HeaderBuffer.getOffset();
    unsigned long used = m_HeaderBuffer.getUsed();
    const unsigned char* front = m_HeaderBuffer.getBufferAtOffset();
    unsigned long have = used > at ? used - at : 0;
    if (!front || have < 12 || word(front) != ckid::RIFF || word(front + 8) != ckid::AVI) {
        setLastError(L"File is not an avi file.");
        return E_FAIL;
    }
    if (have < 24 || word(front + 20) != ckid::hdrl) {
        setLastError(L"Failed to find hdrl chunk.");
        return E_FAIL;
    }
    // The header walk reads on past the first buffer as far as the chunks
    // go (capture tools reserve hundreds of kB of JUNK in and after hdrl);
    // only a list that the file cannot hold is refused.
    if (word(front + 16) > fileSize - 20) {
        MORVANE_ASSERT(FALSE);
        setLastError(L"'hdrl' chunk is too large.");
        return E_FAIL;
    }
    hr = ParseChunkData();
    // Parsed: an open file keeps what the header said, not the header's
    // bytes (an editor keeps hundreds of files open).
    m_HeaderBuffer.reset();
    return hr;
}

HRESULT FileReader::ReaderHeader()
{
    if (!isOpen()) {
        setLastError(L"no file loaded.");
        return E_UNEXPECTED;
    }
    // Given back after the last parse: taken again for this one.
    if (m_HeaderBuffer.getCapacity() < m_cbHeaderBufferSize &&
        !m_HeaderBuffer.alloc(m_cbHeaderBufferSize + 2ul * getSectorSize())) {
        setLastError(L"Failed to allocate header buffer memory.");
        return E_OUTOFMEMORY;
    }
    HRESULT hr = seek(0, 0);
    unsigned int actual = 0;
    unsigned int offset = 0;
    if (SUCCEEDED(hr)) {
        m_HeaderBuffer.clear();
        hr = read(m_HeaderBuffer.getBuffer(0), static_cast<unsigned int>(m_HeaderBuffer.getCapacity()),
                  m_cbHeaderBufferSize, actual, offset);
    }
    if (FAILED(hr)) {
        setLastError(L"Failed to read header data.");
        return hr;
    }
    m_HeaderBuffer.setUsed(actual);
    if (offset < actual)
        m_HeaderBuffer.setOffset(offset);
    return S_OK;
}

bool FileReader::chunkAtCursor(Chunk& chunk) const
{
    unsigned long at = m_HeaderBuffer.getOffset();
    unsigned long used = m_HeaderBuffer.getUsed();
    if (at > used || used - at < sizeof(RIFFCHUNK))
        return false;
    const unsigned char* p = m_HeaderBuffer.getBuffer(at);
    chunk.id = word(p);
    chunk.size = word(p + 4);
    unsigned long room = used - at - sizeof(RIFFCHUNK);
    chunk.available = static_cast<std::uint32_t>(std::min<unsigned long>(chunk.size, room));
    chunk.data = m_HeaderBuffer.getBuffer(0) + at + sizeof(RIFFCHUNK);
    return true;
}

bool FileReader::refillHeaderBuffer(std::uint64_t at, std::uint64_t want)
{
    std::uint64_t fileSize = getSize();
    if (at >= fileSize)
        return false;
    const std::uint64_t slack = 2ull * getSectorSize();
    // Header chunks are small; a larger claim is read only as far as this.
    want = std::min<std::uint64_t>({std::max<std::uint64_t>(want, m_cbHeaderBufferSize), fileSize - at,
                                     kMaxHeaderChunk});
    if (m_HeaderBuffer.getCapacity() < want + slack && !m_HeaderBuffer.alloc(static_cast<unsigned long>(want + slack)))
        return false;
    m_HeaderBuffer.clear();
    unsigned int actual = 0;
    unsigned int offset = 0;
    HRESULT hr = seek(static_cast<unsigned long>(at), 0);
    if (SUCCEEDED(hr))
        hr = read(m_HeaderBuffer.getBuffer(0), static_cast<unsigned int>(m_HeaderBuffer.getCapacity()),
                  static_cast<unsigned int>(want), actual, offset);
    if (FAILED(hr) || offset >= actual)
        return false;
    m_HeaderBuffer.setUsed(actual);
    m_HeaderBuffer.setOffset(offset);
    m_qwBufferFilePosition = at - offset;
    return true;
}

bool FileReader::ensureChunkInBuffer(Chunk& c)
{
    std::uint64_t at = cursorPosition();
    std::uint64_t fileSize = getSize();
    std::uint64_t inFile = at + sizeof(RIFFCHUNK) < fileSize ? fileSize - at - sizeof(RIFFCHUNK) : 0;
    std::uint64_t wanted = std::min<std::uint64_t>({c.size, inFile, kMaxHeaderChunk});
    if (c.available >= wanted)
        return true;
    return refillHeaderBuffer(at, wanted + sizeof(RIFFCHUNK)) && chunkAtCursor(c);
}

bool FileReader::ChunkNext()
{
    Chunk c;
    if (!chunkAtCursor(c) && !(refillHeaderBuffer(cursorPosition(), sizeof(RIFFCHUNK)) && chunkAtCursor(c))) {
        MORVANE_ASSERT(false);
        return false;
    }
    std::uint64_t cursor = cursorPosition();
    std::uint64_t padded = std::uint64_t(c.size) + (c.size & 1) + 8;
    std::uint64_t step;
    if (c.id == ckid::RIFF || c.id == ckid::LIST) {
        // The first RIFF's size is stale in a file whose writer was cut
        // off: everything up to a following RIFF belongs to it.
        m_cbEndOfList = cursor == 0 && c.id == ckid::RIFF ? UINT64_MAX : cursor + padded;
        step = 12;
    } else {
        step = padded;
        std::uint64_t end = cursor + padded;
        if (m_cbEndOfChunk == m_cbEndOfList)
            m_cbEndOfList = end;
        m_cbEndOfChunk = end;
    }
    std::uint64_t next = std::min(cursor + step, m_cbEndOfList);
    // A list end behind the cursor would walk back over the same chunks.
    if (next <= cursor)
        next = cursor + step;
    if (next + sizeof(RIFFCHUNK) > getSize()) {
        MORVANE_ASSERT(false);
        return false;
    }
    std::uint64_t bufferEnd = m_qwBufferFilePosition + m_HeaderBuffer.getUsed();
    if (next >= m_qwBufferFilePosition && next + sizeof(RIFFCHUNK) <= bufferEnd)
        m_HeaderBuffer.setOffset(static_cast<unsigned long>(next - m_qwBufferFilePosition));
    else if (!refillHeaderBuffer(next, sizeof(RIFFCHUNK)))
        return false;
    return true;
}

HRESULT FileReader::ParseChunkData()
{
    InitVariables();
    m_cbEndOfList = 0;
    m_cbEndOfChunk = 0;
    for (;;) {
        bool stop = !ChunkNext();
        if (!stop) {
            HRESULT hr = dispatchChunk(stop);
            if (FAILED(hr))
                return hr;
        }
        if (stop) {
            prepareIndex();
            return S_OK;
        }
    }
}

namespace {

bool isInfoChunk(std::uint32_t id)
{
    static const std::uint32_t ids[] = {
        makeFourCC("INAM"), makeFourCC("strn"), makeFourCC("IART"), makeFourCC("ISFT"), makeFourCC("ISRC"),
        makeFourCC("IMED"), makeFourCC("ICRD"), makeFourCC("IPRD"), makeFourCC("ISRF"), makeFourCC("IENG"),
        makeFourCC("ITCH"), makeFourCC("ISBJ"), makeFourCC("IARL"), makeFourCC("ISHP"), makeFourCC("ICOP"),
        makeFourCC("ICRP"), makeFourCC("IGNR"), makeFourCC("ICMS"), makeFourCC("ILGT"), makeFourCC("IPLT"),
        makeFourCC("ICMT"), makeFourCC("IKEY"), makeFourCC("ISMP"),
        0x4D494400u, // 00 'D' 'I' 'M'
    };
    return std::find(std::begin(ids), std::end(ids), id) != std::end(ids);
}

} // namespace

// The one dispatch table of the header walk.
HRESULT FileReader::dispatchChunk(bool& stop)
{
    for (;;) {
        Chunk c;
        if (!chunkAtCursor(c)) {
            stop = true;
            return S_OK;
        }
        switch (c.id) {
        case ckid::avih:
        case ckid::strh:
        case ckid::strf:
        case ckid::dmlh:
        case ckid::vprp:
        case ckid::indx:
            // What the chunk holds must be in the buffer, however far it
            // lies from the front.
            if (!ensureChunkInBuffer(c)) {
                stop = true;
                return S_OK;
            }
            break;
        case ckid::LIST:
            if (c.available < 4 && (!refillHeaderBuffer(cursorPosition(), 12) || !chunkAtCursor(c))) {
                stop = true;
                return S_OK;
            }
            break;
        default:
            break;
        }
        switch (c.id) {
        case ckid::avih:
            m_qwAvihPosition = cursorPosition();
            return onAvih(c);
        case ckid::strh:
            return onStrh(c);
        case ckid::strf:
            return onStrf(c);
        case ckid::dmlh:
            m_qwDmlhPosition = cursorPosition();
            // A short dmlh (some writers leave only the total) still counts.
            if (c.size >= 4 && c.available >= 4) {
                std::memset(&m_OpenDmlHeader, 0, sizeof m_OpenDmlHeader);
                std::memcpy(&m_OpenDmlHeader, c.data - 8,
                            std::min<std::size_t>(sizeof m_OpenDmlHeader, c.available + 8u));
                if (m_OpenDmlHeader.fcc != ckid::dmlh)
                    std::memset(&m_OpenDmlHeader, 0, sizeof m_OpenDmlHeader);
            }
            return S_OK;
        case ckid::vprp:
            if (c.size >= 40 && c.available >= 40)
                std::memcpy(&m_VideoProperties, c.data - 8, sizeof m_VideoProperties);
            if (c.size >= 36 && c.available >= 36) {
                // Field descriptions of 32 bytes follow the 36 fixed ones;
                // only those wholly in the chunk count.
                constexpr std::size_t kFixed = 36, kField = 32, kStartLine = 28;
                const std::size_t whole = (std::min<std::size_t>(c.size, c.available) - kFixed) / kField;
                m_VideoFieldLayout = {};
                m_VideoFieldLayout.descriptions = static_cast<std::uint32_t>(std::min<std::size_t>(whole, 2));
                for (std::uint32_t i = 0; i < m_VideoFieldLayout.descriptions; ++i)
                    m_VideoFieldLayout.startLine[i] = word(c.data + kFixed + kField * i + kStartLine);
            }
            return S_OK;
        case ckid::RIFF:
            m_bFollowingRiff = true;
            stop = true;
            return S_OK;
        case ckid::LIST:
            if (word(c.data) == ckid::strl)
                m_qwStrlEnd = cursorPosition() + sizeof(RIFFCHUNK) + c.size;
            if (word(c.data) == ckid::movi) {
                m_qwMoviPosition = cursorPosition();
                if (!SkipMovi()) {
                    // Nothing readable after movi: the header is complete.
                    stop = true;
                    return S_OK;
                }
                continue; // dispatch on what follows movi
            }
            return S_OK; // descend
        case ckid::movi:
            MORVANE_ASSERT(FALSE);
            return S_OK;
        case ckid::indx:
            if (ValidStream(m_nHeaderStream)) {
                m_pAviStreams[m_nHeaderStream].m_qwIndxPosition = cursorPosition();
                m_pAviStreams[m_nHeaderStream].m_cbIndxSize = c.size;
            }
            ParseINDX();
            return S_OK;
        case ckid::idx1:
            m_dwIdx1Position = static_cast<std::uint32_t>(std::min<std::uint64_t>(cursorPosition(), 0xFFFFFFFEu));
            m_cbIdx1Size = c.size;
            stop = true;
            return S_OK;
        case ckid::JUNK:
            // Room left for an indx: in the strl, after its strf.
            if (ValidStream(m_nHeaderStream)) {
                AviStream& s = m_pAviStreams[m_nHeaderStream];
                std::uint64_t at = cursorPosition();
                if (s.bih.biSize != 0 && s.m_qwStrfJunkPosition == 0 && s.m_qwIndxPosition == 0 &&
                    at < m_qwStrlEnd && c.size <= m_qwStrlEnd - at - sizeof(RIFFCHUNK)) {
                    s.m_qwStrfJunkPosition = at;
                    s.m_cbStrfJunkSize = c.size;
                }
            }
            return S_OK;
        default:
            if (isInfoChunk(c.id))
                INFO_Extract(c.id, c.data, static_cast<int>(c.available));
            return S_OK;
        }
    }
}

HRESULT FileReader::onAvih(const Chunk& c)
{
    if (c.size < sizeof(AVIMAINHEADER) - 8 || c.available < sizeof(AVIMAINHEADER) - 8)
        return S_OK;
    freeStreams();
    std::memcpy(&m_AviHeader, c.data - 8, sizeof m_AviHeader);
    if (m_AviHeader.dwStreams == 0) {
        setLastError(L"No streams found in header.");
        InitVariables();
        return E_FAIL;
    }
    // Every stream needs at least a chunk header in the header buffer: a
    // larger count cannot come from this file.
    if (m_AviHeader.dwStreams > m_HeaderBuffer.getUsed() / sizeof(RIFFCHUNK))
        m_pAviStreams = nullptr;
    else
        m_pAviStreams = new (std::nothrow) AviStream[m_AviHeader.dwStreams]();
    if (!m_pAviStreams) {
        setLastError(L"Failed to allocate stream array memory.");
        InitVariables();
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT FileReader::onStrh(const Chunk& c)
{
    if (!m_pAviStreams) {
        setLastError(L"Stream array is null.");
        InitVariables();
        return E_FAIL;
    }
    unsigned n = m_AviHeader.dwStreams;
    unsigned i = 0;
    while (i < n && m_pAviStreams[i].strh.fccType != 0)
        ++i;
    if (i == n)
        return S_OK;
    // Older writers leave rcFrame out: 48 bytes carry every field read.
    constexpr std::uint32_t kShortStrh = 48;
    if (c.size < kShortStrh || c.available < kShortStrh)
        return S_OK;
    AVISTREAMHEADER& h = m_pAviStreams[i].strh;
    m_nHeaderStream = static_cast<int>(i);
    m_pAviStreams[i].m_qwStrhPosition = cursorPosition();
    std::memset(&h, 0, sizeof h);
    std::memcpy(&h, c.data - 8, std::min<std::size_t>(sizeof h, c.available + 8u));
    // A record with no type would be taken as free again.
    if (h.fccType == 0)
        std::memset(&h, 0, sizeof h);
    return S_OK;
}

HRESULT FileReader::onStrf(const Chunk& c)
{
    if (!m_pAviStreams) {
        setLastError(L"Stream array is null2.");
        InitVariables();
        return E_FAIL;
    }
    unsigned n = m_AviHeader.dwStreams;
    unsigned i = 0;
    while (i < n && m_pAviStreams[i].bih.biSize != 0)
        ++i;
    if (i == n)
        return S_OK;
    std::uint32_t type = m_pAviStreams[i].strh.fccType;
    if (type == streamtype::auds)
        return onStrfAudio(i, c);
    if (type == streamtype::vids) {
        onStrfVideo(i, c);
        return S_OK;
    }
    if (type == streamtype::iavs) {
        setLastError(L"type 1 AVI unsupported.");
        InitVariables();
        return E_NOT_SUPPORTED;
    }
    return S_OK;
}

bool FileReader::setStreamExtra(unsigned int nStreamIndex, const unsigned char* p, std::uint32_t n)
{
    AviStream& s = m_pAviStreams[nStreamIndex];
    MORVANE_ASSERT(! m_pAviStreams[nStreamIndex].m_pStreamFormatExtra);
    delete[] s.m_pStreamFormatExtra;
    s.m_pStreamFormatExtra = new (std::nothrow) unsigned char[n];
    if (!s.m_pStreamFormatExtra) {
        s.m_cbStreamFormatExtra = 0;
        return false;
    }
    std::memcpy(s.m_pStreamFormatExtra, p, n);
    s.m_cbStreamFormatExtra = n;
    return true;
}

HRESULT FileReader::onStrfAudio(unsigned int stream, const Chunk& c)
{
    AviStream& s = m_pAviStreams[stream];
    if (c.size < sizeof(WAVEFORMAT) || c.available < sizeof(WAVEFORMAT)) {
        MORVANE_ASSERT(FALSE);
        setLastError(L"Invalid size for wav format data.");
        InitVariables();
        return E_FAIL;
    }
    if (c.size < sizeof(WAVEFORMATEX)) {
        WAVEFORMAT wf;
        std::memcpy(&wf, c.data, sizeof wf);
        if (wf.nChannels == 0) {
            setLastError(L"Invalid wav format data: no channels.");
            InitVariables();
            return E_FAIL;
        }
        std::memset(&s.wfx, 0, sizeof s.wfx);
        std::memcpy(&s.wfx, &wf, sizeof wf);
        // The chunk's own wBitsPerSample (16-byte form) is not trusted.
        s.wfx.wBitsPerSample = static_cast<std::uint16_t>(wf.nBlockAlign / wf.nChannels * 8);
    } else {
        // A chunk cut short by the end of the file holds less than its size
        // says: only the bytes in the buffer are taken, the rest stays zero.
        std::uint32_t held = c.available;
        std::memset(&s.wfx, 0, sizeof s.wfx);
        std::memcpy(&s.wfx, c.data, std::min<std::uint32_t>(held, sizeof(WAVEFORMATEX)));
        // The extension travels as extra data.
        if (held > sizeof(WAVEFORMATEX))
            setStreamExtra(stream, c.data + sizeof(WAVEFORMATEX), held - std::uint32_t(sizeof(WAVEFORMATEX)));
    }
    s.bih.biSize = 1;
    return S_OK;
}

void FileReader::onStrfVideo(unsigned int stream, const Chunk& c)
{
    AviStream& s = m_pAviStreams[stream];
    if (c.size < sizeof(BITMAPINFOHEADER) || c.available < sizeof(BITMAPINFOHEADER))
        return;
    std::memcpy(&s.bih, c.data, sizeof(BITMAPINFOHEADER));
    std::uint32_t extra = s.bih.biSize - std::uint32_t(sizeof(BITMAPINFOHEADER));
    if (extra != 0 && c.available - sizeof(BITMAPINFOHEADER) >= extra)
        setStreamExtra(stream, c.data + sizeof(BITMAPINFOHEADER), extra);

    std::uint32_t code = s.bih.biCompression;
    if (code == makeFourCC("MMES") || code == makeFourCC("mmes") || code == makeFourCC("M701"))
        STRF_MakeTypeMMES(stream);
    else if (code == makeFourCC("mjpg") || code == makeFourCC("MJPG"))
        STRF_MakeTypeMJPEG(stream, c.data);
    else if (code == makeFourCC("dvsd") || code == makeFourCC("dsvd"))
        STRF_MakeTypeDV(stream, MEDIASUBTYPE_dvsd);
    else if (code == makeFourCC("dv25"))
        STRF_MakeTypeDV(stream, MEDIASUBTYPE_dv25);
    else if (code == makeFourCC("dv50"))
        STRF_MakeTypeDV(stream, MEDIASUBTYPE_dv50);
    else if (code == makeFourCC("UYVY"))
        makeTypeUncompressed(stream, MEDIASUBTYPE_UYVY, false);
    else if (code == makeFourCC("YUY2"))
        makeTypeUncompressed(stream, MEDIASUBTYPE_YUY2, false);
    else if (code == makeFourCC("M102"))
        makeTypeUncompressed(stream, MEDIASUBTYPE_YUY2, true);
    else
        makeTypeUncompressed(stream, fourccGuid(code), false);
}

bool FileReader::SkipMovi()
{
    Chunk c;
    if (!chunkAtCursor(c))
        return false;
    std::uint64_t target = std::uint64_t(c.size) + (c.size & 1) + 8 + cursorPosition();
    if (target >= getSize())
        return false;
    if (!refillHeaderBuffer(target, m_cbHeaderBufferSize)) {
        setLastError(L"Failed to read after movi data.");
        return false;
    }
    return true;
}

void FileReader::INFO_Extract(unsigned int fourcc, unsigned char* data, int size)
{
    if (fourcc != makeFourCC("ISMP") || !data || size <= 0)
        return;
    // A label is a dozen characters; anything far longer is not one.
    const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(size), 32);
    std::string text(reinterpret_cast<const char*>(data), n);
    text = text.substr(0, text.find('\0'));
    while (!text.empty() && (text.back() == ' ' || text.back() == '\r' || text.back() == '\n'))
        text.pop_back();
    m_InfoTimecode = text;
}

int FileReader::GetStreamIndexFromChunkId(unsigned int ckid)
{
    char text[5];
    std::snprintf(text, sizeof text, "%c%c%c%c", ckid & 0xFF, (ckid >> 8) & 0xFF, (ckid >> 16) & 0xFF,
                  (ckid >> 24) & 0xFF);
    int nStream = std::atoi(text);
    MORVANE_ASSERT(nStream >= 0);
    MORVANE_ASSERT(nStream < (int) m_AviHeader.dwStreams);
    return nStream;
}

HRESULT FileReader::updateMetadata()
{
    int current = m_nCurrentStream;
    m_ReadAhead.clear(); // the file may have grown since the window was read
    HRESULT hr = ReaderHeader();
    if (SUCCEEDED(hr))
        hr = ParseChunkData();
    m_HeaderBuffer.reset();
    if (FAILED(hr))
        return hr;
    if (ValidStream(current))
        hr = essenceOpen(static_cast<unsigned int>(current));
    return hr;
}

} // namespace Morvane::Avi
