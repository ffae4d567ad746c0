// Index loading: the legacy idx1 of a whole stream, or one OpenDML
// standard index chunk at a time through the stream's super index.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"

namespace Morvane::Avi {

namespace {

// Largest sample a standard index may name: anything bigger is corruption.
constexpr std::uint32_t kMaxIndexEntrySize = 0x1000000;

// base + delta, or the largest offset when the sum would wrap: a wrapped
// offset would name other bytes of the file instead of none.
std::uint64_t offsetFrom(std::uint64_t base, std::uint64_t delta)
{
    return base > UINT64_MAX - delta ? UINT64_MAX : base + delta;
}

template <class T>
T fromBytes(const unsigned char* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

} // namespace

bool FileReader::ParseINDX()
{
    Chunk c;
    if (!chunkAtCursor(c))
        return false;
    m_cbEndOfChunk = m_HeaderBuffer.getOffset() + std::uint64_t(c.size) + (c.size & 1);

    constexpr std::uint32_t kHead = sizeof(AVISUPERINDEX) - sizeof(RIFFCHUNK);
    if (c.size < 48 || c.available < kHead) {
        setLastError(L"INDX chunk size was invalid.");
        return false;
    }
    AVISUPERINDEX si;
    std::memcpy(&si, c.data - sizeof(RIFFCHUNK), sizeof si);
    if (std::uint64_t(c.size) < std::uint64_t(si.wLongsPerEntry) * si.nEntriesInUse + 48) {
        setLastError(L"INDX chunk size was invalid2.");
        return false;
    }
    if (si.wLongsPerEntry != 4) {
        setLastError(L"INDX chunk wLongsPerEntry was not 4.");
        return false;
    }
    if (si.bIndexType != AVI_INDEX_OF_INDEXES) {
        setLastError(L"INDX chunk bIndexSubType was not zero which is not supported.");
        return false;
    }
    int stream = GetStreamIndexFromChunkId(si.dwChunkId);
    if (!ValidStream(stream)) {
        setLastError(L"INDX chunk referenced invalid stream index.");
        return false;
    }
    AviStream& s = m_pAviStreams[stream];
    s.m_bTwoField = si.bIndexSubType == AVI_INDEX_2FIELD;
    if (si.bIndexSubType >= 2 && si.bIndexSubType != AVI_INDEX_IBP) {
        setLastError(L"INDX chunk bIndexSubType was not a supported value.");
        return false;
    }
    if (!s.m_SuperIndex.empty()) {
        setLastError(L"INDX chunk already allocated.");
        return false;
    }
    // The entries must really be there, whatever the size test allowed.
    std::uint32_t room = c.available - kHead;
    if (si.nEntriesInUse > room / sizeof(AVISUPERINDEX_ENTRY)) {
        setLastError(L"INDX chunk size was invalid2.");
        return false;
    }
    s.m_dwSuperIndexChunkId = si.dwChunkId;
    s.m_bIndexSubType = si.bIndexSubType;
    s.m_nSuperIndexEntriesInUse = si.nEntriesInUse;
    s.m_SuperIndex.reserve(si.nEntriesInUse);
    for (std::uint32_t i = 0; i < si.nEntriesInUse; ++i)
        s.m_SuperIndex.push_back(fromBytes<AVISUPERINDEX_ENTRY>(c.data + kHead + i * sizeof(AVISUPERINDEX_ENTRY)));
    return true;
}

unsigned int FileReader::blockAlignOf(int stream) const
{
    return ValidStream(stream) ? m_pAviStreams[stream].wfx.nBlockAlign : 0;
}

bool FileReader::LoadIDX1(int stream)
{
    if (ValidStream(stream) && m_dwIdx1Position != 0xFFFFFFFF && residentFromParsed(stream, kIdx1Chunk))
        return true;
    freeIndex();
    if (!ValidStream(stream) || m_dwIdx1Position == 0xFFFFFFFF)
        return false;
    HRESULT hr = seek(m_dwIdx1Position, 0);
    if (FAILED(hr)) {
        setLastError(L"Failed to seek to idx1 offset.");
        return false;
    }
    // Never more than the file holds after the chunk header.
    std::uint64_t fileSize = getSize();
    std::uint64_t after = fileSize > std::uint64_t(m_dwIdx1Position) + 8 ? fileSize - m_dwIdx1Position - 8 : 0;
    std::uint32_t size = static_cast<std::uint32_t>(std::min<std::uint64_t>(m_cbIdx1Size, after));
    std::uint64_t want = std::uint64_t(size) + sizeof(RIFFCHUNK);
    CByteBuffer buf;
    if (!buf.alloc(static_cast<unsigned long>(want + 2ull * getSectorSize())))
        return false;
    unsigned int actual = 0;
    unsigned int offset = 0;
    hr = read(buf.getBuffer(0), static_cast<unsigned int>(buf.getCapacity()), static_cast<unsigned int>(want),
              actual, offset);
    if (FAILED(hr) || actual < offset) {
        setLastError(L"Failed to read idx1 data.");
        return false;
    }
    std::uint64_t got = actual - offset;
    std::uint64_t records = got > sizeof(RIFFCHUNK) ? std::min<std::uint64_t>(size, got - sizeof(RIFFCHUNK)) : 0;
    std::uint64_t nRecords = records / sizeof(INDEXENTRY);
    const unsigned char* first = buf.getBuffer(0) + offset + sizeof(RIFFCHUNK);

    bool haveFirstOffset = false;
    std::uint32_t firstOffset = 0;
    std::uint32_t count = 0;
    for (std::uint64_t i = 0; i < nRecords; ++i) {
        INDEXENTRY e = fromBytes<INDEXENTRY>(first + i * sizeof(INDEXENTRY));
        if (e.dwSize == 0)
            continue;
        if (!haveFirstOffset) {
            firstOffset = e.dwOffset;
            haveFirstOffset = true;
        }
        if (GetStreamIndexFromChunkId(e.dwChunkId) == stream)
            ++count;
    }
    m_pIndex = new (std::nothrow) IndexEntry[count ? count : 1]();
    if (!m_pIndex)
        return false;
    bool relative = m_dwMoviPosition > firstOffset;
    bool audio = m_pAviStreams[stream].strh.fccType == streamtype::auds;
    unsigned blockAlign = blockAlignOf(stream);
    std::uint64_t blocks = 0;
    std::uint32_t k = 0;
    for (std::uint64_t i = 0; i < nRecords && k < count; ++i) {
        INDEXENTRY e = fromBytes<INDEXENTRY>(first + i * sizeof(INDEXENTRY));
        if (e.dwSize == 0 || GetStreamIndexFromChunkId(e.dwChunkId) != stream)
            continue;
        IndexEntry& x = m_pIndex[k];
        // dwOffset counts from the "movi" word, 4 bytes before the chunk header.
        x.offset = relative ? std::uint64_t(e.dwOffset) + m_dwMoviPosition + 16 : e.dwOffset;
        x.size = e.dwSize;
        x.frameType = kFrameTypeKey;
        x.realLocation = k;
        x.displayNumber = k;
        if (blockAlign)
            blocks += e.dwSize / blockAlign;
        ++k;
    }
    m_nIndexCount = count;
    m_nIndexStartSample = 0;
    if (audio)
        m_nResidentLength = static_cast<std::uint32_t>(std::min<std::uint64_t>(blocks, 0xFFFFFFFFu));
    else
        m_nResidentLength = count;
    markResident(stream, kIdx1Chunk);
    return true;
}

std::uint32_t FileReader::ibpHeaderSkip(const MQ_AVIIBPINDEX_ENTRY& first, std::uint32_t chunkId)
{
    // Our writer puts the frame chunk's header position in a frame-type
    // entry, other writers the data position. The first entry tells which:
    // a header there names the stream's chunk id and the entry's size.
    std::uint64_t fileSize = getSize();
    if (first.qwOffset >= fileSize || fileSize - first.qwOffset < sizeof(RIFFCHUNK))
        return 0;
    unsigned int capacity = 2 * getSectorSize() + sizeof(RIFFCHUNK);
    CByteBuffer buf;
    if (!buf.alloc(capacity) || FAILED(seek(static_cast<unsigned long>(first.qwOffset), 0)))
        return 0;
    unsigned int actual = 0;
    unsigned int offset = 0;
    if (FAILED(read(buf.getBuffer(0), capacity, sizeof(RIFFCHUNK), actual, offset)) || actual < offset ||
        actual - offset < sizeof(RIFFCHUNK))
        return 0;
    RIFFCHUNK chunk = fromBytes<RIFFCHUNK>(buf.getBuffer(0) + offset);
    bool isHeader = chunk.fcc == chunkId && chunk.cb == (first.dwSizeAndType & MQ_IBP_SIZEMASK);
    return isHeader ? sizeof(RIFFCHUNK) : 0;
}

bool FileReader::LoadINDX(int stream, unsigned int sample)
{
    if (!ValidStream(stream) || m_pAviStreams[stream].m_SuperIndex.empty()) {
        setLastError(L"Failed to find superindex.");
        return false;
    }
    const AviStream& s = m_pAviStreams[stream];
    std::uint64_t start = 0;
    const AVISUPERINDEX_ENTRY* entry = nullptr;
    for (const AVISUPERINDEX_ENTRY& e : s.m_SuperIndex) {
        if (sample >= start && sample - start < e.dwDuration) {
            entry = &e;
            break;
        }
        start += e.dwDuration;
    }
    if (!entry) {
        setLastError(L"Failed to find superindex.");
        return false;
    }
    const std::uint64_t chunk = static_cast<std::uint64_t>(entry - s.m_SuperIndex.data());
    if (residentFromParsed(stream, chunk))
        return true;
    m_nIndexStartSample = static_cast<std::uint32_t>(start);
    // The old chunk's records would be misread against the new start.
    freeIndex();

    std::uint64_t fileSize = getSize();
    HRESULT hr = entry->qwOffset < fileSize ? seek(static_cast<unsigned long>(entry->qwOffset), 0) : E_HANDLE_EOF;
    if (FAILED(hr)) {
        setLastError(L"Failed to seek to indx entry.");
        return false;
    }
    // A chunk size past the end of the file cannot be real.
    if (entry->dwSize < sizeof(AVISTDINDEX) || entry->dwSize > fileSize - entry->qwOffset) {
        setLastError(L"Failed to read indx data.");
        return false;
    }
    CByteBuffer buf;
    if (!buf.alloc(entry->dwSize + 2ul * getSectorSize()))
        return false;
    unsigned int actual = 0;
    unsigned int offset = 0;
    hr = read(buf.getBuffer(0), static_cast<unsigned int>(buf.getCapacity()), entry->dwSize, actual, offset);
    if (FAILED(hr) || actual < offset || actual - offset < sizeof(AVISTDINDEX)) {
        setLastError(L"Failed to read indx data.");
        return false;
    }
    const unsigned char* p = buf.getBuffer(0) + offset;
    std::uint32_t have = std::min<std::uint32_t>(actual - offset, entry->dwSize);
    AVISTDINDEX head = fromBytes<AVISTDINDEX>(p);
    std::uint32_t entrySize;
    switch (head.bIndexSubType) {
    case AVI_INDEX_SUB_DEFAULT:
        entrySize = sizeof(AVISTDINDEX_ENTRY);
        break;
    case AVI_INDEX_2FIELD:
        entrySize = sizeof(AVIFIELDINDEX_ENTRY);
        break;
    case AVI_INDEX_IBP:
        entrySize = sizeof(MQ_AVIIBPINDEX_ENTRY);
        break;
    default:
        setLastError(L"LoadINDX Error: unknown chunk type");
        return false;
    }
    if (head.bIndexType != AVI_INDEX_OF_CHUNKS) {
        setLastError(L"LoadINDX Error: index type not AVI_INDEX_OF_CHUNKS");
        return false;
    }

    freeIndex();
    m_nMaxGopLength = 1;
    m_nResidentLength = entry->dwDuration;
    const unsigned char* entries = p + sizeof(AVISTDINDEX);
    // Count against the bytes actually read before allocating anything.
    if (head.nEntriesInUse > (have - sizeof(AVISTDINDEX)) / entrySize) {
        setLastError(L"Failed to read indx data.");
        return false;
    }
    m_pIndex = new (std::nothrow) IndexEntry[head.nEntriesInUse ? head.nEntriesInUse : 1]();
    if (!m_pIndex) {
        setLastError(L"Failed to alloc IndexEntry array");
        return false;
    }
    std::uint32_t count = head.nEntriesInUse;
    m_nIndexCount = count;

    std::uint32_t headerSkip = 0;
    if (head.bIndexSubType == AVI_INDEX_IBP && count > 0)
        headerSkip = ibpHeaderSkip(fromBytes<MQ_AVIIBPINDEX_ENTRY>(entries), head.dwChunkId);

    std::uint32_t lastKey = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        IndexEntry& x = m_pIndex[i];
        const unsigned char* e = entries + std::uint64_t(i) * entrySize;
        if (head.bIndexSubType == AVI_INDEX_SUB_DEFAULT) {
            AVISTDINDEX_ENTRY se = fromBytes<AVISTDINDEX_ENTRY>(e);
            x.offset = offsetFrom(head.qwBaseOffset, se.dwOffset);
            x.size = se.dwSize & AVISTDINDEX_SIZEMASK;
            x.frameType = kFrameTypeKey;
            x.realLocation = x.displayNumber = i;
            if (x.size < 1 || x.size > kMaxIndexEntrySize) {
                MORVANE_ASSERT(FALSE);
                setLastError(L"LoadINDX invalid entry size.");
                m_nIndexCount = i;
                return false;
            }
        } else if (head.bIndexSubType == AVI_INDEX_2FIELD) {
            AVIFIELDINDEX_ENTRY fe = fromBytes<AVIFIELDINDEX_ENTRY>(e);
            x.offset = offsetFrom(head.qwBaseOffset, fe.dwOffset);
            x.size = fe.dwSize;
            x.frameType = kFrameTypeKey;
            x.realLocation = x.displayNumber = i;
            if (i > 0) {
                if (x.size == 0) {
                    MORVANE_ASSERT(FALSE);
                    setLastError(L"A zero length indx index entry was found.");
                    m_nIndexCount = i;
                    return false;
                }
                if (std::uint64_t(x.size) > std::uint64_t(m_pIndex[i - 1].size) * 100) {
                    MORVANE_ASSERT(FALSE);
                    setLastError(L"A corrupt indx index entry was found.");
                    m_nIndexCount = i;
                    return false;
                }
            }
        } else {
            MQ_AVIIBPINDEX_ENTRY ie = fromBytes<MQ_AVIIBPINDEX_ENTRY>(e);
            std::uint32_t d = ie.dwDisplay;
            std::uint32_t r = ie.dwRealLocation;
            if (!m_bTemporalReordering || d == i) {
                x.offset = offsetFrom(ie.qwOffset, headerSkip);
            } else {
                if (r >= count) {
                    MORVANE_ASSERT(FALSE);
                    m_nIndexCount = i;
                    return false;
                }
                const unsigned char* stored = entries + std::uint64_t(r) * entrySize;
                x.offset = offsetFrom(fromBytes<MQ_AVIIBPINDEX_ENTRY>(stored).qwOffset, headerSkip);
            }
            x.realLocation = r;
            x.displayNumber = d;
            x.size = ie.dwSizeAndType & MQ_IBP_SIZEMASK;
            switch (ie.dwSizeAndType >> MQ_IBP_TYPESHIFT) {
            case 0: {
                x.frameType = kFrameTypeKey;
                std::uint32_t distance = i - lastKey;
                if (distance > 2)
                    m_nMaxGopLength = std::max(m_nMaxGopLength, distance);
                lastKey = i;
                break;
            }
            case 1:
                x.frameType = kFrameTypeP;
                break;
            case 2:
            case 3:
                x.frameType = kFrameTypeB;
                break;
            default:
                x.frameType = kFrameTypeKey;
                MORVANE_ASSERT(FALSE);
                break;
            }
        }
    }
    markResident(stream, chunk);
    return true;
}

bool FileReader::residentFromParsed(int stream, std::uint64_t chunk)
{
    for (auto it = m_ParsedIndexes.begin(); it != m_ParsedIndexes.end(); ++it) {
        if (it->stream != stream || it->chunk != chunk || it->reordering != m_bTemporalReordering)
            continue;
        ParsedIndex p = *it;
        m_ParsedIndexes.erase(it);
        freeIndex();
        m_pIndex = p.entries;
        m_nIndexCount = p.count;
        m_nIndexStartSample = p.startSample;
        m_nResidentLength = p.residentLength;
        // Loading the idx1 leaves the maximum GOP length as it was.
        if (chunk != kIdx1Chunk)
            m_nMaxGopLength = p.maxGopLength;
        p.entries = nullptr;
        m_Resident = p;
        m_AudioHint = p.audioHint;
        return true;
    }
    return false;
}

void FileReader::markResident(int stream, std::uint64_t chunk)
{
    m_Resident.stream = stream;
    m_Resident.chunk = chunk;
    m_Resident.reordering = m_bTemporalReordering;
    m_Resident.entries = nullptr;
    m_Resident.count = m_nIndexCount;
    m_Resident.startSample = m_nIndexStartSample;
    m_Resident.residentLength = m_nResidentLength;
    m_Resident.maxGopLength = m_nMaxGopLength;
}

bool FileReader::ensureSampleInRam(unsigned int sample)
{
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (m_pIndex && sample >= m_nIndexStartSample && sample - m_nIndexStartSample < m_nResidentLength)
            return true;
        if (attempt == 2)
            break;
        if (!LoadINDX(m_nCurrentStream, sample))
            return false;
    }
    return false;
}

