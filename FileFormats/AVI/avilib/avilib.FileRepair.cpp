#include "FileFormats/AVI/avilib/avilib.FileRepair.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "FileFormats/AVI/avilib/avilib.FileWriter.h"
#include "FileFormats/common/diskfile.h"
#include "host/iFileSystem.h"
#include "host/iOS.h"

namespace Morvane::Avi {

namespace {

constexpr std::uint32_t kAvihFlagsAt = 20;       // dwFlags, from the chunk header
constexpr std::uint32_t kAvihTotalFramesAt = 24; // dwTotalFrames
constexpr std::uint32_t kStrhLengthAt = 40;      // dwLength
constexpr std::uint32_t kAvifHasIndex = 0x10;
// The most that one repair buffers: a frame, or one stream's audio of a frame.
constexpr std::uint32_t kMaxChunk = 256u << 20;

template <class T>
void append(std::vector<unsigned char>& v, const T& value)
{
    const std::size_t at = v.size();
    v.resize(at + sizeof value);
    std::memcpy(v.data() + at, &value, sizeof value);
}

template <class T>
std::vector<unsigned char> bytesOf(const T& value)
{
    std::vector<unsigned char> v(sizeof value);
    std::memcpy(v.data(), &value, sizeof value);
    return v;
}

std::uint32_t chunkIdOf(unsigned stream, const char* kind)
{
    char id[4] = {static_cast<char>('0' + stream / 10 % 10), static_cast<char>('0' + stream % 10), kind[0], kind[1]};
    std::uint32_t v;
    std::memcpy(&v, id, 4);
    return v;
}

// The stream number of a sample chunk id ("01wb": 1), or -1.
int streamOfId(std::uint32_t id)
{
    unsigned c0 = id & 0xFF, c1 = (id >> 8) & 0xFF;
    if (c0 < '0' || c0 > '9' || c1 < '0' || c1 > '9')
        return -1;
    return int(c0 - '0') * 10 + int(c1 - '0');
}

std::uint32_t blockAlign(const WAVEFORMATEX& wfx)
{
    return wfx.nBlockAlign ? wfx.nBlockAlign : 1;
}

} // namespace

bool FileRepair::readFrom(const Vl::Ptr<iFile>& file, std::uint64_t at, unsigned char* p, std::uint32_t n)
{
    if (!file->setPosition(at))
        return false;
    while (n) {
        std::uint64_t got = file->read(p, n);
        if (got == 0)
            return false;
        p += got;
        n -= static_cast<std::uint32_t>(got);
    }
    return true;
}

std::uint32_t FileRepair::riffOf(std::uint64_t offset) const
{
    std::uint32_t r = 0;
    while (r + 1 < m_Riffs.size() && m_Riffs[r + 1].riff < offset)
        ++r;
    return r;
}

HRESULT FileRepair::open(const std::wstring& path)
{
    *this = FileRepair();
    m_sPath = path;
    FileReader reader;
    reader.set_WalkChunks(true);
    HRESULT hr = reader.load(path);
    if (FAILED(hr)) {
        setLastError(reader.getLastError().empty() ? L"cannot read the file" : reader.getLastError());
        return hr;
    }
    m_qwFileSize = reader.getSize();
    const int streams = static_cast<int>(reader.get_StreamCount());
    for (int n = 0; n < streams && m_nVideo < 0; ++n)
        if (reader.get_IsVideo(n))
            m_nVideo = n;
    if (m_nVideo < 0) {
        setLastError(L"no video stream (files of audio alone are not repaired)");
        return E_NOT_SUPPORTED;
    }
    const std::vector<IndexEntry>* frames = reader.get_WalkedEntries(m_nVideo);
    if (!frames || frames->empty()) {
        setLastError(L"no whole video frame in the file: nothing to keep");
        return E_FAIL;
    }
    // Everything up to the end of the last whole frame is kept.
    const IndexEntry& last = frames->back();
    const std::uint64_t cut = last.offset + last.size;
    m_qwKeptEnd = cut + (last.size & 1);
    m_qwAvihPosition = reader.get_AvihPosition();
    m_qwDmlhPosition = reader.get_DmlhPosition();
    m_dwAvihFlags = reader.get_MainHeader().dwFlags;
    if (m_qwAvihPosition == 0) {
        setLastError(L"the header has no avih");
        return E_FAIL;
    }

    m_Streams.resize(static_cast<std::size_t>(streams));
    Vl::Ptr<iFile> file = OS().fileSystem().open(path, iFile::eRead, iFile::eOpenExisting, iFile::eShareReadWrite,
                                                 iFile::eNone);
    if (!file) {
        setLastError(L"cannot open the file", errno);
        return E_FAIL;
    }
    int firstAudio = -1;
    for (int n = 0; n < streams; ++n) {
        const AviStream* in = reader.get_Stream(n);
        Stream& s = m_Streams[static_cast<std::size_t>(n)];
        s.bVideo = reader.get_IsVideo(n);
        s.bAudio = reader.get_IsAudio(n);
        s.strh = in->strh;
        s.bih = in->bih;
        s.wfx = in->wfx;
        if (s.bVideo && in->m_pStreamFormatExtra)
            s.m_Extra.assign(in->m_pStreamFormatExtra, in->m_pStreamFormatExtra + in->m_cbStreamFormatExtra);
        s.m_qwStrhPosition = in->m_qwStrhPosition;
        s.m_qwIndxPosition = in->m_qwIndxPosition ? in->m_qwIndxPosition : in->m_qwStrfJunkPosition;
        s.m_cbIndxSize = in->m_qwIndxPosition ? in->m_cbIndxSize : in->m_cbStrfJunkSize;
        s.m_bIndxFromJunk = !in->m_qwIndxPosition && in->m_qwStrfJunkPosition;
        s.m_dwChunkId = chunkIdOf(static_cast<unsigned>(n), s.bAudio ? "wb" : "dc");
        if (s.bAudio && firstAudio < 0)
            firstAudio = n;
        const std::vector<IndexEntry>* entries = reader.get_WalkedEntries(n);
        if (!entries)
            continue;
        // Audio is kept by time: every whole chunk that begins before the
        // last frame ends, wherever a writer put it beside its frame.
        const AVISTREAMHEADER& vh = reader.get_Stream(m_nVideo)->strh;
        const double videoEnd = vh.dwRate ? double(frames->size()) * vh.dwScale / vh.dwRate : 0.0;
        const bool byTime = s.bAudio && s.wfx.nAvgBytesPerSec && videoEnd > 0.0;
        std::uint64_t audioBytes = 0;
        for (const IndexEntry& e : *entries) {
            const bool keep = byTime ? double(audioBytes) / s.wfx.nAvgBytesPerSec < videoEnd : e.offset < cut;
            if (keep) {
                s.m_Kept.push_back(e);
                audioBytes += e.size;
                m_qwKeptEnd = std::max(m_qwKeptEnd, e.offset + e.size + (e.size & 1));
            } else if (n == firstAudio) {
                ++m_Summary.audioChunksAfterLastFrame;
            }
        }
        // The id the stream's chunks really have ("00db" or "00dc").
        unsigned char id[4];
        if (!s.m_Kept.empty() && readFrom(file, s.m_Kept.front().offset - sizeof(RIFFCHUNK), id, 4))
            std::memcpy(&s.m_dwChunkId, id, 4);
    }

    const std::vector<WalkedRiff>& riffs = reader.get_WalkedRiffs();
    for (const WalkedRiff& r : riffs)
        if (r.riff < m_qwKeptEnd)
            m_Riffs.push_back(r);
    m_MoviSizes.assign(m_Riffs.size(), 0);
    for (std::size_t r = 0; r < m_Riffs.size(); ++r) {
        unsigned char size[4];
        if (m_Riffs[r].movi == 0 || !readFrom(file, m_Riffs[r].movi + 4, size, 4)) {
            setLastError(L"RIFF at " + std::to_wstring(m_Riffs[r].riff) + L" has no movi list");
            return E_FAIL;
        }
        std::memcpy(&m_MoviSizes[r], size, 4);
    }

    m_Summary.frames = static_cast<std::uint32_t>(m_Streams[static_cast<std::size_t>(m_nVideo)].m_Kept.size());
    if (firstAudio >= 0) {
        const Stream& a = m_Streams[static_cast<std::size_t>(firstAudio)];
        m_Summary.hasAudio = true;
        m_Summary.audioBytesPerSec = a.wfx.nAvgBytesPerSec;
        for (const IndexEntry& e : a.m_Kept)
            m_Summary.audioBytes += e.size;
    }
    int cutStream = reader.get_WalkCutId() ? streamOfId(reader.get_WalkCutId()) : -1;
    if (cutStream >= 0 && cutStream < streams) {
        if (m_Streams[static_cast<std::size_t>(cutStream)].bVideo)
            m_Summary.partialFrames = 1;
        else if (m_Streams[static_cast<std::size_t>(cutStream)].bAudio)
            m_Summary.partialAudioChunks = 1;
    }
    return S_OK;
}

// The chunks that go after the last kept one (ix## per stream per RIFF in
// the last movi, then an idx1 when the file never left its first RIFF, then
// a JUNK over what is left of the old bytes), and the header fields.
bool FileRepair::planIndexes(std::vector<Patch>& first, std::vector<Patch>& patches)
{
    std::vector<unsigned char> tail;
    const std::uint32_t riffs = static_cast<std::uint32_t>(m_Riffs.size());
    const bool several = riffs > 1;
    const std::uint64_t at = m_qwKeptEnd;
    const std::uint64_t firstMovi = m_Riffs.front().movi;

    for (std::size_t k = 0; k < m_Streams.size(); ++k) {
        Stream& s = m_Streams[k];
        if (!s.bVideo && !s.bAudio)
            continue;
        // A stream's indx is rewritten whenever it has one: an indx left by a
        // writer that was killed names index chunks that cover only part.
        const bool hasIndx = s.m_qwIndxPosition != 0 && !s.m_bIndxFromJunk;
        if (!several && !hasIndx)
            continue;
        std::vector<std::vector<const IndexEntry*>> perRiff(riffs);
        for (const IndexEntry& e : s.m_Kept)
            perRiff[riffOf(e.offset)].push_back(&e);
        std::uint32_t needed = 0;
        for (const auto& v : perRiff)
            needed += v.empty() ? 0 : 1;
        const std::uint32_t room =
            s.m_cbIndxSize >= sizeof(AVISUPERINDEX) - sizeof(RIFFCHUNK)
                ? (s.m_cbIndxSize - std::uint32_t(sizeof(AVISUPERINDEX) - sizeof(RIFFCHUNK))) / sizeof(AVISUPERINDEX_ENTRY)
                : 0;
        if (needed == 0 && s.m_qwIndxPosition == 0)
            continue;
        if (s.m_qwIndxPosition == 0 || needed > room || s.m_qwIndxPosition >= firstMovi) {
            setLastError(L"stream " + std::to_wstring(k) + L" has no room for an index of its " +
                         std::to_wstring(riffs) + L" RIFFs: " + std::to_wstring(needed) + L" entries needed, " +
                         std::to_wstring(s.m_qwIndxPosition ? room : 0) + L" available");
            return false;
        }
        AVISUPERINDEX head = {ckid::indx, s.m_cbIndxSize, 4, 0, AVI_INDEX_OF_INDEXES, needed, s.m_dwChunkId, {}};
        Patch indx{s.m_qwIndxPosition, bytesOf(head)};
        char ixId[5] = "ix00";
        ixId[2] = static_cast<char>('0' + k / 10 % 10);
        ixId[3] = static_cast<char>('0' + k % 10);
        for (std::uint32_t r = 0; r < riffs; ++r) {
            const std::vector<const IndexEntry*>& v = perRiff[r];
            if (v.empty())
                continue;
            const std::uint64_t base = m_Riffs[r].movi;
            const std::uint32_t n = static_cast<std::uint32_t>(v.size());
            AVISTDINDEX ix = {makeFourCC(ixId), std::uint32_t(sizeof(AVISTDINDEX) - sizeof(RIFFCHUNK)) + 8u * n, 2, 0,
                              AVI_INDEX_OF_CHUNKS, n, s.m_dwChunkId, base, 0};
            AVISUPERINDEX_ENTRY entry = {at + tail.size(), std::uint32_t(sizeof(AVISTDINDEX)) + 8u * n, 0};
            append(tail, ix);
            std::uint64_t bytes = 0;
            for (const IndexEntry* e : v) {
                if (e->offset - base > 0xFFFFFFFFu) {
                    setLastError(L"a chunk at " + std::to_wstring(e->offset) + L" lies too far from its movi list");
                    return false;
                }
                append(tail, AVISTDINDEX_ENTRY{static_cast<std::uint32_t>(e->offset - base), e->size});
                bytes += e->size;
            }
            entry.dwDuration = s.bAudio ? static_cast<std::uint32_t>(bytes / blockAlign(s.wfx)) : n;
            append(indx.bytes, entry);
        }
        patches.push_back(std::move(indx));
    }
    const std::uint64_t moviEnd = at + tail.size();

    if (!several) {
        // idx1 offsets count from the "movi" word; in file order.
        std::vector<INDEXENTRY> records;
        for (const Stream& s : m_Streams)
            for (const IndexEntry& e : s.m_Kept) {
                const std::uint64_t rel = e.offset - sizeof(RIFFCHUNK) - (firstMovi + 8);
                if (rel > 0xFFFFFFFFu) {
                    setLastError(L"a chunk at " + std::to_wstring(e.offset) + L" lies too far for an idx1");
                    return false;
                }
                records.push_back(INDEXENTRY{s.m_dwChunkId, AVIIF_KEYFRAME, static_cast<std::uint32_t>(rel), e.size});
            }
        std::stable_sort(records.begin(), records.end(),
                         [](const INDEXENTRY& a, const INDEXENTRY& b) { return a.dwOffset < b.dwOffset; });
        append(tail, RIFFCHUNK{ckid::idx1, static_cast<std::uint32_t>(records.size() * sizeof(INDEXENTRY))});
        for (const INDEXENTRY& e : records)
            append(tail, e);
    }
    // What is left of the old bytes after the new chunks becomes a JUNK, so
    // that the last RIFF ends where the file does.
    const std::uint64_t end = at + tail.size();
    std::uint64_t fileEnd = std::max(m_qwFileSize, end);
    if (end < m_qwFileSize) {
        std::uint64_t junk = m_qwFileSize - end >= 8 ? m_qwFileSize - end - 8 : 0;
        if (junk > 0xFFFFFFFEu) {
            setLastError(L"the bytes after the last frame are over 4 GiB");
            return false;
        }
        append(tail, RIFFCHUNK{ckid::JUNK, static_cast<std::uint32_t>(junk + (junk & 1))});
        fileEnd = std::max(m_qwFileSize, end + 8);
        // An odd JUNK's pad byte lies past the old end.
        if (junk & 1) {
            first.push_back({m_qwFileSize, {0}});
            ++fileEnd;
        }
    }
    first.insert(first.begin(), Patch{at, std::move(tail)});

    // Lengths.
    for (const Stream& s : m_Streams) {
        if ((!s.bVideo && !s.bAudio) || s.m_qwStrhPosition == 0)
            continue;
        std::uint64_t length = s.m_Kept.size();
        if (s.bAudio) {
            std::uint64_t bytes = 0;
            for (const IndexEntry& e : s.m_Kept)
                bytes += e.size;
            length = bytes / blockAlign(s.wfx);
        }
        patches.push_back({s.m_qwStrhPosition + kStrhLengthAt,
                           bytesOf(static_cast<std::uint32_t>(std::min<std::uint64_t>(length, 0xFFFFFFFFu)))});
    }
    patches.push_back({m_qwAvihPosition + kAvihTotalFramesAt, bytesOf(m_Summary.frames)});
    if (!several)
        patches.push_back({m_qwAvihPosition + kAvihFlagsAt, bytesOf(m_dwAvihFlags | kAvifHasIndex)});
    if (m_qwDmlhPosition)
        patches.push_back({m_qwDmlhPosition + 8, bytesOf(m_Summary.frames)});

    // Sizes: the RIFFs before the last end where the next begins; the last
    // movi ends after the new index chunks, the last RIFF with the file.
    std::vector<std::uint64_t> lastEnd(riffs, 0);
    for (const Stream& s : m_Streams)
        for (const IndexEntry& e : s.m_Kept) {
            std::uint64_t& v = lastEnd[riffOf(e.offset)];
            v = std::max(v, e.offset + e.size + (e.size & 1));
        }
    for (std::uint32_t r = 0; r + 1 < riffs; ++r) {
        const std::uint64_t next = m_Riffs[r + 1].riff;
        patches.push_back({m_Riffs[r].riff + 4, bytesOf(static_cast<std::uint32_t>(next - m_Riffs[r].riff - 8))});
        // A movi that a killed writer left unsized ends after its last chunk.
        const std::uint64_t moviEnd = m_Riffs[r].movi + 8 + m_MoviSizes[r];
        if (moviEnd < lastEnd[r] || moviEnd > next)
            patches.push_back({m_Riffs[r].movi + 4,
                               bytesOf(static_cast<std::uint32_t>(std::max(lastEnd[r], m_Riffs[r].movi + 12) -
                                                                  m_Riffs[r].movi - 8))});
    }
    const WalkedRiff& lastRiff = m_Riffs.back();
    if (fileEnd - lastRiff.riff - 8 > 0xFFFFFFFFu || moviEnd - lastRiff.movi - 8 > 0xFFFFFFFFu) {
        setLastError(L"the last RIFF would be over 4 GiB");
        return false;
    }
    patches.push_back({lastRiff.movi + 4, bytesOf(static_cast<std::uint32_t>(moviEnd - lastRiff.movi - 8))});
    patches.push_back({lastRiff.riff + 4, bytesOf(static_cast<std::uint32_t>(fileEnd - lastRiff.riff - 8))});
    return true;
}

HRESULT FileRepair::repairInPlace()
{
    if (m_Riffs.empty()) {
        setLastError(L"no file opened");
        return E_INVALID_STATE;
    }
    std::vector<Patch> first, patches;
    if (!planIndexes(first, patches))
        return E_FAIL;
    Vl::Ptr<iFile> file =
        OS().fileSystem().open(m_sPath, iFile::eWrite, iFile::eOpenExisting, iFile::eShareRead, iFile::eNone);
    if (!file) {
        setLastError(L"cannot open the file for writing", errno);
        return E_FAIL;
    }
    // The indexes first, over bytes that are dropped anyway; the sizes that
    // make them part of the file only once they are on the disk.
    for (const Patch& p : first)
        if (!file->setPosition(p.at) || !file->write(p.bytes.data(), p.bytes.size())) {
            setLastError(L"cannot write the index at " + std::to_wstring(p.at), errno);
            return E_FAIL;
        }
    if (!file->sync()) {
        setLastError(L"cannot write the index", errno);
        return E_FAIL;
    }
    for (const Patch& p : patches)
        if (!file->setPosition(p.at) || !file->write(p.bytes.data(), p.bytes.size())) {
            setLastError(L"cannot write the header at " + std::to_wstring(p.at), errno);
            return E_FAIL;
        }
    if (!file->sync()) {
        setLastError(L"cannot write the header", errno);
        return E_FAIL;
    }
    return S_OK;
}

HRESULT FileRepair::writeTo(const std::wstring& out)
{
    if (m_nVideo < 0) {
        setLastError(L"no file opened");
        return E_INVALID_STATE;
    }
    // The writer takes one video stream, first, and the audio streams after it.
    std::vector<int> order = {m_nVideo};
    for (std::size_t k = 0; k < m_Streams.size(); ++k)
        if (m_Streams[k].bAudio)
            order.push_back(static_cast<int>(k));
    std::vector<TrackStructuralData> tracks(order.size());
    for (std::size_t t = 0; t < order.size(); ++t) {
        const Stream& s = m_Streams[static_cast<std::size_t>(order[t])];
        TrackStructuralData& d = tracks[t];
        if (s.bVideo) {
            if (s.m_Extra.size() > 0xFFFF) {
                setLastError(L"the video format's extra data is too large to copy");
                return E_NOT_SUPPORTED;
            }
            d.Type = StreamVideo;
            d.Data.VInfo.width = static_cast<std::uint32_t>(s.bih.biWidth);
            d.Data.VInfo.height = static_cast<std::uint32_t>(s.bih.biHeight < 0 ? -s.bih.biHeight : s.bih.biHeight);
            d.Data.VInfo.bitCount = s.bih.biBitCount;
            d.Data.VInfo.fourcc = s.bih.biCompression;
            d.Data.VInfo.rate = s.strh.dwRate;
            d.Data.VInfo.scale = s.strh.dwScale;
            d.Data.VInfo.aspectRatio = 0x00010001;
            d.pExtraData = s.m_Extra.empty() ? nullptr : const_cast<unsigned char*>(s.m_Extra.data());
            d.cbExtra = static_cast<std::uint16_t>(s.m_Extra.size());
        } else {
            d.Type = StreamAudio;
            AudioTrackInfo& a = d.Data.AInfo;
            a.formatTag = s.wfx.wFormatTag;
            a.channels = s.wfx.nChannels;
            a.samplesPerSec = s.wfx.nSamplesPerSec;
            a.bitsPerSample = s.wfx.wBitsPerSample;
            a.blockAlign = s.wfx.nBlockAlign;
            a.avgBytesPerSec = s.wfx.nAvgBytesPerSec;
        }
    }
    Vl::Ptr<iFile> in =
        OS().fileSystem().open(m_sPath, iFile::eRead, iFile::eOpenExisting, iFile::eShareReadWrite, iFile::eNone);
    if (!in) {
        setLastError(L"cannot open the file", errno);
        return E_FAIL;
    }
    FileWriter writer;
    HRESULT hr = writer.create(out, tracks.data(), static_cast<std::uint16_t>(tracks.size()));
    auto fail = [&](const std::wstring& why, HRESULT code) {
        setLastError(why);
        writer.close();
        Pell::CDiskFile::remove(out);
        return code;
    };
    if (FAILED(hr))
        return fail(L"cannot create the file: " + writer.getLastError(), hr);

    const std::vector<IndexEntry>& frames = m_Streams[static_cast<std::size_t>(m_nVideo)].m_Kept;
    std::vector<std::vector<unsigned char>> buffers(order.size());
    std::vector<std::size_t> next(order.size(), 0); // each audio stream's next chunk
    std::vector<TrackData> td(order.size());
    for (std::size_t f = 0; f < frames.size(); ++f) {
        // A frame takes the audio up to the next frame; the first also what
        // came before it.
        const std::uint64_t until = f + 1 < frames.size() ? frames[f + 1].offset : UINT64_MAX;
        for (std::size_t t = 0; t < order.size(); ++t) {
            const Stream& s = m_Streams[static_cast<std::size_t>(order[t])];
            std::vector<unsigned char>& buf = buffers[t];
            buf.clear();
            auto add = [&](const IndexEntry& e) {
                if (e.size > kMaxChunk - buf.size())
                    return false;
                const std::size_t was = buf.size();
                buf.resize(was + e.size);
                return readFrom(in, e.offset, buf.data() + was, e.size);
            };
            bool ok = true;
            if (s.bVideo)
                ok = add(frames[f]);
            else
                for (; ok && next[t] < s.m_Kept.size() && s.m_Kept[next[t]].offset < until; ++next[t])
                    ok = add(s.m_Kept[next[t]]);
            if (!ok)
                return fail(L"cannot read the chunks of frame " + std::to_wstring(f), E_FAIL);
            td[t] = {buf.data(), static_cast<std::uint32_t>(buf.size()), kDisplayNumberNotGiven, 4, 0};
        }
        hr = writer.WriteSamples(td.data(), static_cast<short>(td.size()));
        if (FAILED(hr))
            return fail(L"cannot write frame " + std::to_wstring(f) + L": " + writer.getLastError(), hr);
    }
    hr = writer.finish();
    if (FAILED(hr))
        return fail(L"cannot complete the file: " + writer.getLastError(), hr);
    return S_OK;
}

} // namespace Morvane::Avi
