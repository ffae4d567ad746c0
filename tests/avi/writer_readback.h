#pragma once
// Reads a written file back through our own reader: every video frame and
// every audio byte must be what the writer was given, and a long-GOP
// stream's frame types, display numbers and presentation order too.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "util/stringUtils.h"
#include "writer_support.h"

namespace writertest {

// What one stream of the file was given, in the file's stream order.
struct WrittenStream
{
    bool video = false;
    bool ibp = false;            // the writer gave it the frame-type index
    std::uint32_t blockAlign = 0; // audio
    std::uint32_t maxChunk = 0;
    std::vector<std::uint32_t> sizes;               // chunk sizes
    std::vector<std::vector<unsigned char>> frames; // video bytes, when kept
    std::vector<std::uint32_t> frameTypes;          // as given
    std::vector<std::uint32_t> displayNumbers;      // as given
    std::vector<unsigned char> audio;               // the stream's bytes, all chunks in order, when kept
};

class Written
{
public:
    // Call after create: takes the writer's track-to-stream mapping. With
    // keepBytes false only sizes are kept and `bytes` must give the chunks.
    void start(const FileWriter& w, const std::vector<TrackStructuralData>& tracks, bool keepBytes = true)
    {
        mapping_ = w.get_Trackmapping();
        keepBytes_ = keepBytes;
        streams.assign(mapping_.size(), {});
        for (std::size_t k = 0; k < mapping_.size(); ++k) {
            const CStrl* s = w.get_Stream(static_cast<std::uint32_t>(k));
            streams[k].video = s->get_Type() == StreamVideo;
            streams[k].ibp = streams[k].video && s->get_IndexType() == 16;
            streams[k].blockAlign = tracks[mapping_[k]].Data.AInfo.blockAlign;
        }
    }

    // Call after each WriteSamples that succeeded, with the same array.
    void add(const TrackData* td)
    {
        for (std::size_t k = 0; k < mapping_.size(); ++k) {
            const TrackData& t = td[mapping_[k]];
            WrittenStream& s = streams[k];
            s.maxChunk = std::max(s.maxChunk, t.cbData);
            s.sizes.push_back(t.cbData);
            if (s.video) {
                s.frameTypes.push_back(t.dwFrameType);
                s.displayNumbers.push_back(t.dwDisplayNumber);
                if (keepBytes_)
                    s.frames.emplace_back(t.pData, t.pData + t.cbData);
            } else if (keepBytes_) {
                s.audio.insert(s.audio.end(), t.pData, t.pData + t.cbData);
            }
        }
    }

