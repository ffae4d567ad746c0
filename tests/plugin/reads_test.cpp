// Frames, groups and audio read through the loaded plug-in's reader
// component, as the editor asks for them.
#include <gtest/gtest.h>

#include "common/TempDir.h"
#include "host/TimedTaskManager.h"
#include "plugin/avi_files.h"
#include "plugin/plugin_support.h"

using namespace plugintest;

namespace {

class Reads : public LoadedPlugin
{
protected:
    Vl::Ptr<FileReadInstance> open(const Bytes& b)
    {
        std::string path = (dir_.path() / "f.avi").string();
        writeFile(path, b);
        return reader_->openFile(VlWString(wide(path)), FileReadInstance::eOpenForPlayback);
    }
    Vl::Ptr<VideoReadRequest> read(const Vl::Ptr<FileReadInstance>& f, unsigned frame, bool group, bool async = true)
    {
        return reader_->readVideoSample(f, frame, group, VideoReadRequest::eCompressed, nullptr, nullptr, async);
    }
    Vl::Ptr<AudioReadRequest> audio(const Vl::Ptr<FileReadInstance>& f, std::uint32_t stream, std::uint32_t start,
                                    std::uint32_t count)
    {
        Vl::Ptr<AudioReadRequest> r(new AudioReadRequest(f, stream, start, count));
        reader_->readAudioSample(r, false);
        return r;
    }
    testutil::TempDir dir_;
};

TEST_F(Reads, LongGopGroupIsOneRecordAndOneBlockInDecodeOrder)
{
    Vl::Ptr<FileReadInstance> f = open(buildLongGopFile());
    ASSERT_TRUE(f);
    EXPECT_EQ(f->metadata()->video().gopSize(), 6u);

    Vl::Ptr<VideoReadRequest> a = read(f, 2, true);
    Vl::Ptr<VideoReadRequest> b = read(f, 4, true);
    Vl::Ptr<VideoReadRequest> c = read(f, 8, true);
    ASSERT_EQ(a->wait(), RequestStatus::eCompleted);
    ASSERT_EQ(b->wait(), RequestStatus::eCompleted);
    ASSERT_EQ(c->wait(), RequestStatus::eCompleted);

    Vl::Ptr<IndexInfo> record = a->getIndexInfo();
    ASSERT_TRUE(record);
    EXPECT_EQ(record.get(), b->getIndexInfo().get()); // one record per group, shared
    EXPECT_NE(record.get(), c->getIndexInfo().get());
    EXPECT_EQ(record->decodeOrder(), (std::vector<unsigned>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(record->presentationOrder(), (std::vector<unsigned>{0, 3, 1, 2, 5, 4}));
    EXPECT_EQ(c->getIndexInfo()->decodeOrder(), (std::vector<unsigned>{6, 7, 8, 9, 10, 11}));
    EXPECT_EQ(c->getIndexInfo()->presentationOrder(), (std::vector<unsigned>{6, 9, 7, 8, 11, 10}));

    // The whole group in one block, frame after frame in storage order.
    for (const auto& [request, first] : {std::pair{a, 0u}, std::pair{c, 6u}}) {
        Vl::Ptr<FrameBuffer> frame = request->getResult();
        ASSERT_TRUE(frame);
        Bytes expected;
        for (unsigned k = first; k < first + 6; ++k) {
            Bytes one = frameData(k, frameSize(k));
            expected.insert(expected.end(), one.begin(), one.end());
        }
        ASSERT_EQ(frame->size(), expected.size());
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), frame->bytes()));
        EXPECT_EQ(frame->indexInfo().get(), request->getIndexInfo().get());
        // Sector-aligned storage, the payload within its first sector.
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(frame->memory()->data()) % 512, 0u);
        EXPECT_LT(frame->memory()->dataOffset(), 4096u);
    }

    // The last group runs to the end of the index; without a record, one frame.
    Vl::Ptr<VideoReadRequest> last = read(f, 12, true);
    ASSERT_EQ(last->wait(), RequestStatus::eCompleted);
    EXPECT_EQ(last->getIndexInfo()->decodeOrder(), (std::vector<unsigned>{12}));
    Vl::Ptr<VideoReadRequest> single = read(f, 3, false);
    ASSERT_EQ(single->wait(), RequestStatus::eCompleted);
    EXPECT_FALSE(single->getIndexInfo());
    Bytes three = frameData(3, frameSize(3));
    ASSERT_EQ(single->getResult()->size(), three.size());
    EXPECT_TRUE(std::equal(three.begin(), three.end(), single->getResult()->bytes()));
}

// The editor's profiler times every video request under one key.
class CountingTask final : public TimedTask
{
public:
    void start(const char* label) override
    {
        ++starts;
        lastLabel = label;
    }
    void stop() override { ++stops; }
    int starts = 0;
    int stops = 0;
    std::string lastLabel;
};

TEST_F(Reads, VideoRequestsAreTimed)
{
    Vl::Ptr<CountingTask> task(new CountingTask);
    TimedTaskManager::registerTimedTask("VlResources/VlFileReader", Vl::Ptr<TimedTask>(task.get()));
    Vl::Ptr<FileReadInstance> f = reader_->openFile(VlWString(wide(dataPath("dv_pal.avi"))),
                                                   FileReadInstance::eOpenForPlayback);
    ASSERT_TRUE(f);
    EXPECT_EQ(read(f, 0, false, false)->getStatus(), RequestStatus::eCompleted);
    EXPECT_EQ(read(f, 99, false, false)->getStatus(), RequestStatus::eFailed);
    TimedTaskManager::unregisterTimedTask("VlResources/VlFileReader");
    EXPECT_EQ(task->starts, 2);
    EXPECT_EQ(task->stops, 2);
    EXPECT_EQ(task->lastLabel, "readVideo");
}

