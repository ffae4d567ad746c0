// Feeds arbitrary index data to the index loaders: a fixed, valid header of
// one video and one audio stream, then either an idx1 or an OpenDML super
// index whose entries and standard index chunks come from the input.
//
// Input: flags (1 byte), a count (4), a stream length (4), then the rest,
// split: the first part gives super index entries (OpenDML only), the
// second is the movi data (where ix## chunks and frames lie), and for idx1
// all of the rest is also the idx1 chunk.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "FuzzInput.h"
#include "avi/reader_builder.h"

using Morvane::Avi::FileReader;
using namespace readertest;

namespace {

enum Flags : std::uint8_t
{
    kOpenDml = 1,
    kAudioIndexed = 2,   // the super index belongs to the audio stream
    kRawOffsets = 4,     // super index offsets as given, not folded into movi
    kReorder = 8,        // temporal reordering on
    kOwnIdx1Size = 16,   // the count is the idx1 chunk's size field
};

volatile std::uint64_t g_sink;

std::uint32_t u32(const std::uint8_t* p)
{
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

Bytes buildFile(const std::uint8_t* data, std::size_t size)
{
    std::uint8_t flags = data[0];
    std::uint32_t count = u32(data + 1);
    std::uint32_t length = u32(data + 5);
    const std::uint8_t* rest = data + 9;
    std::size_t restSize = size - 9;
    std::size_t split = (flags & kOpenDml) ? std::min<std::size_t>(restSize, 16 * std::size_t(rest[0] % 16)) : 0;

    RiffBuilder b;
    std::size_t riff = b.begin("RIFF", "AVI ");
    std::size_t hdrl = b.begin("LIST", "hdrl");
    b.record(mainHeader(2, length));
    std::size_t superAt[2] = {0, 0};
    for (int s = 0; s < 2; ++s) {
        std::size_t strl = b.begin("LIST", "strl");
        if (s == 0) {
            b.record(streamHeader("vids", "dvsd", 25, 1, length));
            b.chunk("strf", bytesOf(videoFormat("dvsd")));
        } else {
            b.record(streamHeader("auds", "\0\0\0\0", 48000, 1, length));
            b.chunk("strf", bytesOf(pcm(2, 16, 48000)));
        }
        bool indexed = (flags & kOpenDml) && ((flags & kAudioIndexed) ? s == 1 : s == 0);
        if (indexed) {
            b.fcc("indx");
            b.put(std::uint32_t(24 + split));
            b.put(std::uint16_t(4));
            b.put(std::uint8_t(0));
            b.put(std::uint8_t(AVI_INDEX_OF_INDEXES));
            b.put(count);
            b.fcc(s == 0 ? "00dc" : "01wb");
            b.put(std::uint32_t(0));
            b.put(std::uint32_t(0));
            b.put(std::uint32_t(0));
            superAt[s] = b.pos();
            b.putBytes(Bytes(rest, rest + split));
        }
        b.end(strl);
    }
    b.end(hdrl);
    std::size_t movi = b.begin("LIST", "movi");
    std::size_t moviData = b.pos();
    b.putBytes(Bytes(rest + split, rest + restSize));
    b.end(movi);
    if (!(flags & kOpenDml)) {
        std::size_t idx1 = b.chunk("idx1", Bytes(rest, rest + restSize));
        if (flags & kOwnIdx1Size)
            put32(b.bytes(), idx1 + 4, count);
    }
    b.end(riff);
    // Super index entries point into movi unless the input asks for its own offsets.
    std::size_t moviLength = b.pos() - moviData + 16;
    for (std::size_t at : superAt) {
        if (!at || (flags & kRawOffsets))
            continue;
        for (std::size_t e = 0; e + 16 <= split; e += 16) {
            std::uint64_t q;
            std::memcpy(&q, &b.bytes()[at + e], 8);
            put64(b.bytes(), at + e, moviData + q % moviLength);
        }
    }
    return b.bytes();
}

void exercise(FileReader& r, int stream, std::vector<unsigned char>& buf)
{
    unsigned length = std::min(r.get_Length(stream), 512u);
    for (unsigned sample = 0; sample < length; sample += 1 + sample / 16) {
        if (r.get_Stream(stream)->m_SuperIndex.empty()) {
            r.LoadIDX1(stream);
        } else if (!r.LoadINDX(stream, sample)) {
            continue;
        }
        Morvane::Avi::IndexEntry* e = nullptr;
        if (SUCCEEDED(r.get_IndexEntry(sample, &e)) && e)
            g_sink = g_sink + e->size + e->offset;
        if (auto* v = r.getIndexEntryV(sample))
            g_sink = g_sink + v->size;
        unsigned left = 0, start = 0;
        if (auto* a = r.getIndexEntryA(sample, left, start))
            g_sink = g_sink + a->size + left + start;
        unsigned offset = 0, got = 0;
        r.essenceRead(sample, r.get_IsVideo(stream) ? 1 : 7, buf.data(), static_cast<unsigned>(buf.size()), &offset,
                      &got);
        unsigned key = 0;
        r.get_NearestKeyFrame(stream, sample, FileReader::kfNearest, key);
        g_sink = g_sink + r.get_IndexCount() + r.get_ResidentLength() + r.get_MaxGopLength() + key;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::quietStdout();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 10)
        return 0;
    Bytes bytes = buildFile(data, size);
    std::uint32_t sector = fuzz::sectorSizeOf(data, size);
    fuzz::ScratchFile file("index", sector);
    if (!file.write(bytes.data(), bytes.size()))
        return 0;
    FileReader r;
    if (FAILED(r.load(file.path())))
        return 0;
    std::vector<unsigned char> buf(bytes.size() + 3 * sector);
    for (int stream = 0; stream < 2; ++stream) {
        if (FAILED(r.essenceOpen(static_cast<unsigned>(stream))))
            continue;
        if (data[0] & kReorder)
            r.set_TemporalReordering(true);
        exercise(r, stream, buf);
    }
    return 0;
}