IndexEntry* FileReader::getIndexEntryV(unsigned int sample)
{
    if (!ensureSampleInRam(sample))
        return nullptr;
    std::uint32_t i = sample - m_nIndexStartSample;
    // The covered range may claim more samples than the chunk has entries.
    return i < m_nIndexCount ? &m_pIndex[i] : nullptr;
}

IndexEntry* FileReader::getIndexEntryA(unsigned int sample, unsigned int& samplesLeft, unsigned int& entryStart)
{
    if (!ensureSampleInRam(sample) || m_nIndexCount == 0)
        return nullptr;
    unsigned nBlockAlign = blockAlignOf(m_nCurrentStream);
    if (nBlockAlign == 0)
        return nullptr;
    std::uint64_t start = m_nIndexStartSample;
    std::uint32_t i = 0;
    if (m_AudioHint.valid && m_AudioHint.entry < m_nIndexCount && sample >= m_AudioHint.start) {
        i = m_AudioHint.entry;
        start = m_AudioHint.start;
    }
    bool aligned = true;
    for (; i < m_nIndexCount; ++i) {
        IndexEntry* pEntry = &m_pIndex[i];
        MORVANE_ASSERT(pEntry->size%nBlockAlign==0);
        aligned = aligned && pEntry->size % nBlockAlign == 0;
        std::uint64_t n = pEntry->size / nBlockAlign;
        if (sample >= start && sample - start < n) {
            if (aligned)
                m_AudioHint = {true, i, start};
            entryStart = static_cast<unsigned int>(start);
            samplesLeft = static_cast<unsigned int>(n - (sample - start));
            return pEntry;
        }
        start += n;
    }
    return nullptr;
}

HRESULT FileReader::get_IndexEntry(unsigned int dwIndex, IndexEntry** entry)
{
    if (ensureSampleInRam(dwIndex) && dwIndex - m_nIndexStartSample < m_nIndexCount) {
        MORVANE_ASSERT(dwIndex >= m_nIndexStartSample);
        if (entry)
            *entry = &m_pIndex[dwIndex - m_nIndexStartSample];
        return S_OK;
    }
    MORVANE_ASSERT(FALSE);
    return E_NO_INDEX;
}

} // namespace Morvane::Avi
