// Many requests in flight at once, on several files, give the
// bytes that one thread reading frame after frame gets.
#include <gtest/gtest.h>

#include <map>
#include <new>
#include <vector>

#include "Md5.h"
#include "plugin/plugin_support.h"

using namespace plugintest;

namespace {

using Digests = std::vector<std::string>;

using InFlight = LoadedPlugin;

// Each frame is asked for several times over, out of order.
constexpr unsigned kRounds = 8;

TEST_F(InFlight, SeveralFilesVideoAndAudioAtOnce)
{
    std::map<std::string, Vl::Ptr<FileReadInstance>> files;
    std::map<std::string, Digests> expected;
    for (const std::string& name : corpus()) {
        auto& f = files[name] = reader_->openFile(VlWString(wide(dataPath(name))), FileReadInstance::eOpenForPlayback);
        ASSERT_TRUE(f) << name;
        // Frame by frame on this thread first.
        for (unsigned i = 0; i < f->metadata()->video().lengthInFrames(); ++i) {
            auto r = reader_->readVideoSample(f, i, false, VideoReadRequest::eCompressed, nullptr, nullptr, false);
            ASSERT_EQ(r->getStatus(), RequestStatus::eCompleted) << name << " " << i;
            expected[name].push_back(velloro::Md5::of(r->getResult()->bytes(), r->getResult()->size()));
        }
    }
    // The audio of the first stream, one block per file, read alone first.
    std::map<std::string, std::string> audioExpected;
    auto audioOf = [](const AudioReadRequest& r) {
        velloro::Md5 md5;
        for (std::uint32_t c = 0; c < r.result().channels(); ++c)
            md5.update(r.result().channel(c), std::size_t(r.result().samples()) * r.result().bytesPerSample());
        return md5.hexDigest();
    };
    for (auto& [name, f] : files) {
        if (f->metadata()->audio().audioStreams() == 0)
            continue;
        Vl::Ptr<AudioReadRequest> r(new AudioReadRequest(f, 0, 17, 1000));
        reader_->readAudioSample(r, false);
        ASSERT_EQ(r->getStatus(), RequestStatus::eCompleted) << name;
        audioExpected[name] = audioOf(*r);
    }

    struct Asked
    {
        std::string name;
        unsigned frame;
        Vl::Ptr<VideoReadRequest> video;
        Vl::Ptr<AudioReadRequest> audio;
    };
    std::vector<Asked> asked;
    for (unsigned round = 0; round < kRounds; ++round) {
        for (auto& [name, f] : files) {
            const unsigned n = f->metadata()->video().lengthInFrames();
            for (unsigned i = 0; i < n; ++i) {
                const unsigned k = (i * 3 + round) % n;
                asked.push_back({name, k,
                                 reader_->readVideoSample(f, k, false, VideoReadRequest::eCompressed, nullptr, nullptr,
                                                          true),
                                 nullptr});
            }
            if (audioExpected.count(name)) {
                // Different ranges first, so that the last one is read, not cached.
                Vl::Ptr<AudioReadRequest> a(new AudioReadRequest(f, 0, round == kRounds - 1 ? 17 : round, 1000));
                reader_->readAudioSample(a, true);
                asked.push_back({name, round, nullptr, a});
            }
        }
    }
    for (const Asked& a : asked) {
        if (a.video) {
            ASSERT_EQ(a.video->wait(), RequestStatus::eCompleted) << a.name << " " << a.frame;
            auto frame = a.video->getResult();
            EXPECT_EQ(velloro::Md5::of(frame->bytes(), frame->size()), expected[a.name][a.frame])
                << a.name << " " << a.frame;
        } else {
            ASSERT_EQ(a.audio->wait(), RequestStatus::eCompleted) << a.name;
            if (a.frame == kRounds - 1) {
                EXPECT_EQ(audioOf(*a.audio), audioExpected[a.name]) << a.name;
            }
        }
    }
    reader_->waitForIdle();
    EXPECT_LE(reader_->peakInFlight(), 32u);
}

// A reader whose reads throw, as when the editor's memory runs out: every
// request in flight still completes, as failed, and the queue goes idle.
class Throwing : public Vl::FileReaderResource
{
public:
    Throwing() : Vl::FileReaderResource("throwing", 1) {}
    ~Throwing() override { stopRequests(); }
    Vl::Ptr<FileReadInstance> openFile(const VlWString&, FileReadInstance::OpenType) override { return nullptr; }
    int isFileFormatSupported(const VlWString&, FileReadInstance::OpenType, const PlayFileMetadata&) override
    {
        return 0;
    }
    void VlFileIxCache_open(Vl::Ptr<FileReadInstance>&, Vl::Ptr<IndexInfo>&, unsigned) override
    {
        throw std::bad_alloc();
    }
    std::uint32_t getMaxRequests() const override { return 4; }
    int readVideo(Vl::Ptr<VideoReadRequest>&) override { throw std::bad_alloc(); }
    std::uint32_t getOutputImageFormat(Vl::Ptr<FileReadInstance>&) override { return 0; }
    int readAudio(Vl::Ptr<AudioReadRequest>&) override { throw std::bad_alloc(); }
};

TEST(Requests, AReaderThatThrowsFailsItsRequestsInsteadOfLeavingThemWaiting)
{
    Throwing reader;
    std::vector<Vl::Ptr<VideoReadRequest>> video;
    std::vector<Vl::Ptr<AudioReadRequest>> audio;
    for (unsigned k = 0; k < 16; ++k) {
        video.push_back(reader.readVideoSample(nullptr, k, k % 2 == 0, VideoReadRequest::eCompressed, nullptr,
                                               nullptr, true));
        audio.emplace_back(new AudioReadRequest(nullptr, 0, k, 100));
        reader.readAudioSample(audio.back(), true);
    }
    for (auto& r : video)
        EXPECT_EQ(r->wait(), RequestStatus::eFailed);
    for (auto& r : audio)
        EXPECT_EQ(r->wait(), RequestStatus::eFailed);
    reader.waitForIdle();
}

} // namespace
