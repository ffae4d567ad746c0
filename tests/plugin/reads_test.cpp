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
        return openPath(path);
    }
    Vl::Ptr<FileReadInstance> openPath(const std::string& path)
    {
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

// A frame-type (IBP) index, stored I0 P3 B1 B2 P5 B4 | I6 P9 B7 B8 P11 B10 | I12;
// frame k of frameSize(k).
TEST_F(Reads, LongGopGroupIsOneRecordAndOneBlockInDecodeOrder)
{
    std::vector<Entry> entries = longGopEntries();
    for (unsigned k = 0; k < entries.size(); ++k)
        entries[k].size = static_cast<std::uint32_t>(frameSize(k));
    Vl::Ptr<FileReadInstance> f = open(buildOdml(AVI_INDEX_IBP, {entries}, true));
    ASSERT_TRUE(f);
    EXPECT_EQ(f->metadata()->video().gopSize(), 6u);

    // b asks for the group's last frame: the record is found at either end.
    Vl::Ptr<VideoReadRequest> a = read(f, 2, true), b = read(f, 5, true), c = read(f, 8, true);
    for (const auto& r : {a, b, c})
        ASSERT_EQ(r->wait(), RequestStatus::eCompleted);
    // Frames first..last - 1 as stored, one after the other.
    auto stored = [](unsigned first, unsigned last) {
        Bytes out;
        for (unsigned k = first; k < last; ++k) {
            Bytes one = frameData(k, frameSize(k));
            out.insert(out.end(), one.begin(), one.end());
        }
        return out;
    };
    auto got = [](const Vl::Ptr<VideoReadRequest>& r) {
        return Bytes(r->getResult()->bytes(), r->getResult()->bytes() + r->getResult()->size());
    };

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
        EXPECT_EQ(got(request), stored(first, first + 6));
        EXPECT_EQ(frame->indexInfo().get(), request->getIndexInfo().get());
        // Sector-aligned storage, the payload within its first sector.
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(frame->memory()->data()) % 512, 0u);
        EXPECT_LT(frame->memory()->dataOffset(), 4096u);
    }

    // The first request on an open file (as a scrub lands) reads its group
    // whole and closes it up in place; the second group above came from the
    // first's read-ahead. Either way, the same bytes.
    Vl::Ptr<FileReadInstance> fresh = openPath((dir_.path() / "f.avi").string());
    ASSERT_TRUE(fresh);
    Vl::Ptr<VideoReadRequest> alone = read(fresh, 7, true);
    ASSERT_EQ(alone->wait(), RequestStatus::eCompleted);
    EXPECT_EQ(got(alone), stored(6, 12));

    // The last group runs to the end of the index; without a record, one frame.
    Vl::Ptr<VideoReadRequest> last = read(f, 12, true), single = read(f, 3, false), end = read(f, 11, true);
    ASSERT_EQ(last->wait(), RequestStatus::eCompleted);
    ASSERT_EQ(end->wait(), RequestStatus::eCompleted);
    EXPECT_EQ(end->getIndexInfo().get(), c->getIndexInfo().get());
    EXPECT_EQ(last->getIndexInfo()->decodeOrder(), (std::vector<unsigned>{12}));
    ASSERT_EQ(single->wait(), RequestStatus::eCompleted);
    EXPECT_FALSE(single->getIndexInfo());
    EXPECT_EQ(got(single), stored(3, 4));
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

// An intra-only file: timed requests, no group records, and a failed frame
// that completes as failed and calls back once.
TEST_F(Reads, IntraOnlyRequestsAreTimedBuildNoRecordsAndFailCleanly)
{
    Vl::Ptr<CountingTask> task(new CountingTask);
    TimedTaskManager::registerTimedTask("VlResources/VlFileReader", Vl::Ptr<TimedTask>(task.get()));
    Vl::Ptr<FileReadInstance> f = openPath(dataPath("dv_pal.avi"));
    ASSERT_TRUE(f);
    EXPECT_EQ(read(f, 0, false, false)->getStatus(), RequestStatus::eCompleted);
    EXPECT_EQ(read(f, 99, false, false)->getStatus(), RequestStatus::eFailed);
    TimedTaskManager::unregisterTimedTask("VlResources/VlFileReader");
    EXPECT_EQ(std::tuple(task->starts, task->stops, task->lastLabel), std::tuple(2, 2, std::string("readVideo")));

    EXPECT_LT(f->metadata()->video().gopSize(), 2u);
    Vl::Ptr<IndexInfo> record;
    reader_->VlFileIxCache_open(f, record, 1);
    EXPECT_FALSE(record);
    Vl::Ptr<VideoReadRequest> r = read(f, 1, true);
    ASSERT_EQ(r->wait(), RequestStatus::eCompleted);
    EXPECT_FALSE(r->getIndexInfo());
    EXPECT_EQ(r->getResult()->size(), 144000u);

    Vl::Ptr<VideoReadRequest> bad(new VideoReadRequest(f, 1000));
    std::vector<RequestStatus::eFileReqStatus> seen;
    bad->setCallback([&](VideoReadRequest&, RequestStatus::eFileReqStatus s) { seen.push_back(s); });
    reader_->queueReadRequest(bad, true);
    EXPECT_EQ(bad->wait(), RequestStatus::eFailed);
    EXPECT_EQ(seen, (std::vector<RequestStatus::eFileReqStatus>{RequestStatus::eFailed}));
    EXPECT_FALSE(bad->getResult());
}

TEST_F(Reads, AudioIsSplitPerChannelCachedAndEndsWithoutFailure)
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

    // Past the end is not a failure: what is there, then nothing.
    Vl::Ptr<AudioReadRequest> end = audio(f, 0, 3 * 1920 - 10, 100), beyond = audio(f, 0, 10 * 1920, 100);
    EXPECT_EQ(std::pair(end->getStatus(), beyond->getStatus()),
              std::pair(RequestStatus::eCompleted, RequestStatus::eCompleted));
    EXPECT_LE(end->result().samples(), 10u);
    EXPECT_EQ(beyond->result().samples(), 0u);
}

TEST_F(Reads, AudioStreamNumberUpToTheCountIsTriedBeyondItRefused)
{
    Vl::Ptr<FileReadInstance> f = openPath(dataPath("uyvy_pcm16.avi"));
    ASSERT_TRUE(f);
    ASSERT_EQ(f->metadata()->audio().audioStreams(), 1u);
    EXPECT_EQ(audio(f, 0, 0, 10)->getStatus(), RequestStatus::eCompleted);
    // Equal to the count: let through, and read from the stream still open.
    EXPECT_EQ(audio(f, 1, 0, 10)->getStatus(), RequestStatus::eCompleted);
    EXPECT_EQ(audio(f, 2, 0, 10)->getStatus(), RequestStatus::eFailed);
}

} // namespace
