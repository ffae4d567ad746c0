// OpenDML indexes built by hand: frame-type (IBP) index with its GOPs and
// presentation order, two-field index across two standard index chunks,
// and the standard-index faults.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "avi/odml_builder.h"
#include "common/AssertCapture.h"
#include "common/TempDir.h"
#include "util/stringUtils.h"

using namespace readertest;
using Morvane::convertString;
using Morvane::Avi::FileReader;

namespace {

class OdmlFile : public testing::Test
{
protected:
    std::string write(const Bytes& b)
    {
        std::string path = (dir_.path() / "odml.avi").string();
        writeFile(path, b);
        return path;
    }
    testutil::TempDir dir_;
};

TEST_F(OdmlFile, FrameTypeIndexGivesGopsAndPresentationOrder)
{
    FileReader r;
    ASSERT_EQ(r.load(convertString(write(buildOdml(AVI_INDEX_IBP, {longGopEntries()}, true)))), S_OK)
        << convertString(r.getLastError());
    EXPECT_TRUE(r.get_HasIndexTable(0));
    EXPECT_EQ(r.get_Length(0), 13u);
    // The serialized media type is taken over, with the PAL frame time.
    EXPECT_EQ(+r.get_MediaType().bTemporalCompression, 1);
    EXPECT_EQ(+r.get_MediaType().cbFormat, 136u);
    Morvane::Avi::MPEG2VIDEOINFO info;
    std::memcpy(&info, r.get_MediaType().pbFormat, sizeof info);
    EXPECT_EQ(+info.hdr.AvgTimePerFrame, 400000u);

    // The vector form of the first GOPs is the plug-in's read test's.
    EXPECT_EQ(r.get_GopSize(0), 6u);
    GOPInfo g;
    ASSERT_TRUE(Morvane::allocGOPInfo(g, 6));
    ASSERT_EQ(r.get_GopAndPresentationOrder(6, g), S_OK);
    ASSERT_EQ(g.count_, 6u);
    EXPECT_EQ(std::vector<unsigned>(g.GOPIndexes_, g.GOPIndexes_ + 6), (std::vector<unsigned>{6, 7, 8, 9, 10, 11}));
    EXPECT_EQ(std::vector<unsigned>(g.presentationOrder_, g.presentationOrder_ + 6),
              (std::vector<unsigned>{6, 9, 7, 8, 11, 10}));
    // The last GOP runs to the end of the index.
    g.count_ = 6;
    ASSERT_EQ(r.get_GopAndPresentationOrder(12, g), S_OK);
    EXPECT_EQ(g.count_, 1u);
    g.count_ = 5;
    std::string printed = testutil::captureStdout([&] { EXPECT_EQ(r.get_GopAndPresentationOrder(0, g), E_INSUFFICIENT_BUFFER); });
    EXPECT_EQ(convertString(r.getLastError()), "GetGopAndPresentationOrder failed, insufficient space.");
    EXPECT_NE(printed.find("assertion failed 0 at "), std::string::npos);
    Morvane::freeGOPInfo(g);

    std::vector<unsigned> gop, order;
    testutil::captureStdout([&] { EXPECT_EQ(r.getGopAndPresentationOrder(2, gop, order), E_FAIL); });
    EXPECT_EQ(convertString(r.getLastError()),
              "get_GopAndPresentationOrder failed, supplied index is not a keyframe.");

    unsigned out[6] = {};
    ASSERT_EQ(r.get_PresentationOrder(0, 6, out), S_OK);
    EXPECT_EQ(std::vector<unsigned>(out, out + 6), (std::vector<unsigned>{0, 2, 3, 1, 5, 4}));

    unsigned found = 0;
    // From 3 the nearest is a tie: backward wins.
    const struct { unsigned from; FileReader::KfSearchType how; unsigned key; } searches[] = {
        {3, FileReader::kfNearest, 0}, {4, FileReader::kfNearest, 6}, {5, FileReader::kfBackward, 0},
        {7, FileReader::kfForward, 12}, {12, FileReader::kfForward, 12}};
    for (const auto& q : searches) {
        EXPECT_TRUE(r.get_NearestKeyFrame(0, q.from, q.how, found)) << q.from;
        EXPECT_EQ(found, q.key) << q.from;
    }
    testutil::captureStdout(
        [&] { EXPECT_FALSE(r.get_NearestKeyFrame(0, 1, static_cast<FileReader::KfSearchType>(3), found)); });

    // Storage order without reordering; display order with it.
    std::vector<unsigned char> buf(4096);
    unsigned offset = 0, size = 0;
    ASSERT_EQ(r.ReadVideo(1, buf.data(), buf.size(), &offset, &size), S_OK);
    EXPECT_EQ(buf[offset], 2);
    ASSERT_TRUE(r.set_TemporalReordering(true));
    ASSERT_EQ(r.ReadVideo(1, buf.data(), buf.size(), &offset, &size), S_OK);
    EXPECT_EQ(buf[offset], 3); // place 1 shows stored frame 2
    ASSERT_EQ(r.ReadVideo(3, buf.data(), buf.size(), &offset, &size), S_OK);
    EXPECT_EQ(buf[offset], 2); // place 3 shows stored frame 1
    EXPECT_TRUE(r.set_TemporalReordering(true));
}

TEST_F(OdmlFile, FieldIndexAcrossTwoChunksKeepsOneResident)
{
    std::vector<Entry> a = {{300}, {310}, {320}, {330}};
    std::vector<Entry> b = {{340}, {350}, {360}};
    FileReader r;
    ASSERT_EQ(r.load(convertString(write(buildOdml(AVI_INDEX_2FIELD, {a, b}, false)))), S_OK);
    ASSERT_TRUE(r.get_Stream(0)->m_bTwoField);
    ASSERT_EQ(r.essenceOpen(0), S_OK);
    EXPECT_EQ(r.get_IndexStartSample(), 0u);
    EXPECT_EQ(r.get_ResidentLength(), 4u);
    std::vector<unsigned char> buf(4096);
    for (unsigned k : {0u, 5u, 3u, 6u, 4u}) {
        unsigned offset = 0, size = 0;
        ASSERT_EQ(r.ReadVideo(k, buf.data(), buf.size(), &offset, &size), S_OK) << k;
        EXPECT_EQ(size, 300u + 10 * k);
        EXPECT_EQ(buf[offset], k + 1);
        EXPECT_EQ(buf[offset + size - 1], k + 1);
        EXPECT_EQ(r.get_IndexStartSample(), k < 4 ? 0u : 4u);
    }
    // A run across the two chunks stops at neither: one read covers it.
    std::vector<unsigned> offsets, sizes;
    ASSERT_EQ(r.ReadVideo(2, 4, buf.data(), buf.size(), offsets, sizes), S_OK);
    EXPECT_EQ(sizes, (std::vector<unsigned>{320, 330, 340, 350}));
    EXPECT_EQ(buf[offsets[3]], 6);
    // Every entry counts as a key frame; the GOP is the frame itself and its
    // presentation number is its place in its own chunk.
    std::vector<unsigned> gop, order;
    ASSERT_EQ(r.getGopAndPresentationOrder(5, gop, order), S_OK);
    EXPECT_EQ(gop, (std::vector<unsigned>{5}));
    EXPECT_EQ(order, (std::vector<unsigned>{1}));
    unsigned out[3] = {7, 7, 7};
    ASSERT_EQ(r.get_PresentationOrder(4, 3, out), S_OK);
    EXPECT_EQ(out[0], 4u);
    EXPECT_EQ(out[1], 7u); // intra-only: only the first is written
    EXPECT_EQ(r.get_GopSize(0), 1u);
    unsigned found = 0;
    EXPECT_TRUE(r.findKeyframe(5, false, found));
    EXPECT_EQ(found, 5u);

    Morvane::Avi::IndexEntry* e = nullptr;
    testutil::captureStdout([&] { EXPECT_EQ(r.get_IndexEntry(7, &e), E_NO_INDEX); });
    EXPECT_EQ(convertString(r.getLastError()), "Failed to find superindex.");
    EXPECT_EQ(r.ReadVideo(7, buf.data(), buf.size(), nullptr, nullptr), E_HANDLE_EOF);
}

// Frame types per standard index chunk (0 I, 1 P), the GOP size the
// editor is told, and the key frame a backward search finds for each frame;
// entries that give the data's position instead of the chunk header's read
// the same bytes.
struct GopLayout
{
    const char* name;
    std::vector<std::vector<std::uint32_t>> types;
    unsigned gopSize;
    std::vector<unsigned> keyOf;
    bool dataPositions = false;
};

// Shown by the test runner as the case's name, not its bytes.
inline void PrintTo(const GopLayout& c, std::ostream* os) { *os << c.name; }

class GopLayouts : public testing::TestWithParam<GopLayout>
{};

TEST_P(GopLayouts, GopSizeAndKeyFramesHoldAtEveryFrame)
{
    const GopLayout& g = GetParam();
    std::vector<std::vector<Entry>> chunks;
    unsigned frame = 0;
    for (const auto& types : g.types) {
        chunks.emplace_back();
        for (std::uint32_t t : types) {
            std::uint32_t local = static_cast<std::uint32_t>(chunks.back().size());
            chunks.back().push_back(Entry{100, t, frame++, local});
        }
    }
    testutil::TempDir dir;
    std::string path = (dir.path() / "gop.avi").string();
    writeFile(path, buildOdml(AVI_INDEX_IBP, chunks, true, 0xFF, AVI_INDEX_OF_CHUNKS, g.dataPositions));
    FileReader r;
    ASSERT_EQ(r.load(convertString(path)), S_OK);
    ASSERT_EQ(r.get_GopSize(0), g.gopSize);
    std::vector<unsigned char> buf(4096);
    for (unsigned f : {0u, 1u, frame - 1}) {
        unsigned offset = 0, size = 0;
        ASSERT_EQ(r.ReadVideo(f, buf.data(), buf.size(), &offset, &size), S_OK) << f;
        EXPECT_EQ(std::tuple(size, buf[offset], buf[offset + size - 1]), std::tuple(100u, f + 1, f + 1)) << f;
    }
    ASSERT_EQ(g.keyOf.size(), frame);
    for (unsigned f = 0; f < frame; ++f) {
        unsigned found = ~0u;
        EXPECT_TRUE(r.get_NearestKeyFrame(0, f, FileReader::kfBackward, found)) << f;
        EXPECT_EQ(found, g.keyOf[f]) << f;
        // The answer does not change with the chunk that is resident.
        EXPECT_EQ(r.get_GopSize(0), g.gopSize) << f;
    }
    // A group is read whole, across a chunk boundary too.
    std::vector<unsigned> gop, order;
    ASSERT_EQ(r.getGopAndPresentationOrder(g.keyOf.back(), gop, order), S_OK);
    EXPECT_EQ(gop.back(), frame - 1);
}

INSTANTIATE_TEST_SUITE_P(
    Reader, GopLayouts,
    testing::Values(GopLayout{"OneGop", {{0, 1, 1, 1, 1, 1, 1, 1}}, 8, {0, 0, 0, 0, 0, 0, 0, 0}},
                    GopLayout{"IAndPOnly", {{0, 1, 0, 1, 0, 1}}, 2, {0, 0, 2, 2, 4, 4}},
                    GopLayout{"IntraOnly", {{0, 0, 0}}, 1, {0, 1, 2}},
                    GopLayout{"GroupsAcrossChunks",
                              {{0, 1, 1, 1}, {1, 1, 0, 1}, {1, 1, 1, 1}},
                              6,
                              {0, 0, 0, 0, 0, 0, 6, 6, 6, 6, 6, 6},
                              true}),
    [](const testing::TestParamInfo<GopLayout>& i) { return std::string(i.param.name); });

struct IndexFault
{
    const char* name;
    std::uint8_t subType;
    std::vector<Entry> entries;
    std::uint8_t ixSubType;
    std::uint8_t ixType;
    const char* text;
};

// Shown by the test runner as the case's name, not its bytes.
inline void PrintTo(const IndexFault& c, std::ostream* os) { *os << c.name; }

class StandardIndexFaults : public testing::TestWithParam<IndexFault>
{};

TEST_P(StandardIndexFaults, OpenFailsWithText)
{
    const IndexFault& f = GetParam();
    testutil::TempDir dir;
    std::string path = (dir.path() / "f.avi").string();
    writeFile(path, buildOdml(f.subType, {f.entries}, false, f.ixSubType, f.ixType));
    FileReader r;
    ASSERT_EQ(r.load(convertString(path)), S_OK);
    testutil::captureStdout([&] { EXPECT_EQ(r.essenceOpen(0), E_FAIL); });
    EXPECT_EQ(convertString(r.getLastError()), f.text);
}

INSTANTIATE_TEST_SUITE_P(
    Reader, StandardIndexFaults,
    testing::Values(
        IndexFault{"UnknownSubType", 0, {{100}}, 7, AVI_INDEX_OF_CHUNKS, "LoadINDX Error: unknown chunk type"},
        IndexFault{"HugeSize", 0, {{100}, {100, 0, 0, 0, 0x1000001}}, 0, AVI_INDEX_OF_CHUNKS,
                   "LoadINDX invalid entry size."},
        IndexFault{"FieldCorruptSize", 1, {{10}, {10, 0, 0, 0, 1001}}, 1, AVI_INDEX_OF_CHUNKS,
                   "A corrupt indx index entry was found."}),
    [](const testing::TestParamInfo<IndexFault>& i) { return std::string(i.param.name); });

} // namespace
