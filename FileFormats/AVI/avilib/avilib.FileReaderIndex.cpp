// Index loading: the legacy idx1 of a whole stream, or one OpenDML
// standard index chunk at a time through the stream's super index.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"

namespace Morvane::Avi {

namespace {

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
    if (ValidStream(stream) && m_eFileIndexSource != IndexSource::none && residentFromParsed(stream, kIdx1Chunk))
        return true;
    freeIndex();
    if (!ValidStream(stream) || m_eFileIndexSource == IndexSource::none ||
        static_cast<std::size_t>(stream) >= m_FileIndex.size())
        return false;
    const std::vector<IndexEntry>& v = m_FileIndex[stream];
    std::uint32_t count = static_cast<std::uint32_t>(v.size());
    m_pIndex = new (std::nothrow) IndexEntry[count ? count : 1]();
    if (!m_pIndex)
        return false;
    if (count)
        std::memcpy(m_pIndex, v.data(), std::size_t(count) * sizeof(IndexEntry));
    m_nIndexCount = count;
    m_nIndexStartSample = 0;
    m_nResidentLength = m_pAviStreams[stream].strh.fccType == streamtype::auds ? get_Length(stream) : count;
    indexAudioStarts(stream, 0);
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

bool FileReader::audioChunkStarts(int stream)
{
    AviStream& s = m_pAviStreams[stream];
    unsigned nBlockAlign = blockAlignOf(stream);
    if (!s.m_AudioChunkStart.empty() || nBlockAlign == 0)
        return !s.m_AudioChunkStart.empty();
    // Each chunk's bytes, summed from its entries: the durations count
    // whole blocks and lose the bytes of chunks that end inside one.
    std::vector<std::uint64_t> starts{0};
    CByteBuffer buf;
    for (const AVISUPERINDEX_ENTRY& e : s.m_SuperIndex) {
        const unsigned char* p = nullptr;
        std::uint32_t got = 0;
        std::uint64_t bytes = std::uint64_t(e.dwDuration) * nBlockAlign;
        if (readAt(e.qwOffset, buf, e.dwSize, p, got) && got >= sizeof(AVISTDINDEX)) {
            AVISTDINDEX head = fromBytes<AVISTDINDEX>(p);
            if (head.bIndexSubType == AVI_INDEX_SUB_DEFAULT && head.bIndexType == AVI_INDEX_OF_CHUNKS &&
                head.nEntriesInUse <= (got - sizeof(AVISTDINDEX)) / sizeof(AVISTDINDEX_ENTRY)) {
                bytes = 0;
                for (std::uint32_t i = 0; i < head.nEntriesInUse; ++i)
                    bytes += fromBytes<AVISTDINDEX_ENTRY>(p + sizeof(AVISTDINDEX) + std::size_t(i) * 8).dwSize &
                             AVISTDINDEX_SIZEMASK;
            }
        }
        starts.push_back(starts.back() + bytes);
    }
    s.m_AudioChunkStart = std::move(starts);
    s.m_bIndexLengthKnown = true;
    s.m_nIndexLength =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(s.m_AudioChunkStart.back() / nBlockAlign, 0xFFFFFFFFu));
    return true;
}

bool FileReader::LoadINDX(int stream, unsigned int sample)
{
    if (!ValidStream(stream) || m_pAviStreams[stream].m_SuperIndex.empty()) {
        setLastError(L"Failed to find superindex.");
        return false;
    }
    const AviStream& s = m_pAviStreams[stream];
    unsigned nBlockAlign = blockAlignOf(stream);
    if (get_IsAudio(stream) && audioChunkStarts(stream)) {
        const std::vector<std::uint64_t>& starts = s.m_AudioChunkStart;
        std::uint64_t byte = std::uint64_t(sample) * nBlockAlign;
        auto it = std::upper_bound(starts.begin(), starts.end(), byte);
        if (it == starts.begin() || it == starts.end()) {
            setLastError(L"Failed to find superindex.");
            return false;
        }
        std::size_t k = static_cast<std::size_t>(it - starts.begin() - 1);
        std::uint64_t first = starts[k] / nBlockAlign;
        std::uint64_t end = (starts[k + 1] + nBlockAlign - 1) / nBlockAlign;
        return loadIndxChunk(stream, k, first, static_cast<std::uint32_t>(end - first), starts[k]);
    }
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
    return loadIndxChunk(stream, static_cast<std::size_t>(entry - s.m_SuperIndex.data()), start, entry->dwDuration,
                         start * nBlockAlign);
}

bool FileReader::loadIndxChunk(int stream, std::size_t k, std::uint64_t start, std::uint32_t residentLength,
                               std::uint64_t byteStart)
{
    const AVISUPERINDEX_ENTRY* entry = &m_pAviStreams[stream].m_SuperIndex[k];
    const std::uint64_t chunk = k;
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
    m_nIndexStartSample = static_cast<std::uint32_t>(start);
    m_nResidentLength = residentLength;
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
    std::uint32_t lastSize = 0;
    bool anyNonKey = false;
    for (std::uint32_t i = 0; i < count; ++i) {
        IndexEntry& x = m_pIndex[i];
        const unsigned char* e = entries + std::uint64_t(i) * entrySize;
        if (head.bIndexSubType == AVI_INDEX_SUB_DEFAULT) {
            AVISTDINDEX_ENTRY se = fromBytes<AVISTDINDEX_ENTRY>(e);
            x.offset = offsetFrom(head.qwBaseOffset, se.dwOffset);
            x.size = se.dwSize & AVISTDINDEX_SIZEMASK;
            x.frameType = kFrameTypeKey;
            x.realLocation = x.displayNumber = i;
            // An empty entry is a dropped frame and keeps its place; no
            // frame is larger than the file.
            if (x.size > fileSize) {
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
            if (x.size != 0) {
                if (lastSize != 0 && std::uint64_t(x.size) > std::uint64_t(lastSize) * 100) {
                    MORVANE_ASSERT(FALSE);
                    setLastError(L"A corrupt indx index entry was found.");
                    m_nIndexCount = i;
                    return false;
                }
                lastSize = x.size;
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
            case 0:
                x.frameType = kFrameTypeKey;
                m_nMaxGopLength = std::max(m_nMaxGopLength, i - lastKey);
                lastKey = i;
                break;
            case 1:
                x.frameType = kFrameTypeP;
                anyNonKey = true;
                break;
            case 2:
            case 3:
                x.frameType = kFrameTypeB;
                anyNonKey = true;
                break;
            default:
                x.frameType = kFrameTypeKey;
                MORVANE_ASSERT(FALSE);
                break;
            }
        }
    }
    // A group that runs to the end of the chunk (a clip of one GOP), or
    // groups of an I and a P frame, are groups all the same.
    if (anyNonKey)
        m_nMaxGopLength = std::max({m_nMaxGopLength, count - lastKey, 2u});
    else
        m_nMaxGopLength = 1;
    AviStream& owner = m_pAviStreams[stream];
    if (owner.m_nGopLength == 0)
        owner.m_nGopLength = m_nMaxGopLength;
    indexAudioStarts(stream, byteStart);
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
        m_AudioEntryStart = std::move(p.audioStarts);
        m_Resident = std::move(p);
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

void FileReader::indexAudioStarts(int stream, std::uint64_t byteStart)
{
    m_AudioEntryStart.clear();
    unsigned nBlockAlign = blockAlignOf(stream);
    if (!get_IsAudio(stream) || nBlockAlign == 0)
        return;
    m_AudioEntryStart.reserve(std::size_t(m_nIndexCount) + 1);
    std::uint64_t at = byteStart;
    bool aligned = true;
    for (std::uint32_t i = 0; i < m_nIndexCount; ++i) {
        m_AudioEntryStart.push_back(at);
        at += m_pIndex[i].size;
        aligned = aligned && m_pIndex[i].size % nBlockAlign == 0;
    }
    m_AudioEntryStart.push_back(at);
    // Chunks that are not whole blocks are read byte for byte; said once.
    if (!aligned && !m_bWarnedAudioAlign) {
        m_bWarnedAudioAlign = true;
        MORVANE_ASSERT(aligned);
    }
}

bool FileReader::findAudioEntry(std::uint64_t byte, std::uint32_t& entry, std::uint64_t& entryStart)
{
    unsigned nBlockAlign = blockAlignOf(m_nCurrentStream);
    std::uint64_t sample = nBlockAlign ? byte / nBlockAlign : 0;
    if (nBlockAlign == 0 || sample > 0xFFFFFFFFu)
        return false;
    auto covers = [&] {
        return m_pIndex && m_nIndexCount != 0 && m_AudioEntryStart.size() == std::size_t(m_nIndexCount) + 1 &&
               byte >= m_AudioEntryStart.front() && byte < m_AudioEntryStart.back();
    };
    if (!covers()) {
        // The chunk that holds this byte, which may not be the one that
        // holds the sample's first byte.
        const AviStream& s = m_pAviStreams[m_nCurrentStream];
        if (s.m_SuperIndex.empty() || !audioChunkStarts(m_nCurrentStream))
            return false;
        const std::vector<std::uint64_t>& starts = s.m_AudioChunkStart;
        auto at = std::upper_bound(starts.begin(), starts.end(), byte);
        if (at == starts.begin() || at == starts.end())
            return false;
        std::size_t k = static_cast<std::size_t>(at - starts.begin() - 1);
        std::uint64_t first = starts[k] / nBlockAlign;
        std::uint64_t end = (starts[k + 1] + nBlockAlign - 1) / nBlockAlign;
        if (!loadIndxChunk(m_nCurrentStream, k, first, static_cast<std::uint32_t>(end - first), starts[k]) ||
            !covers())
            return false;
    }
    auto it = std::upper_bound(m_AudioEntryStart.begin(), m_AudioEntryStart.end(), byte);
    if (it == m_AudioEntryStart.begin() || it == m_AudioEntryStart.end())
        return false;
    entry = static_cast<std::uint32_t>(it - m_AudioEntryStart.begin() - 1);
    entryStart = m_AudioEntryStart[entry];
    return true;
}

IndexEntry* FileReader::getIndexEntryA(unsigned int sample, unsigned int& samplesLeft, unsigned int& entryStart)
{
    unsigned nBlockAlign = blockAlignOf(m_nCurrentStream);
    std::uint32_t i = 0;
    std::uint64_t start = 0;
    if (nBlockAlign == 0 || !findAudioEntry(std::uint64_t(sample) * nBlockAlign, i, start))
        return nullptr;
    std::uint64_t end = start + m_pIndex[i].size;
    entryStart = static_cast<unsigned int>(start / nBlockAlign);
    samplesLeft = static_cast<unsigned int>((end - std::uint64_t(sample) * nBlockAlign) / nBlockAlign);
    return &m_pIndex[i];
}

unsigned int FileReader::get_StoredFrame(unsigned int sample)
{
    IndexEntry* e = getIndexEntryV(sample);
    if (!e || e->size != 0)
        return sample;
    for (unsigned int s = sample; s-- > 0;) {
        e = getIndexEntryV(s);
        if (!e)
            break;
        if (e->size != 0)
            return s;
    }
    const unsigned int length = get_Length(m_nCurrentStream);
    for (unsigned int s = sample + 1; s < length; ++s) {
        e = getIndexEntryV(s);
        if (!e)
            break;
        if (e->size != 0)
            return s;
    }
    return sample;
}

HRESULT FileReader::get_IndexEntry(unsigned int dwIndex, IndexEntry** entry)
{
    // An empty entry stands for the frame that is shown in its place.
    unsigned int stored = get_StoredFrame(dwIndex);
    if (ensureSampleInRam(stored) && stored - m_nIndexStartSample < m_nIndexCount) {
        MORVANE_ASSERT(stored >= m_nIndexStartSample);
        if (entry)
            *entry = &m_pIndex[stored - m_nIndexStartSample];
        return S_OK;
    }
    MORVANE_ASSERT(FALSE);
    return E_NO_INDEX;
}

} // namespace Morvane::Avi
