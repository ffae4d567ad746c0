// Many requests in flight at once, on several files, give the
// bytes that one thread reading frame after frame gets.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <new>
#include <thread>
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
    // The editor's own threads read the same files at once, each request
    // served on the asking thread: the file's lock is contended as well.
    std::vector<std::vector<std::string>> wrong(3);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < wrong.size(); ++t)
        threads.emplace_back([&, t] {
            for (auto& [name, f] : files) {
                const unsigned n = f->metadata()->video().lengthInFrames();
                for (unsigned i = 0; i < n; ++i) {
                    const unsigned k = (i * 5 + t) % n;
                    auto r = reader_->readVideoSample(f, k, false, VideoReadRequest::eCompressed, nullptr, nullptr,
                                                      false);
                    if (r->getStatus() != RequestStatus::eCompleted ||
                        velloro::Md5::of(r->getResult()->bytes(), r->getResult()->size()) != expected[name][k])
                        wrong[t].push_back(name + " " + std::to_string(k));
                }
            }
        });
    for (auto& t : threads)
        t.join();
    for (const auto& w : wrong)
        EXPECT_TRUE(w.empty()) << w.front();
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

// A reader that records, per file, how many of its requests are being
// served at once and in which order. The first request of the first file
// holds its worker until a request of another file has started, so that
// files served one after the other (one worker for all) show as a stall.
class Recording : public Vl::FileReaderResource
{
public:
    struct File : FileReadInstance
    {
        File() : PlayFile(L"recorded.avi"), FileReadInstance(eOpenForPlayback) {}
        bool readMetadata() override { return true; }
    };

    Recording() : Vl::FileReaderResource("recording", 1) {}
    ~Recording() override { stopRequests(); }
    Vl::Ptr<FileReadInstance> openFile(const VlWString&, FileReadInstance::OpenType) override { return nullptr; }
    int isFileFormatSupported(const VlWString&, FileReadInstance::OpenType, const PlayFileMetadata&) override
    {
        return 0;
    }
    void VlFileIxCache_open(Vl::Ptr<FileReadInstance>&, Vl::Ptr<IndexInfo>&, unsigned) override {}
    std::uint32_t getMaxRequests() const override { return 8; }
    std::uint32_t getOutputImageFormat(Vl::Ptr<FileReadInstance>&) override { return 0; }

    int readVideo(Vl::Ptr<VideoReadRequest>& request) override
    {
        const FileReadInstance* file = request->getFileInstance().get();
        {
            std::unique_lock lock(mutex_);
            Seen& seen = seen_[file];
            seen.most = std::max(seen.most, ++seen.now);
            seen.order.push_back(request->getFrame());
            if (!first_) {
                first_ = file;
                otherStarted_ = changed_.wait_for(lock, std::chrono::seconds(10), [this] { return started_ > 1; });
            }
            ++started_;
            changed_.notify_all();
        }
        std::this_thread::yield();
        {
            std::lock_guard lock(mutex_);
            --seen_[file].now;
        }
        request->requestHasCompleted(RequestStatus::eCompleted);
        return RequestStatus::eCompleted;
    }
    int readAudio(Vl::Ptr<AudioReadRequest>&) override { return RequestStatus::eFailed; }

    struct Seen
    {
        unsigned now = 0;
        unsigned most = 0;
        std::vector<unsigned> order;
    };
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<const FileReadInstance*, Seen> seen_;
    const FileReadInstance* first_ = nullptr;
    unsigned started_ = 0;
    bool otherStarted_ = false;
};

TEST(Requests, OneFileIsServedOneRequestAtATimeInOrderAndOtherFilesBesideIt)
{
    Recording reader;
    std::vector<Vl::Ptr<FileReadInstance>> files{new Recording::File, new Recording::File, new Recording::File};
    std::vector<Vl::Ptr<VideoReadRequest>> asked;
    constexpr unsigned kFrames = 40;
    for (unsigned k = 0; k < kFrames; ++k)
        for (const auto& f : files)
            asked.push_back(reader.readVideoSample(f, k, false, VideoReadRequest::eCompressed, nullptr, nullptr, true));
    for (auto& r : asked)
        EXPECT_EQ(r->wait(), RequestStatus::eCompleted);
    reader.waitForIdle();
    std::lock_guard lock(reader.mutex_);
    EXPECT_TRUE(reader.otherStarted_) << "a second file waited for the first file's request";
    std::vector<unsigned> inOrder(kFrames);
    for (unsigned k = 0; k < kFrames; ++k)
        inOrder[k] = k;
    for (const auto& f : files) {
        const Recording::Seen& seen = reader.seen_[f.get()];
        EXPECT_EQ(seen.most, 1u);
        EXPECT_EQ(seen.order, inOrder);
    }
}

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