TEST_F(Reads, IntraOnlyFilesBuildNoRecords)
{
    Vl::Ptr<FileReadInstance> f = reader_->openFile(VlWString(wide(dataPath("dv_pal.avi"))),
                                                   FileReadInstance::eOpenForPlayback);
    ASSERT_TRUE(f);
    EXPECT_LT(f->metadata()->video().gopSize(), 2u);
    Vl::Ptr<IndexInfo> record;
    reader_->VlFileIxCache_open(f, record, 1);
    EXPECT_FALSE(record);
    Vl::Ptr<VideoReadRequest> r = read(f, 1, true);
    ASSERT_EQ(r->wait(), RequestStatus::eCompleted);
    EXPECT_FALSE(r->getIndexInfo());
    EXPECT_EQ(r->getResult()->size(), 144000u);
}

TEST_F(Reads, FailedFrameCompletesWithStatusThreeAndCallsBack)
{
    Vl::Ptr<FileReadInstance> f = reader_->openFile(VlWString(wide(dataPath("dv_pal.avi"))),
                                                   FileReadInstance::eOpenForPlayback);
    ASSERT_TRUE(f);
    Vl::Ptr<VideoReadRequest> r(new VideoReadRequest(f, 1000));
    int called = 0;
    RequestStatus::eFileReqStatus seen = RequestStatus::eNone;
    r->setCallback([&](VideoReadRequest&, RequestStatus::eFileReqStatus s) {
        ++called;
        seen = s;
    });
    reader_->queueReadRequest(r, true);
    EXPECT_EQ(r->wait(), RequestStatus::eFailed);
    EXPECT_EQ(called, 1);
    EXPECT_EQ(seen, RequestStatus::eFailed);
    EXPECT_FALSE(r->getResult());
}

TEST_F(Reads, AudioIsSplitPerChannelAndRepeatedRequestsComeFromTheCache)
{
    AudioSpec format;
    format.bits = 24;
    Vl::Ptr<FileReadInstance> f = open(buildFile(std::nullopt, format));
    ASSERT_TRUE(f);
    Vl::Ptr<AudioReadRequest> r = audio(f, 0, 100, 50);
    ASSERT_EQ(r->getStatus(), RequestStatus::eCompleted);
    const Aud::StreamBufferList& out = r->result();
    ASSERT_EQ(out.channels(), 2u);
    ASSERT_EQ(out.samples(), 50u);
    ASSERT_EQ(out.bytesPerSample(), 3u);
    // Chunk 0 byte i is i * 7; sample s of channel c starts at (s * 2 + c) * 3.
    for (unsigned s = 0; s < 50; ++s)
        for (unsigned c = 0; c < 2; ++c)
            for (unsigned k = 0; k < 3; ++k)
                ASSERT_EQ(out.channel(c)[s * 3 + k], static_cast<std::uint8_t>(((100 + s) * 6 + c * 3 + k) * 7))
                    << s << " " << c;

    std::uint64_t hits = f->channelCache().hits();
    int called = 0;
    Vl::Ptr<AudioReadRequest> again(new AudioReadRequest(f, 0, 100, 50));
    again->setCallback([&](AudioReadRequest&, RequestStatus::eFileReqStatus s) {
        EXPECT_EQ(s, RequestStatus::eCompleted);
        ++called;
    });
    reader_->readAudioSample(again, true);
    EXPECT_EQ(again->wait(), RequestStatus::eCompleted);
    reader_->waitForIdle();
    EXPECT_EQ(called, 1);
    EXPECT_EQ(f->channelCache().hits(), hits + 1);
    EXPECT_EQ(std::vector<std::uint8_t>(again->result().channel(1), again->result().channel(1) + 150),
              std::vector<std::uint8_t>(out.channel(1), out.channel(1) + 150));
}

TEST_F(Reads, AudioStreamNumberUpToTheCountIsTriedBeyondItRefused)
{
    Vl::Ptr<FileReadInstance> f = reader_->openFile(VlWString(wide(dataPath("uyvy_pcm16.avi"))),
                                                   FileReadInstance::eOpenForPlayback);
    ASSERT_TRUE(f);
    ASSERT_EQ(f->metadata()->audio().audioStreams(), 1u);
    EXPECT_EQ(audio(f, 0, 0, 10)->getStatus(), RequestStatus::eCompleted);
    // Equal to the count: let through, and read from the stream still open.
    EXPECT_EQ(audio(f, 1, 0, 10)->getStatus(), RequestStatus::eCompleted);
    EXPECT_EQ(audio(f, 2, 0, 10)->getStatus(), RequestStatus::eFailed);
}

TEST_F(Reads, AudioPastTheEndIsNotAFailure)
{
    Vl::Ptr<FileReadInstance> f = open(buildFile(std::nullopt, AudioSpec{}));
    ASSERT_TRUE(f);
    Vl::Ptr<AudioReadRequest> r = audio(f, 0, 3 * 1920 - 10, 100);
    EXPECT_EQ(r->getStatus(), RequestStatus::eCompleted);
    EXPECT_LE(r->result().samples(), 10u);
    Vl::Ptr<AudioReadRequest> beyond = audio(f, 0, 10 * 1920, 100);
    EXPECT_EQ(beyond->getStatus(), RequestStatus::eCompleted);
    EXPECT_EQ(beyond->result().samples(), 0u);
}

} // namespace
