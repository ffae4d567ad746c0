// Files whose headers claim more than the file holds, read through the
// plug-in as the editor reads them: every request ends, and no allocation,
// the plug-in's or the editor's, is sized by the claim. And the read-ahead
// of clips that have been played is given back once they go idle, open or
// closed.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

#include "avi/AllocationWatch.h"
#include "avi/odml_builder.h"
#include "common/TempDir.h"
#include "plugin/plugin_support.h"
#include "common/Eventually.h"
#include "vlhost/ReadAheadSettings.h"

using namespace plugintest;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes load(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

void put16(Bytes& b, std::size_t at, std::uint16_t v)
{
    b[at] = static_cast<unsigned char>(v);
    b[at + 1] = static_cast<unsigned char>(v >> 8);
}

void put32(Bytes& b, std::size_t at, std::uint32_t v)
{
    for (int k = 0; k < 4; ++k)
        b[at + k] = static_cast<unsigned char>(v >> 8 * k);
}

std::size_t find(const Bytes& b, const char* id, std::size_t from = 0)
{
    for (std::size_t at = from; at + 4 <= b.size(); ++at)
        if (std::memcmp(&b[at], id, 4) == 0)
            return at;
    return b.size();
}

// Each strh of a kind ("vids", "auds"): where its data starts (its fccType).
std::vector<std::size_t> streamHeaders(const Bytes& b, const char* kind)
{
    std::vector<std::size_t> at;
    for (std::size_t h = find(b, "strh"); h < b.size(); h = find(b, "strh", h + 4))
        if (h + 12 <= b.size() && std::memcmp(&b[h + 8], kind, 4) == 0)
            at.push_back(h + 8);
    return at;
}

struct Claim
{
    const char* name;
    const char* file; // a test file, patched; or null: made by build
    std::function<void(Bytes&)> patch;
    bool audioPlayable;
    std::function<Bytes()> build = nullptr;
};

// A long-GOP file whose frame-type index gives every frame 64 MiB: a group
// of them would be most of a GiB.
Bytes groupsOfHugeFrames()
{
    std::vector<readertest::Entry> entries = readertest::longGopEntries();
    for (readertest::Entry& e : entries)
        e.sizeWord = 64u << 20;
    const readertest::Bytes b = readertest::buildOdml(Morvane::Avi::AVI_INDEX_IBP, {entries}, true);
    return Bytes(b.begin(), b.end());
}

void PrintTo(const Claim& c, std::ostream* os)
{
    *os << c.name;
}

const Claim kClaims[] = {
    // WAVEFORMATEX: 24 bits of 65535 channels in blocks of 6 bytes.
    {"ChannelsInAnExtensibleFormat", "pcm24_6ch.avi",
     [](Bytes& b) { put16(b, find(b, "strf", streamHeaders(b, "auds")[0]) + 10, 65535); }, false},
    // WAVEFORMAT of 16 bytes: the sample size comes out as 0.
    {"ChannelsInAShortFormat", "uyvy_pcm16.avi",
     [](Bytes& b) { put16(b, find(b, "strf", streamHeaders(b, "auds")[0]) + 10, 65535); }, false},
    {"SuggestedBufferSizes", "dv_pal.avi",
     [](Bytes& b) {
         for (const char* kind : {"vids", "auds"})
             for (std::size_t s : streamHeaders(b, kind))
                 put32(b, s + 36, 0xFFFFFFF0u);
     },
     true},
    // Every idx1 entry a frame of nearly 2 GiB.
    {"IndexSizes", "uyvy_pcm16.avi",
     [](Bytes& b) {
         const std::size_t idx1 = find(b, "idx1");
         for (std::size_t e = idx1 + 8; e + 16 <= b.size(); e += 16)
             put32(b, e + 12, 0x7FFFFFF0u);
     },
     true},
    {"BlockAlign", "dv_ntsc.avi",
     [](Bytes& b) { put16(b, find(b, "strf", streamHeaders(b, "auds")[0]) + 20, 65535); }, false},
    {"GroupSizes", nullptr, nullptr, false, groupsOfHugeFrames},
};

class Claims : public LoadedPlugin, public testing::WithParamInterface<Claim>
{};

TEST_P(Claims, EveryRequestEndsAndNothingIsSizedByTheClaim)
{
    const Claim& claim = GetParam();
    testutil::TempDir dir;
    Bytes bytes = claim.file ? load(dataPath(claim.file)) : claim.build();
    ASSERT_FALSE(bytes.empty());
    if (claim.patch)
        claim.patch(bytes);
    const std::string path = (dir.path() / "claim.avi").string();
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                 static_cast<std::streamsize>(bytes.size()));
    avitest::AllocationWatch watch;
    Vl::Ptr<FileReadInstance> file = reader_->openFile(VlWString(wide(path)), FileReadInstance::eOpenForPlayback);
    ASSERT_TRUE(file);
    const PlayFileMetadata& md = *file->metadata();
    const int bits = reader_->isFileFormatSupported(VlWString(wide(path)), FileReadInstance::eOpenForPlayback, md);
    EXPECT_EQ((bits & 2) != 0, claim.audioPlayable);

    std::deque<Vl::Ptr<VideoReadRequest>> video;
    std::deque<Vl::Ptr<AudioReadRequest>> audio;
    const unsigned frames = md.video().lengthInFrames();
    const bool groups = md.video().gopSize() >= 2;
    for (unsigned f = 0; f <= frames; ++f)
        for (bool group : {false, groups})
            video.push_back(
                reader_->readVideoSample(file, f, group, VideoReadRequest::eCompressed, nullptr, nullptr, true));
    for (std::uint32_t s = 0; s <= md.audio().audioStreams(); ++s)
        for (std::uint32_t start : {0u, 16384u, 1u << 30}) {
            audio.emplace_back(new AudioReadRequest(file, s, start, 16384));
            reader_->readAudioSample(audio.back(), true);
        }
    for (auto& r : video) {
        if (r->wait() == RequestStatus::eCompleted) {
            EXPECT_LE(r->getResult()->size(), bytes.size());
        }
    }
    for (auto& r : audio) {
        if (r->wait() != RequestStatus::eCompleted)
            continue;
        const Aud::StreamBufferList& got = r->result();
        EXPECT_LE(std::uint64_t(got.channels()) * got.capacity() * got.bytesPerSample(), bytes.size());
    }
    reader_->waitForIdle();
    // The header, a frame, an audio block: each at most about the file.
    EXPECT_LE(watch.largest(), 2 * bytes.size() + (256u << 10));
}

