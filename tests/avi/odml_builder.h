#pragma once
// OpenDML files built by hand: one video stream whose frames are indexed
// only by standard index chunks of a chosen kind, named by a super index.
#include <algorithm>
#include <vector>

#include "avi/reader_builder.h"

namespace readertest {

struct Entry
{
    std::uint32_t size;
    std::uint32_t type = 0; // frame-type bits of an IBP entry
    std::uint32_t display = 0;
    std::uint32_t real = 0;
    std::uint32_t sizeWord = 0; // when non-zero, the size field as written
};

// One video stream, frames in "00dc" chunks, one ix00 per chunk list entry,
// an indx naming them; no idx1.
// Frame-type entries give the chunk header's position (as our writer
// writes them) unless ibpDataPositions asks for the data's.
inline Bytes buildOdml(std::uint8_t subType, const std::vector<std::vector<Entry>>& chunks, bool longGop,
                        std::uint8_t ixSubType = 0xFF, std::uint8_t ixType = AVI_INDEX_OF_CHUNKS,
                        bool ibpDataPositions = false)
{
    if (ixSubType == 0xFF)
        ixSubType = subType;
    unsigned total = 0;
    for (const auto& c : chunks)
        total += static_cast<unsigned>(c.size());
    RiffBuilder b;
    std::size_t riff = b.begin("RIFF", "AVI ");
    std::size_t hdrl = b.begin("LIST", "hdrl");
    b.record(mainHeader(1, total));
    std::size_t strl = b.begin("LIST", "strl");
    b.record(streamHeader("vids", longGop ? "MMES" : "dvsd", 25, 1, total));
    b.chunk("strf", longGop ? mmesFormat(576) : bytesOf(videoFormat("dvsd")));
    // Room for four entries, as writers reserve it.
    std::size_t slots = std::max<std::size_t>(4, chunks.size());
    b.put(AVISUPERINDEX{ckid::indx, static_cast<std::uint32_t>(24 + 16 * slots), 4, subType, AVI_INDEX_OF_INDEXES,
                        static_cast<std::uint32_t>(chunks.size()), Morvane::makeFourCC("00dc"), {}});
    std::size_t superEntries = b.pos();
    for (std::size_t i = 0; i < slots; ++i)
        b.put(AVISUPERINDEX_ENTRY{});
    b.end(strl);
    std::size_t odml = b.begin("LIST", "odml");
    AVIEXTHEADER dmlh = {};
    dmlh.fcc = ckid::dmlh;
    dmlh.cb = 248;
    dmlh.dwTotalFrames = total;
    b.record(dmlh);
    b.end(odml);
    b.end(hdrl);

    std::size_t movi = b.begin("LIST", "movi");
    std::vector<std::vector<std::uint64_t>> data(chunks.size());
    unsigned k = 0;
    for (std::size_t c = 0; c < chunks.size(); ++c)
        for (const Entry& e : chunks[c])
            data[c].push_back(b.chunk("00dc", frameData(k++, e.size)) + 8);
    for (std::size_t c = 0; c < chunks.size(); ++c) {
        std::uint16_t longs = ixSubType == AVI_INDEX_IBP ? 6 : ixSubType == AVI_INDEX_2FIELD ? 3 : 2;
        std::size_t at = b.pos();
        const auto entries = static_cast<std::uint32_t>(chunks[c].size());
        b.put(AVISTDINDEX{Morvane::makeFourCC("ix00"), 24 + 4 * longs * entries, longs, ixSubType, ixType, entries,
                          Morvane::makeFourCC("00dc"), movi, 0}); // movi is the base
        for (std::size_t i = 0; i < chunks[c].size(); ++i) {
            const Entry& e = chunks[c][i];
            std::uint32_t sizeWord = e.sizeWord ? e.sizeWord : e.size;
            if (ixSubType == AVI_INDEX_IBP) {
                std::uint64_t position = ibpDataPositions ? data[c][i] : data[c][i] - 8;
                b.put(MQ_AVIIBPINDEX_ENTRY{position, sizeWord | e.type << 29, e.display, e.real, 0});
            } else if (ixSubType == AVI_INDEX_2FIELD) {
                b.put(AVIFIELDINDEX_ENTRY{static_cast<std::uint32_t>(data[c][i] - movi), sizeWord, 0});
            } else {
                b.put(AVISTDINDEX_ENTRY{static_cast<std::uint32_t>(data[c][i] - movi), sizeWord});
            }
        }
        std::uint32_t size = static_cast<std::uint32_t>(b.pos() - at);
        put64(b.bytes(), superEntries + 16 * c, at);
        put32(b.bytes(), superEntries + 16 * c + 8, size);
        put32(b.bytes(), superEntries + 16 * c + 12, entries);
    }
    b.end(movi);
    b.end(riff);
    return b.bytes();
}

// Storage order I0 P3 B1 B2 P5 B4 | I6 P9 B7 B8 P11 B10 | I12: display
// numbers per stored frame, and per place the stored frame shown there.
inline std::vector<Entry> longGopEntries(std::uint32_t size = 200)
{
    const std::uint32_t type[] = {0, 1, 2, 3, 1, 2, 0, 1, 2, 2, 1, 3, 0};
    const std::uint32_t display[] = {0, 3, 1, 2, 5, 4, 6, 9, 7, 8, 11, 10, 12};
    const std::uint32_t real[] = {0, 2, 3, 1, 5, 4, 6, 8, 9, 7, 11, 10, 12};
    std::vector<Entry> v;
    for (unsigned i = 0; i < 13; ++i)
        v.push_back(Entry{size, type[i], display[i], real[i]});
    return v;
}

} // namespace readertest
