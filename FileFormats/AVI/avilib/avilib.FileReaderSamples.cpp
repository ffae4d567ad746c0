// Sample access on the current stream: whole video frames with one
// sector-aligned read per run, audio blocks through a one-chunk cache,
// key frames, GOPs and presentation order.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "util/stringUtils.h"

namespace Morvane::Avi {

HRESULT FileReader::essenceOpen(unsigned int stream)
{
    if (!isOpen()) {
        MORVANE_ASSERT(FALSE);
        return E_INVALID_STATE;
    }
    if (!m_pAviStreams || stream >= m_AviHeader.dwStreams) {
        setLastError(L"Invalid stream index.");
        return E_INVALIDARG;
    }
    // The cached audio chunk belongs to the stream that was current; the
    // same stream made current again keeps it.
    if (static_cast<int>(stream) != m_nCurrentStream) {
        m_dwAudioBufferStart = 0;
        m_dwAudioBufferLength = 0;
        m_qwAudioCacheStart = 0;
        m_cbAudioCacheBytes = 0;
    }
    bool loaded;
    // An indx with no entries leaves the stream to the idx1 or the walk.
    if (!m_pAviStreams[stream].m_SuperIndex.empty()) {
        loaded = LoadINDX(static_cast<int>(stream), 0);
    } else if (m_eFileIndexSource != IndexSource::none) {
        loaded = LoadIDX1(static_cast<int>(stream));
    } else {
        setLastError(L"No index table.");
        loaded = false;
    }
    if (!loaded) {
        // Nothing of another stream may be served as this one's.
        freeIndex();
        m_nCurrentStream = -1;
        m_qwAudioCacheStart = 0;
        m_cbAudioCacheBytes = 0;
        return E_FAIL;
    }
    m_nCurrentStream = static_cast<int>(stream);
    return S_OK;
}

HRESULT FileReader::ReadVideo(unsigned int first, unsigned int count, unsigned char* buf, unsigned int bufSize,
                              std::vector<unsigned int>& offsets, std::vector<unsigned int>& sizes)
{
    MORVANE_ASSERT(m_nCurrentStream >= 0);
    if (!isOpen() || !hasIndex())
        return E_INVALID_STATE;
    if (first >= get_Length(m_nCurrentStream))
        return E_HANDLE_EOF;

    // Copy the values at once: a later lookup may load another index chunk.
    std::vector<std::uint64_t> positions;
    std::uint64_t end = 0;
    for (unsigned int k = 0; k < count && first + k >= first; ++k) {
        IndexEntry* e = getIndexEntryV(get_StoredFrame(first + k));
        if (!e)
            break;
        // A frame stored before the first cannot be in the same forward read.
        if (!positions.empty() && e->offset < positions.front())
            break;
        // By value: the records are packed.
        std::uint64_t position = e->offset;
        unsigned int size = e->size;
        // A frame that would end past the largest offset is in no file; its
        // end must not wrap into a small span.
        if (position > UINT64_MAX - size) {
            if (!positions.empty())
                break;
            setLastError(Morvane::format(L"Frame[%u] Failed to seek to %llu. ", first,
                                         static_cast<unsigned long long>(position)));
            return E_HANDLE_EOF;
        }
        positions.push_back(position);
        sizes.push_back(size);
        end = std::max(end, position + size);
    }
    if (positions.empty()) {
        MORVANE_ASSERT(FALSE);
        return E_FAIL;
    }
    std::uint64_t start = positions.front();
    std::uint64_t span = end - start;
    // Bytes that the file does not have are a failed read, found before
    // the caller grows a buffer for a size that only the index claims.
    // The codes are those of the read itself: nothing at all to read fails,
    // a read cut short by the end of the file is an end of file.
    const std::uint64_t fileSize = getSize();
    if (start > fileSize || span > fileSize - start) {
        setLastError(Morvane::format(L"Frame[%u] Failed to read from disk. ", first));
        return start - start % getSectorSize() >= fileSize ? E_FAIL : E_HANDLE_EOF;
    }
    if (span > bufSize)
        return E_BUFFER_TOO_SMALL;

    HRESULT hr = seek(static_cast<unsigned long>(start), 0);
    if (FAILED(hr)) {
        setLastError(Morvane::format(L"Frame[%u] Failed to seek to %llu. ", first,
                                     static_cast<unsigned long long>(start)));
        return hr;
    }
    unsigned int actual = 0;
    unsigned int offset = 0;
    hr = readEssence(buf, bufSize, static_cast<unsigned int>(span), actual, offset);
    // A frame that the file does not hold in full (an index pointing past
    // the end) is a failed read, not a frame of stale bytes.
    if (SUCCEEDED(hr) && (actual < offset || actual - offset < span))
        hr = E_HANDLE_EOF;
    if (FAILED(hr)) {
        setLastError(Morvane::format(L"Frame[%u] Failed to read from disk. ", first));
        return hr;
    }
    for (std::uint64_t p : positions)
        offsets.push_back(static_cast<unsigned int>(p - start + offset));
    return S_OK;
}

HRESULT FileReader::readEssence(unsigned char* buf, unsigned int bufSize, unsigned int n, unsigned int& actual,
                                unsigned int& offset)
{
    unsigned long toRead = roundUpToSectorBoundary(static_cast<unsigned long>(n) + offset_);
    if (toRead > bufSize || !isOpen())
        return read(buf, bufSize, n, actual, offset); // refused as a plain read refuses it
    Vl::Ptr<iFile> file = getFilePtr();
    std::uint64_t position = file->getPosition();
    // Where the window does not serve, the disk does, as if it were not there.
    if (!m_ReadAhead.read(*file, position, toRead, buf) || !file->setPosition(position + toRead)) {
        file->setPosition(position);
        return read(buf, bufSize, n, actual, offset);
    }
    actual = static_cast<unsigned int>(toRead);
    offset = offset_;
    return S_OK;
}

bool FileReader::prefetchVideo(unsigned int first, unsigned int count, bool alone)
{
    if (!isOpen() || !hasIndex() || count < 2)
        return false;
    std::uint64_t start = UINT64_MAX;
    std::uint64_t end = 0;
    for (unsigned int k = 0; k < count && first + k >= first; ++k) {
        IndexEntry* e = getIndexEntryV(get_StoredFrame(first + k));
        if (!e)
            break;
        std::uint64_t position = e->offset;
        unsigned int size = e->size;
        if (position > UINT64_MAX - size)
            return false;
        start = std::min(start, position);
        end = std::max(end, position + size);
    }
    if (start >= end)
        return false;
    std::uint64_t aligned = start - start % getSectorSize();
    return m_ReadAhead.readRun(*getFilePtr(), aligned,
                               roundUpToSectorBoundary(static_cast<unsigned long>(end - aligned)), alone);
}

HRESULT FileReader::ReadVideo(unsigned int sample, unsigned char* buf, unsigned int bufSize, unsigned int* offset,
                              unsigned int* size)
{
    std::vector<unsigned int> offsets;
    std::vector<unsigned int> sizes;
    HRESULT hr = ReadVideo(sample, 1, buf, bufSize, offsets, sizes);
    if (FAILED(hr))
        return hr;
    if (offset)
        *offset = offsets[0];
    if (size)
        *size = sizes[0];
    return hr;
}

HRESULT FileReader::cacheAudioBytes(std::uint64_t byte)
{
    std::uint32_t i = 0;
    std::uint64_t entryStart = 0;
    if (!findAudioEntry(byte, i, entryStart))
        return E_FAIL;
    const std::uint64_t position = m_pIndex[i].offset;
    const std::uint32_t size = m_pIndex[i].size;
    MORVANE_ASSERT(size < 0x100000);
    std::uint64_t fileSize = getSize();
    if (position > fileSize || size > fileSize - position) {
        setLastError(Morvane::format(L"Audio chunk at %llu runs past the end of the file. ",
                                     static_cast<unsigned long long>(position)));
        return E_HANDLE_EOF;
    }
    std::uint64_t need = std::uint64_t(size) + 2ull * getSectorSize();
    if (m_AudioBuffer.getCapacity() < need && !m_AudioBuffer.alloc(static_cast<unsigned long>(need)))
        return E_OUTOFMEMORY;
    m_dwAudioBufferStart = 0;
    m_dwAudioBufferLength = 0;
    m_qwAudioCacheStart = 0;
    m_cbAudioCacheBytes = 0;
    m_AudioBuffer.clear();
    HRESULT hr = seek(static_cast<unsigned long>(position), 0);
    if (FAILED(hr))
        return hr;
    unsigned int cbActual = 0;
    unsigned int offset = 0;
    hr = readEssence(m_AudioBuffer.getBuffer(0), static_cast<unsigned int>(m_AudioBuffer.getCapacity()), size,
                     cbActual, offset);
    if (FAILED(hr))
        return hr;
    std::uint32_t got = cbActual > offset ? cbActual - offset : 0;
    MORVANE_ASSERT(got >= size);
    unsigned nBlockAlign = blockAlignOf(m_nCurrentStream);
    m_qwAudioCacheStart = entryStart;
    m_cbAudioCacheBytes = std::min(got, size);
    m_dwAudioBufferStart = static_cast<std::uint32_t>(entryStart / nBlockAlign);
    m_dwAudioBufferLength = m_cbAudioCacheBytes / nBlockAlign;
    m_AudioBuffer.setUsed(cbActual);
    if (offset < cbActual)
        m_AudioBuffer.setOffset(offset);
    return hr;
}

HRESULT FileReader::CacheAudioData(unsigned int sample)
{
    MORVANE_ASSERT(m_nCurrentStream >= 0);
    unsigned nBlockAlign = blockAlignOf(m_nCurrentStream);
    HRESULT hr = nBlockAlign ? cacheAudioBytes(std::uint64_t(sample) * nBlockAlign) : E_FAIL;
    if (hr == E_FAIL && sample >= get_Length(m_nCurrentStream))
        return E_HANDLE_EOF;
    return hr;
}

HRESULT FileReader::ReadAudio(unsigned int first, unsigned int count, unsigned char* buf, unsigned int bufSize,
                              unsigned int* offset, unsigned int* bytes)
{
    MORVANE_ASSERT(m_nCurrentStream >= 0);
    unsigned nBlockAlign = blockAlignOf(m_nCurrentStream);
    if (nBlockAlign == 0) {
        setLastError(L"Audio stream has no block alignment.");
        return E_FAIL;
    }
    if (std::uint64_t(nBlockAlign) * count > bufSize) {
        setLastError(L"Buffer too small");
        return E_BUFFER_TOO_SMALL;
    }
    // The stream is the bytes of its chunks one after another, whatever
    // their sizes: a sample may begin in one chunk and end in the next.
    std::uint64_t pos = std::uint64_t(first) * nBlockAlign;
    const std::uint64_t end = pos + std::uint64_t(count) * nBlockAlign;
    std::uint64_t done = 0;
    HRESULT hr = S_OK;
    while (pos < end) {
        if (pos < m_qwAudioCacheStart || pos - m_qwAudioCacheStart >= m_cbAudioCacheBytes) {
            hr = CacheAudioData(static_cast<unsigned int>(pos / nBlockAlign));
            if (SUCCEEDED(hr) && pos % nBlockAlign != 0 &&
                (pos < m_qwAudioCacheStart || pos - m_qwAudioCacheStart >= m_cbAudioCacheBytes))
                hr = cacheAudioBytes(pos);
            if (FAILED(hr))
                break;
            // A chunk read short holds nothing at pos: stop rather than spin.
            if (pos < m_qwAudioCacheStart || pos - m_qwAudioCacheStart >= m_cbAudioCacheBytes) {
                setLastError(L"Failed to read audio data.");
                hr = E_HANDLE_EOF;
                break;
            }
        }
        std::uint64_t n = std::min(end - pos, m_qwAudioCacheStart + m_cbAudioCacheBytes - pos);
        const unsigned char* from = m_AudioBuffer.getBuffer(0) + m_AudioBuffer.getOffset() + (pos - m_qwAudioCacheStart);
        std::memcpy(buf + done, from, static_cast<std::size_t>(n));
        done += n;
        pos += n;
    }
    // What was copied before a failure counts too, in whole samples: a read
    // that runs past the end of the stream still hands over what exists.
    if (offset)
        *offset = 0;
    if (bytes)
        *bytes = static_cast<unsigned int>(done - done % nBlockAlign);
    return hr;
}

HRESULT FileReader::essenceRead(unsigned int first, unsigned int count, unsigned char* buf, unsigned int bufSize,
                                unsigned int* a, unsigned int* b)
{
    if (!isOpen() || !hasIndex() || !ValidStream(m_nCurrentStream))
        return E_INVALID_STATE;
    if (get_IsVideo(m_nCurrentStream)) {
        if (count != 1)
            return E_INVALIDARG;
        return ReadVideo(first, buf, bufSize, a, b);
    }
    if (get_IsAudio(m_nCurrentStream))
        return ReadAudio(first, count, buf, bufSize, a, b);
    return E_UNEXPECTED;
}

HRESULT FileReader::essenceRead(unsigned int first, unsigned int count, unsigned char* buf, unsigned int bufSize,
                                std::vector<unsigned int>& offsets, std::vector<unsigned int>& sizes)
{
    if (!get_IsVideo(m_nCurrentStream)) {
        setLastError(L"Failed to read non video data. ", E_NOTIMPL);
        return E_NOTIMPL;
    }
    return ReadVideo(first, count, buf, bufSize, offsets, sizes);
}

bool FileReader::findKeyframe(unsigned int sample, bool forward, unsigned int& found)
{
    const unsigned int gop = ValidStream(m_nCurrentStream) && m_pAviStreams[m_nCurrentStream].m_nGopLength
                                 ? m_pAviStreams[m_nCurrentStream].m_nGopLength
                                 : m_nMaxGopLength;
    if (gop == 1 && m_nMaxGopLength == 1) {
        found = sample;
        return true;
    }
    if (!ensureSampleInRam(sample)) {
        MORVANE_ASSERT(FALSE);
        return false;
    }
    MORVANE_ASSERT(sample >= m_nIndexStartSample);
    // Across index chunks: a group may begin in the chunk before.
    for (unsigned int s = sample;;) {
        IndexEntry* e = getIndexEntryV(s);
        if (!e)
            return false;
        if (e->frameType < 5) {
            found = s;
            return true;
        }
        if (forward) {
            if (s == 0xFFFFFFFFu)
                return false;
            ++s;
        } else {
            if (s == 0)
                return false;
            --s;
        }
    }
}

bool FileReader::get_NearestKeyFrame(int stream, unsigned int dwFrame, KfSearchType type, unsigned int& found)
{
    if (!ValidStream(stream))
        return false;
    if (m_nCurrentStream != stream && FAILED(essenceOpen(static_cast<unsigned int>(stream))))
        return false;
    if (!hasIndex())
        return false;
    switch (type) {
    case kfBackward:
        return findKeyframe(dwFrame, false, found);
    case kfForward:
        return findKeyframe(dwFrame, true, found);
    case kfNearest: {
        unsigned int dwLeft = 0;
        unsigned int dwRight = 0;
        bool left = findKeyframe(dwFrame, false, dwLeft);
        bool right = findKeyframe(dwFrame, true, dwRight);
        if (left && right) {
            MORVANE_ASSERT(dwLeft <= dwFrame);
            MORVANE_ASSERT(dwRight >= dwFrame);
            found = dwRight - dwFrame < dwFrame - dwLeft ? dwRight : dwLeft;
            return true;
        }
        if (left || right) {
            found = left ? dwLeft : dwRight;
            return true;
        }
        MORVANE_ASSERT(FALSE);
        return false;
    }
    default:
        MORVANE_ASSERT(FALSE);
        return false;
    }
}

unsigned int FileReader::get_GopSize(int stream)
{
    if (!ValidStream(stream))
        return 0;
    if (m_MT.bTemporalCompression == 0 || !get_IsVideo(stream))
        return 1;
    if ((!hasIndex() || m_nCurrentStream != stream) && FAILED(essenceOpen(static_cast<unsigned int>(stream))))
        return 1;
    AviStream& s = m_pAviStreams[stream];
    if (s.m_nGopLength == 0)
        return m_nMaxGopLength;
    // The first chunk's answer, whichever chunk is resident now; a group
    // still open at its end runs on into the next chunk.
    if (s.m_nGopLength > 1 && !s.m_bGopLookedAhead && s.m_SuperIndex.size() > 1 && ensureSampleInRam(0)) {
        s.m_bGopLookedAhead = true;
        std::uint32_t tail = 0;
        while (tail < m_nIndexCount && m_pIndex[m_nIndexCount - 1 - tail].frameType != kFrameTypeKey)
            ++tail;
        const std::uint32_t next = m_nIndexStartSample + m_nResidentLength;
        const std::uint32_t nextEnd = next + std::min(s.m_SuperIndex[1].dwDuration, 0x10000u);
        std::uint32_t run = tail + 1;
        for (std::uint32_t f = next; tail < m_nIndexCount && f < nextEnd; ++f, ++run) {
            IndexEntry* e = getIndexEntryV(f);
            if (!e || e->frameType == kFrameTypeKey)
                break;
        }
        s.m_nGopLength = std::max(s.m_nGopLength, run);
    }
    return s.m_nGopLength;
}

HRESULT FileReader::get_PresentationOrder(unsigned int first, unsigned int count, unsigned int* out)
{
    if (!hasIndex())
        return E_NO_INDEX;
    if (count == 0)
        return S_OK;
    if (m_nMaxGopLength == 1) {
        out[0] = first;
        return S_OK;
    }
    for (unsigned int k = 0; k < count; ++k) {
        unsigned int nSample = first + k;
        IndexEntry* e = getIndexEntryV(nSample);
        if (!e) {
            MORVANE_ASSERT(FALSE);
            return E_FAIL;
        }
        MORVANE_ASSERT(nSample >= m_nIndexStartSample);
        if (m_nMaxGopLength == 1) {
            out[k] = nSample;
            return S_OK;
        }
        out[k] = e->realLocation;
    }
    return S_OK;
}

HRESULT FileReader::getGopAndPresentationOrder(unsigned int keyframe, std::vector<unsigned int>& gopIndexes,
                                               std::vector<unsigned int>& presentation)
{
    if (!hasIndex())
        return E_NO_INDEX;
    for (unsigned int s = keyframe;; ++s) {
        IndexEntry* e = getIndexEntryV(s);
        if (!e) {
            if (s != 0)
                return S_OK;
            setLastError(L"get_GopAndPresentationOrder failed to retrieve index entry.");
            return E_NOT_FOUND;
        }
        if (s == keyframe) {
            if (e->frameType != kFrameTypeKey) {
                setLastError(L"get_GopAndPresentationOrder failed, supplied index is not a keyframe.");
                MORVANE_ASSERT(FALSE);
                return E_FAIL;
            }
        } else if (e->frameType == kFrameTypeKey) {
            return S_OK;
        }
        gopIndexes.push_back(s);
        unsigned int displayNumber = e->displayNumber;
        presentation.push_back(displayNumber);
        if (s == 0xFFFFFFFFu)
            return S_OK;
    }
}

HRESULT FileReader::get_GopAndPresentationOrder(unsigned int keyframe, GOPInfo& info)
{
    std::vector<unsigned int> gop;
    std::vector<unsigned int> order;
    HRESULT hr = getGopAndPresentationOrder(keyframe, gop, order);
    if (FAILED(hr))
        return hr;
    if (info.count_ < gop.size()) {
        MORVANE_ASSERT(0);
        setLastError(L"GetGopAndPresentationOrder failed, insufficient space.");
        return E_INSUFFICIENT_BUFFER;
    }
    if (!gop.empty()) {
        std::copy(gop.begin(), gop.end(), info.GOPIndexes_);
        std::copy(order.begin(), order.end(), info.presentationOrder_);
    }
    info.count_ = gop.size();
    return S_OK;
}

bool FileReader::set_TemporalReordering(bool on)
{
    if (!hasIndex()) {
        MORVANE_ASSERT(FALSE);
        return false;
    }
    if (on == m_bTemporalReordering)
        return true;
    m_bTemporalReordering = on;
    return m_nCurrentStream >= 0 && SUCCEEDED(essenceOpen(static_cast<unsigned int>(m_nCurrentStream)));
}

unsigned int FileReader::get_ApproxDataRate(int stream)
{
    if (!ValidStream(stream))
        return 0;
    const AviStream& s = m_pAviStreams[stream];
    if (get_IsVideo(stream)) {
        unsigned int fps = s.strh.dwScale ? static_cast<unsigned int>(double(s.strh.dwRate) / s.strh.dwScale) : 0;
        unsigned int fromBufferSize = fps * (s.strh.dwSuggestedBufferSize / 1000 * 8);
        static const std::uint32_t fixedRate[] = {
            makeFourCC("YUY2"), makeFourCC("UYVY"), makeFourCC("GIMX"), makeFourCC("dv25"),
            makeFourCC("dvsd"), makeFourCC("dv50"), makeFourCC("M101"), makeFourCC("M102"),
        };
        std::uint32_t fcc = get_FCC(stream);
        if (std::find(std::begin(fixedRate), std::end(fixedRate), fcc) != std::end(fixedRate))
            return fromBufferSize;
        if (m_nCurrentStream != stream)
            essenceOpen(static_cast<unsigned int>(stream));
        if (hasIndex() && m_nCurrentStream == stream && m_nIndexCount > 0) {
            std::uint32_t n = std::min<std::uint32_t>(m_nIndexCount, 20);
            std::uint64_t total = 0;
            for (std::uint32_t i = 0; i < n; ++i)
                total += m_pIndex[i].size;
            unsigned int perFrame = static_cast<unsigned int>(total / n) / 1000 * 8;
            if (perFrame != 0)
                return fps * perFrame;
        }
        return fromBufferSize;
    }
    if (get_IsAudio(stream)) {
        // Through 64 bits: a figure past 32 bits is cut to them rather than
        // converted out of range.
        double rate = double(s.wfx.nBlockAlign) * s.wfx.nSamplesPerSec / 8000.0;
        return static_cast<unsigned int>(static_cast<std::uint64_t>(rate));
    }
    return 0;
}

} // namespace Morvane::Avi