    std::vector<WrittenStream> streams;
    // The chunk of stream k for frame f when the bytes were not kept.
    std::function<std::vector<unsigned char>(std::uint32_t k, std::uint32_t f)> bytes;

private:
    std::vector<std::uint16_t> mapping_;
    bool keepBytes_ = true;
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

inline std::string text(const std::wstring& s)
{
    return Morvane::convertString(s);
}

inline std::uint16_t readerType(std::uint32_t given)
{
    return given > 4 ? static_cast<std::uint16_t>(given) : kFrameTypeKey;
}

inline void checkVideo(FileReader& r, const Written& w, std::uint32_t k)
{
    const WrittenStream& s = w.streams[k];
    const std::uint32_t n = static_cast<std::uint32_t>(s.sizes.size());
    ASSERT_TRUE(r.get_IsVideo(static_cast<int>(k)));
    ASSERT_EQ(r.get_Length(static_cast<int>(k)), n);
    ASSERT_EQ(r.essenceOpen(k), S_OK) << text(r.getLastError());
    if (n == 0)
        return;
    // A run spans its frames and every chunk between them; across a RIFF
    // boundary also the idx1 and the next RIFF's index regions.
    std::uint64_t between = 0;
    for (const WrittenStream& other : w.streams)
        between += other.maxChunk + 2ull * 4096 + 8;
    const std::uint64_t riffBoundary = w.streams.size() * (65536ull + 16ull * 8192) + 4ull * 4096;
    std::vector<unsigned char> buf(static_cast<std::size_t>(kRun * between + riffBoundary));
    std::vector<unsigned char> expected;
    for (std::uint32_t f = 0; f < n; f += kRun) {
        const std::uint32_t count = std::min(kRun, n - f);
        std::vector<unsigned int> offsets, sizes;
        ASSERT_EQ(r.ReadVideo(f, count, buf.data(), static_cast<unsigned int>(buf.size()), offsets, sizes), S_OK)
            << "frame " << f << ": " << text(r.getLastError());
        ASSERT_EQ(sizes.size(), count) << "frame " << f;
        ASSERT_EQ(offsets.size(), count) << "frame " << f;
        for (std::uint32_t i = 0; i < count; ++i) {
            ASSERT_EQ(sizes[i], s.sizes[f + i]) << "frame " << f + i;
            ASSERT_LE(std::uint64_t(offsets[i]) + sizes[i], buf.size());
            const std::vector<unsigned char>& want = s.frames.empty() ? (expected = w.bytes(k, f + i), expected)
                                                                      : s.frames[f + i];
            ASSERT_EQ(want.size(), sizes[i]);
            ASSERT_TRUE(std::equal(want.begin(), want.end(), buf.begin() + offsets[i]))
                << "bytes of frame " << f + i;
        }
    }
    // The one-frame form is the fault sweep's; here only past the end.
    unsigned int offset = 0, size = 0;
    EXPECT_EQ(r.ReadVideo(n, buf.data(), static_cast<unsigned int>(buf.size()), &offset, &size), E_HANDLE_EOF);

    // Frame types and display numbers as given, one index chunk after the other.
    for (std::uint32_t f = 0; f < n; ++f) {
        IndexEntry* e = nullptr;
        ASSERT_EQ(r.get_IndexEntry(f, &e), S_OK) << "frame " << f;
        // By value: the records are packed.
        const std::uint16_t gotType = e->frameType;
        const std::uint32_t gotDisplay = e->displayNumber;
        const std::uint16_t type = s.ibp ? readerType(s.frameTypes[f]) : kFrameTypeKey;
        EXPECT_EQ(gotType, type) << "frame " << f;
        if (s.ibp && s.displayNumbers[f] != kDisplayNumberNotGiven) {
            EXPECT_EQ(gotDisplay, s.displayNumbers[f]) << "frame " << f;
        }
    }
    if (!s.ibp)
        return;

    // Presentation order: the stored frame shown at each place.
    std::map<std::uint32_t, std::uint32_t> storedAt;
    for (std::uint32_t f = 0; f < n; ++f)
        storedAt[s.displayNumbers[f] == kDisplayNumberNotGiven ? f : s.displayNumbers[f]] = f;
    std::vector<std::uint32_t> real;
    for (std::uint32_t p = 0; p < n; ++p) {
        auto it = storedAt.find(p);
        if (it == storedAt.end())
            return; // not a permutation: nothing to compare with
        real.push_back(it->second);
    }
    ASSERT_EQ(r.essenceOpen(k), S_OK);
    if (r.get_MaxGopLength() > 1) {
        std::vector<unsigned int> order(n, 0xFFFFFFFFu);
        ASSERT_EQ(r.get_PresentationOrder(0, n, order.data()), S_OK);
        for (std::uint32_t p = 0; p < n; ++p)
            EXPECT_EQ(order[p], real[p]) << "place " << p;
    }
}

inline void checkAudio(FileReader& r, const Written& w, std::uint32_t k)
{
    const WrittenStream& s = w.streams[k];
    ASSERT_TRUE(r.get_IsAudio(static_cast<int>(k)));
    ASSERT_GT(s.blockAlign, 0u);
    std::vector<unsigned char> made;
    if (s.audio.empty() && w.bytes) {
        for (std::uint32_t f = 0; f < s.sizes.size(); ++f) {
            std::vector<unsigned char> chunk = w.bytes(k, f);
            made.insert(made.end(), chunk.begin(), chunk.end());
        }
    }
    const std::vector<unsigned char>& audio = made.empty() ? s.audio : made;
    const std::uint32_t samples = static_cast<std::uint32_t>(audio.size() / s.blockAlign);
    ASSERT_EQ(r.get_Length(static_cast<int>(k)), samples);
    ASSERT_EQ(r.essenceOpen(k), S_OK) << text(r.getLastError());
    std::vector<unsigned char> got(audio.size());
    for (std::uint32_t first = 0; first < samples; first += kAudioPiece) {
        const std::uint32_t count = std::min(kAudioPiece, samples - first);
        unsigned int offset = 1, bytes = 0;
        ASSERT_EQ(r.ReadAudio(first, count, got.data() + std::size_t(first) * s.blockAlign,
                              count * s.blockAlign, &offset, &bytes),
                  S_OK)
            << "sample " << first << ": " << text(r.getLastError());
        ASSERT_EQ(offset, 0u);
        ASSERT_EQ(bytes, count * s.blockAlign) << "sample " << first;
    }
    EXPECT_TRUE(got == audio) << "audio stream " << k;
    unsigned char one[64];
    EXPECT_EQ(r.ReadAudio(samples, 1, one, sizeof(one), nullptr, nullptr), E_HANDLE_EOF);
}

} // namespace readback_detail

// Opens the file with our reader and compares every stream with what was written.
inline void expectReadsBack(const std::wstring& path, const Written& w)
{
    SCOPED_TRACE("read back through the reader");
    FileReader r;
    ASSERT_EQ(r.load(path), S_OK) << readback_detail::text(r.getLastError());
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
