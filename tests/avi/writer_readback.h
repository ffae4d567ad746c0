#pragma once
// Reads a written file back through our own reader: every video frame and
// every audio byte must be what the writer was given, and a long-GOP
// stream's frame types, display numbers and real locations too.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "writer_support.h"

namespace writertest {

// What one stream of the file was given, in the file's stream order.
struct WrittenStream
{
    std::uint32_t track = 0; // in the array given to create
    bool video = false;
    bool ibp = false; // the writer gave it the frame-type index
    std::uint32_t blockAlign = 0, maxChunk = 0;
    std::vector<std::uint32_t> sizes{}, frameTypes{}, displayNumbers{};
};

struct Written
{
    // Call after create.
    void start(const FileWriter& w, const std::vector<TrackStructuralData>& tracks)
    {
        const auto mapping = w.get_Trackmapping();
        streams.assign(mapping.size(), {});
        for (std::size_t k = 0; k < mapping.size(); ++k) {
            const CStrl* s = w.get_Stream(static_cast<std::uint32_t>(k));
            streams[k].track = mapping[k];
            streams[k].video = s->get_Type() == StreamVideo;
            streams[k].ibp = streams[k].video && s->get_IndexType() == 16;
            streams[k].blockAlign = tracks[mapping[k]].Data.AInfo.blockAlign;
        }
    }

    // Call after each WriteSamples that succeeded, with the same array.
    void add(const TrackData* td)
    {
        for (WrittenStream& s : streams) {
            const TrackData& t = td[s.track];
            s.maxChunk = std::max(s.maxChunk, t.cbData);
            s.sizes.push_back(t.cbData);
            s.frameTypes.push_back(t.dwFrameType);
            s.displayNumbers.push_back(t.dwDisplayNumber);
        }
    }

    // The chunk of stream k for frame f: what writeFrame gives, or `bytes`.
    std::vector<unsigned char> chunk(std::uint32_t k, std::uint32_t f) const
    {
        const WrittenStream& s = streams[k];
        return bytes ? bytes(s.track, f) : payload(s.track, f, s.sizes[f]);
    }

    std::vector<WrittenStream> streams;
    std::function<std::vector<unsigned char>(std::uint32_t track, std::uint32_t f)> bytes;
};

// Writes frame f: track k gets size(k) bytes of payload(k, f), a video
// track also the frame's type and display number; `written` records it.
inline HRESULT writeFrame(FileWriter& w, const std::vector<TrackStructuralData>& tracks, std::uint32_t f,
                          const std::function<std::uint32_t(std::size_t k)>& size, Written* written = nullptr,
                          std::uint32_t type = 4, std::uint32_t display = kDisplayNumberNotGiven)
{
    std::vector<std::vector<unsigned char>> bufs(tracks.size());
    std::vector<TrackData> td(tracks.size());
    for (std::size_t k = 0; k < tracks.size(); ++k) {
        const bool video = tracks[k].Type == StreamVideo;
        bufs[k] = payload(static_cast<std::uint32_t>(k), f, size(k));
        td[k] = {bufs[k].data(), size(k), video ? display : kDisplayNumberNotGiven, video ? type : 4, 0};
    }
    HRESULT hr = w.WriteSamples(td.data(), static_cast<short>(td.size()));
    if (SUCCEEDED(hr) && written)
        written->add(td.data());
    return hr;
}

namespace readback_detail {

constexpr std::uint32_t kRun = 3;          // frames per multi-frame read
constexpr std::uint32_t kAudioPiece = 997; // samples per audio read, so that reads cross chunks

inline void checkVideo(FileReader& r, const Written& w, std::uint32_t k)
{
    const WrittenStream& s = w.streams[k];
    const std::uint32_t n = static_cast<std::uint32_t>(s.sizes.size());
    ASSERT_TRUE(r.get_IsVideo(static_cast<int>(k)));
    ASSERT_EQ(r.get_Length(static_cast<int>(k)), n);
    ASSERT_EQ(r.essenceOpen(k), S_OK) << convertString(r.getLastError());
    // A run spans its frames and every chunk between them; across a RIFF
    // boundary also the idx1 and the next RIFF's index regions.
    std::uint64_t between = 0;
    for (const WrittenStream& other : w.streams)
        between += other.maxChunk + 2ull * 4096 + 8;
    const std::uint64_t riffBoundary = w.streams.size() * (65536ull + 16ull * 8192) + 4ull * 4096;
    std::vector<unsigned char> buf(static_cast<std::size_t>(kRun * between + riffBoundary));
    // The one-frame form is the fault sweep's; reads past the end are the reader tests'.
    for (std::uint32_t f = 0; f < n; f += kRun) {
        const std::uint32_t count = std::min(kRun, n - f);
        std::vector<unsigned int> offsets, sizes;
        ASSERT_EQ(r.ReadVideo(f, count, buf.data(), static_cast<unsigned int>(buf.size()), offsets, sizes), S_OK)
            << "frame " << f << ": " << convertString(r.getLastError());
        ASSERT_TRUE(sizes.size() == count && offsets.size() == count) << "frame " << f;
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::vector<unsigned char> want = w.chunk(k, f + i);
            ASSERT_EQ(sizes[i], want.size()) << "frame " << f + i;
            ASSERT_LE(std::uint64_t(offsets[i]) + sizes[i], buf.size());
            ASSERT_TRUE(std::equal(want.begin(), want.end(), buf.begin() + offsets[i])) << "bytes of frame " << f + i;
        }
    }

