// The index of the streams that have no OpenDML index: the legacy idx1,
// checked against the chunks it names, or, when there is none or it cannot
// be trusted, a walk over the movi chunks themselves. Either way every
// stream's length comes from what the index lists, not from the header.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"

namespace Morvane::Avi {

namespace {

// Bytes read at a time while walking: a run of small chunks is read in
// one go, a large chunk costs one read of its header.
constexpr std::uint32_t kWalkWindow = 32u << 10;
// The most of an idx1 that is read (a million records).
constexpr std::uint64_t kMaxIdx1 = 16u << 20;

std::uint32_t word(const unsigned char* p)
{
    std::uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

bool isDigit(unsigned c)
{
    return c >= '0' && c <= '9';
}

// Chunk ids are four printable characters; anything else is where the
// written data ends (a capture cut off, sectors never written).
bool printableId(std::uint32_t id)
{
    for (int i = 0; i < 4; ++i) {
        unsigned c = (id >> (8 * i)) & 0xFF;
        if (c < 0x20 || c > 0x7E)
            return false;
    }
    return true;
}

} // namespace

int FileReader::sampleStreamOf(std::uint32_t ckid) const
{
    unsigned c0 = ckid & 0xFF;
    unsigned c1 = (ckid >> 8) & 0xFF;
    if (!isDigit(c0) || !isDigit(c1))
        return -1;
    int stream = int(c0 - '0') * 10 + int(c1 - '0');
    std::uint32_t kind = ckid >> 16;
    bool video = kind == ('d' | ('c' << 8)) || kind == ('d' | ('b' << 8));
    bool audio = kind == ('w' | ('b' << 8));
    if ((video && get_IsVideo(stream)) || (audio && get_IsAudio(stream)))
        return stream;
    return -1;
}

bool FileReader::readAt(std::uint64_t at, CByteBuffer& buf, std::uint32_t n, const unsigned char*& data,
                        std::uint32_t& got)
{
    got = 0;
    std::uint64_t fileSize = getSize();
    if (at >= fileSize)
        return false;
    n = static_cast<std::uint32_t>(std::min<std::uint64_t>(n, fileSize - at));
    std::uint64_t need = std::uint64_t(n) + 2ull * getSectorSize();
    if (buf.getCapacity() < need && !buf.alloc(static_cast<unsigned long>(need)))
        return false;
    unsigned int actual = 0;
    unsigned int offset = 0;
    if (FAILED(seek(static_cast<unsigned long>(at), 0)) ||
        FAILED(read(buf.getBuffer(0), static_cast<unsigned int>(buf.getCapacity()), n, actual, offset)) ||
        actual <= offset)
        return false;
    data = buf.getBuffer(0) + offset;
    got = std::min(actual - offset, n);
    return true;
}

void FileReader::addFileIndexEntry(unsigned int stream, std::uint64_t offset, std::uint32_t size)
{
    std::vector<IndexEntry>& v = m_FileIndex[stream];
    std::uint32_t n = static_cast<std::uint32_t>(v.size());
    v.push_back(IndexEntry{offset, size, kFrameTypeKey, n, n});
}

bool FileReader::idx1BaseFrom(const INDEXENTRY& e, std::uint64_t& base)
{
    // Offsets count from the "movi" word, or, as GStreamer writes them,
    // from the start of the file; the chunk found there says which.
    const std::uint64_t candidates[] = {m_qwMoviPosition + 8, 0};
    CByteBuffer buf;
    for (std::uint64_t candidate : candidates) {
        const unsigned char* p = nullptr;
        std::uint32_t got = 0;
        if (readAt(candidate + e.dwOffset, buf, sizeof(RIFFCHUNK), p, got) && got >= sizeof(RIFFCHUNK) &&
            word(p) == e.dwChunkId && word(p + 4) == e.dwSize) {
            base = candidate;
            return true;
        }
    }
    return false;
}

bool FileReader::indexFromIdx1()
{
    std::uint64_t fileSize = getSize();
    std::uint64_t at = m_dwIdx1Position;
    // A capture cut short inside its idx1 is walked instead.
    if (at + sizeof(RIFFCHUNK) > fileSize || m_cbIdx1Size > fileSize - at - sizeof(RIFFCHUNK))
        return false;
    std::uint32_t size = static_cast<std::uint32_t>(std::min<std::uint64_t>(m_cbIdx1Size, kMaxIdx1));
    CByteBuffer buf;
    const unsigned char* p = nullptr;
    std::uint32_t got = 0;
    if (!readAt(at + sizeof(RIFFCHUNK), buf, size, p, got)) {
        setLastError(L"Failed to read idx1 data.");
        return false;
    }
    std::uint32_t records = got / sizeof(INDEXENTRY);
    auto record = [&](std::uint32_t i) {
        INDEXENTRY e;
        std::memcpy(&e, p + std::size_t(i) * sizeof(INDEXENTRY), sizeof e);
        return e;
    };
    std::uint64_t base = 0;
    bool found = false;
    for (std::uint32_t i = 0; i < records && !found; ++i) {
        INDEXENTRY e = record(i);
        if (e.dwSize != 0 && sampleStreamOf(e.dwChunkId) >= 0) {
            if (!idx1BaseFrom(e, base))
                return false; // names no chunk either way: not to be trusted
            found = true;
        }
    }
    if (!found)
        return false;
    m_FileIndex.assign(get_StreamCount(), {});
    for (std::uint32_t i = 0; i < records; ++i) {
        INDEXENTRY e = record(i);
        int stream = sampleStreamOf(e.dwChunkId);
        // An empty audio chunk holds no samples; an empty video chunk is a
        // dropped frame and keeps its place.
        if (stream < 0 || (e.dwSize == 0 && get_IsAudio(stream)))
            continue;
        std::uint64_t data = base + e.dwOffset + sizeof(RIFFCHUNK);
        // Sound the file cannot hold would count as samples that are not
        // there; a frame keeps its place and fails when it is read.
        if (get_IsAudio(stream) && (data > fileSize || e.dwSize > fileSize - data))
            continue;
        addFileIndexEntry(static_cast<unsigned>(stream), data, e.dwSize);
    }
    m_eFileIndexSource = IndexSource::idx1;
    return true;
}

bool FileReader::indexFromWalk()
{
    if (m_qwMoviPosition == 0)
        return false;
    m_FileIndex.assign(get_StreamCount(), {});
    const std::uint64_t fileSize = getSize();
    CByteBuffer window;
    std::uint64_t windowStart = 0;
    std::uint32_t windowLength = 0;
    const unsigned char* windowData = nullptr;
    // The bytes at pos (n of them, at most a chunk header and a list type).
    auto bytesAt = [&](std::uint64_t pos, std::uint32_t n) -> const unsigned char* {
        if (pos < windowStart || pos + n > windowStart + windowLength) {
            if (!readAt(pos, window, kWalkWindow, windowData, windowLength) || windowLength < n)
                return nullptr;
            windowStart = pos;
        }
        return windowData + (pos - windowStart);
    };
    // The sizes of the lists are not trusted (a capture cut off leaves them
    // stale): the walk goes from chunk to chunk to the end of what was
    // written, into each RIFF AVIX that follows.
    std::uint64_t pos = m_qwMoviPosition + 12;
    bool any = false;
    m_WalkedRiffs.assign(1, WalkedRiff{0, m_qwMoviPosition});
    m_dwWalkCutId = 0;
    while (pos <= fileSize && fileSize - pos >= sizeof(RIFFCHUNK)) {
        const unsigned char* h = bytesAt(pos, sizeof(RIFFCHUNK));
        if (!h)
            break;
        std::uint32_t id = word(h);
        std::uint32_t size = word(h + 4);
        if (id == ckid::RIFF || id == ckid::LIST) {
            const unsigned char* t = fileSize - pos >= 12 ? bytesAt(pos, 12) : nullptr;
            if (!t)
                break;
            std::uint32_t type = word(t + 8);
            if (type == ckid::movi || type == ckid::rec || type == ckid::AVIX) {
                if (type == ckid::AVIX)
                    m_WalkedRiffs.push_back(WalkedRiff{pos, 0});
                else if (type == ckid::movi && m_WalkedRiffs.back().movi == 0)
                    m_WalkedRiffs.back().movi = pos;
                pos += 12;
                continue;
            }
        } else if (!printableId(id)) {
            break;
        }
        std::uint64_t data = pos + sizeof(RIFFCHUNK);
        if (size > fileSize - data) {
            m_dwWalkCutId = id; // the last chunk is incomplete
            break;
        }
        int stream = sampleStreamOf(id);
        if (stream >= 0 && !(size == 0 && get_IsAudio(stream))) {
            addFileIndexEntry(static_cast<unsigned>(stream), data, size);
            any = true;
        }
        pos = data + size + (size & 1);
        // Only another RIFF follows an idx1, after the JUNK that pads it to a
        // sector (our writer's): what else lies there (the records of an idx1
        // whose size was lost) is no chunk.
        if (id == ckid::idx1) {
            std::uint64_t at = pos;
            const unsigned char* next = nullptr;
            while (fileSize - std::min(at, fileSize) >= sizeof(RIFFCHUNK) &&
                   (next = bytesAt(at, sizeof(RIFFCHUNK))) && word(next) == ckid::JUNK)
                at += sizeof(RIFFCHUNK) + word(next + 4) + (word(next + 4) & 1);
            if (at >= fileSize || fileSize - at < sizeof(RIFFCHUNK) || !next || word(next) != ckid::RIFF)
                break;
            pos = at;
        }
    }
    m_qwWalkEnd = pos;
    if (!any)
        return false;
    m_eFileIndexSource = IndexSource::walk;
    return true;
}

void FileReader::prepareIndex()
{
    if (!m_pAviStreams)
        return;
    const unsigned streams = m_AviHeader.dwStreams;
    const std::uint64_t fileSize = getSize();
    bool needFileIndex = false;
    for (unsigned n = 0; n < streams; ++n) {
        AviStream& s = m_pAviStreams[n];
        if (m_bWalkChunks)
            s.m_SuperIndex.clear();
        // A standard index chunk past the end (a file cut short before its
        // writer went back to fill the index in) leaves the stream to the walk.
        for (const AVISUPERINDEX_ENTRY& e : s.m_SuperIndex)
            if (e.qwOffset >= fileSize || e.dwSize > fileSize - e.qwOffset) {
                s.m_SuperIndex.clear();
                break;
            }
        if (!s.m_SuperIndex.empty()) {
            // No chunk covers more frames than it has room for entries.
            std::uint64_t length = 0;
            for (const AVISUPERINDEX_ENTRY& e : s.m_SuperIndex) {
                std::uint64_t room = e.dwSize > sizeof(AVISTDINDEX) ? e.dwSize - sizeof(AVISTDINDEX) : 0;
                length += get_IsVideo(n) ? std::min<std::uint64_t>(e.dwDuration, room / sizeof(AVISTDINDEX_ENTRY))
                                         : e.dwDuration;
            }
            s.m_bIndexLengthKnown = true;
            s.m_nIndexLength = static_cast<std::uint32_t>(std::min<std::uint64_t>(length, 0xFFFFFFFFu));
        } else if (get_IsVideo(n) || get_IsAudio(n)) {
            needFileIndex = true;
        }
    }
    if (!needFileIndex)
        return;
    // An idx1 in a file of several RIFFs covers only the first.
    bool indexed = m_cbIdx1Size != 0 && !m_bFollowingRiff && !m_bWalkChunks && indexFromIdx1();
    if (!indexed && !indexFromWalk()) {
        m_FileIndex.clear();
        return;
    }
    for (unsigned n = 0; n < streams; ++n) {
        AviStream& s = m_pAviStreams[n];
        if (!s.m_SuperIndex.empty())
            continue;
        const std::vector<IndexEntry>& v = m_FileIndex[n];
        std::uint64_t length = v.size();
        if (get_IsAudio(n)) {
            std::uint64_t bytes = 0;
            for (const IndexEntry& e : v)
                bytes += e.size;
            unsigned blockAlign = blockAlignOf(static_cast<int>(n));
            length = blockAlign ? bytes / blockAlign : 0;
        }
        s.m_bIndexLengthKnown = true;
        s.m_nIndexLength = static_cast<std::uint32_t>(std::min<std::uint64_t>(length, 0xFFFFFFFFu));
    }
}

} // namespace Morvane::Avi