INSTANTIATE_TEST_SUITE_P(Headers, Claims, testing::ValuesIn(kClaims),
                         [](const testing::TestParamInfo<Claim>& i) { return std::string(i.param.name); });

using PlayedClips = LoadedPlugin;

TEST_F(PlayedClips, GiveTheirReadAheadBackWhenIdleAndWhenClosed)
{
    vlhost::setReadAheadIdleAfter(std::chrono::milliseconds(20));
    std::vector<Vl::Ptr<FileReadInstance>> clips;
    for (const char* name : {"dv_pal.avi", "dv_ntsc.avi", "dv50.avi", "dv_pal.avi"})
        clips.push_back(reader_->openFile(VlWString(wide(dataPath(name))), FileReadInstance::eOpenForPlayback));
    std::uint64_t most = 0;
    for (auto& clip : clips) {
        ASSERT_TRUE(clip);
        std::deque<Vl::Ptr<VideoReadRequest>> inFlight;
        for (unsigned f = 0; f < clip->metadata()->video().lengthInFrames(); ++f) {
            inFlight.push_back(reader_->readVideoSample(clip, f, false, VideoReadRequest::eCompressed, nullptr,
                                                        nullptr, true));
            if (inFlight.size() > 4) {
                EXPECT_EQ(inFlight.front()->wait(), RequestStatus::eCompleted);
                inFlight.pop_front();
            }
            most = std::max(most, vlhost::readAheadInUse());
        }
        for (auto& r : inFlight)
            EXPECT_EQ(r->wait(), RequestStatus::eCompleted);
    }
    EXPECT_GT(most, 0u); // the clips were read through windows
    EXPECT_LE(most, vlhost::readAheadBudget());
    // Still open, no longer read: nothing held.
    EXPECT_TRUE(testutil::eventually([] { return vlhost::readAheadInUse() == 0; }));
    vlhost::setReadAheadIdleAfter(std::chrono::milliseconds(500));
    clips.clear();
    EXPECT_EQ(vlhost::readAheadInUse(), 0u);
}

} // namespace