    // Frame types, display numbers and the stored frame shown at each
    // place, one index chunk after the other.
    std::vector<std::uint32_t> shownAt(n, 0xFFFFFFFFu);
    for (std::uint32_t f = 0; f < n; ++f) {
        const std::uint32_t place = s.displayNumbers[f] == kDisplayNumberNotGiven ? f : s.displayNumbers[f];
        if (place < n)
            shownAt[place] = f;
    }
    for (std::uint32_t f = 0; f < n; ++f) {
        IndexEntry* e = nullptr;
        ASSERT_EQ(r.get_IndexEntry(f, &e), S_OK) << "frame " << f;
        // By value: the records are packed.
        const std::uint16_t type = e->frameType;
        const std::uint32_t display = e->displayNumber, real = e->realLocation;
        const std::uint32_t given = s.frameTypes[f];
        EXPECT_EQ(type, s.ibp && given > 4 ? given : kFrameTypeKey) << "frame " << f;
        if (s.ibp && s.displayNumbers[f] != kDisplayNumberNotGiven) {
            EXPECT_EQ(display, s.displayNumbers[f]) << "frame " << f;
            EXPECT_EQ(real, shownAt[f]) << "frame " << f;
        }
    }
}

inline void checkAudio(FileReader& r, const Written& w, std::uint32_t k)
{
    const WrittenStream& s = w.streams[k];
    ASSERT_TRUE(r.get_IsAudio(static_cast<int>(k)));
    ASSERT_GT(s.blockAlign, 0u);
    std::vector<unsigned char> audio;
    for (std::uint32_t f = 0; f < s.sizes.size(); ++f) {
        const std::vector<unsigned char> chunk = w.chunk(k, f);
        audio.insert(audio.end(), chunk.begin(), chunk.end());
    }
    const std::uint32_t samples = static_cast<std::uint32_t>(audio.size() / s.blockAlign);
    ASSERT_EQ(r.get_Length(static_cast<int>(k)), samples);
    ASSERT_EQ(r.essenceOpen(k), S_OK) << convertString(r.getLastError());
    std::vector<unsigned char> got(audio.size());
    for (std::uint32_t first = 0; first < samples; first += kAudioPiece) {
        const std::uint32_t count = std::min(kAudioPiece, samples - first);
        unsigned int offset = 1, bytes = 0;
        ASSERT_EQ(r.ReadAudio(first, count, got.data() + std::size_t(first) * s.blockAlign, count * s.blockAlign,
                              &offset, &bytes),
                  S_OK)
            << "sample " << first << ": " << convertString(r.getLastError());
        ASSERT_EQ(offset, 0u);
        ASSERT_EQ(bytes, count * s.blockAlign) << "sample " << first;
    }
    EXPECT_TRUE(got == audio) << "audio stream " << k;
}

} // namespace readback_detail

// Opens the file with our reader and compares every stream with what was written.
inline void expectReadsBack(const std::wstring& path, const Written& w)
{
    SCOPED_TRACE("read back through the reader");
    FileReader r;
    ASSERT_EQ(r.load(path), S_OK) << convertString(r.getLastError());
    ASSERT_EQ(r.get_StreamCount(), w.streams.size());
    for (std::uint32_t k = 0; k < w.streams.size(); ++k) {
        SCOPED_TRACE("stream " + std::to_string(k));
        if (w.streams[k].video)
            readback_detail::checkVideo(r, w, k);
        else
            readback_detail::checkAudio(r, w, k);
    }
}

} // namespace writertest
