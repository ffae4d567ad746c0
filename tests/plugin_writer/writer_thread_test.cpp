// The editor's writer thread under load: audio pushed from another thread
// in uneven runs while frames are queued, read back sample for sample; and
// its failure reaching whoever waits on it.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "AVI/FileWriter.h"
#include "common/TempDir.h"
#include "host/ByteBufferImpl.h"
#include "host/FileInfoBase.h"
#include "host/VlDynamicCast.h"
#include "plugin_writer/writer_support.h"
#include "vlhost/HostStats.h"

namespace {

using pluginwritertest::params;
using pluginwritertest::run;

TEST(WriterThread, AudioFromAnotherThreadStaysInOrderAndInSync)
{
    testutil::TempDir dir;
    avi::FileWriter writer;
    Vl::FileWriterParams p = params("UYVY", 64, 48);
    p.videoCompressionInfo_.setScanMode(Vl::eProgressive);
    const std::string path = dir.path().string() + "/t.avi";
    Vl::Ptr<FileWriteInstance> instance;
    ASSERT_EQ(writer.openFile(VlWString(dir.file("t.avi")), p, instance), 1);
    auto base = Vl::dynamicCast<Vl::FileInfoBase>(instance);
    ASSERT_TRUE(base);

    constexpr unsigned kFrames = 150;
    const std::uint64_t total = base->audioSamplesBefore(kFrames);
    // Left channel counts up, right counts down: any lost, doubled or
    // swapped sample shows.
    std::thread audio([&] {
        Aud::StreamBufferList buffers;
        std::uint64_t sent = 0;
        for (std::uint32_t run = 1; sent < total; run = run * 7 % 5003 + 1) {
            std::uint32_t n = static_cast<std::uint32_t>(std::min<std::uint64_t>(run, total - sent));
            buffers.reset(2, n, 2);
            for (std::uint32_t i = 0; i < n; ++i) {
                std::uint16_t l = static_cast<std::uint16_t>(sent + i), r = static_cast<std::uint16_t>(~(sent + i));
                buffers.channel(0)[2 * i] = l & 0xFF, buffers.channel(0)[2 * i + 1] = l >> 8;
                buffers.channel(1)[2 * i] = r & 0xFF, buffers.channel(1)[2 * i + 1] = r >> 8;
            }
            buffers.setSamples(n);
            ASSERT_EQ(writer.writeAudioSamples(instance, buffers, n), 1);
            sent += n;
        }
        writer.setAudioFinished(instance);
    });
    for (unsigned f = 0; f < kFrames; ++f) {
        Vl::Ptr<ByteBufferImpl> memory(new ByteBufferImpl());
        ASSERT_TRUE(memory->alloc(64 * 48 * 2 + 1));
        std::fill(memory->data(), memory->data() + 64 * 48 * 2, static_cast<unsigned char>(f));
        memory->setUsed(64 * 48 * 2);
        Vl::Ptr<FrameBuffer> frame(new FrameBuffer(nullptr, memory, nullptr));
        ASSERT_EQ(instance->writeSurface(frame), 1);
    }
    audio.join();
    writer.setVideoFinished(instance);
    EXPECT_EQ(instance->writeFinish(), 1);
    EXPECT_EQ(instance->getStatus().framesWritten, kFrames);
    EXPECT_EQ(instance->getStatus().state, FileWriteInstance::eFinished);
    base = nullptr;
    instance = nullptr;

    std::string pcm = run("ffmpeg -v error -i '" + path + "' -map 0:a -f s16le - 2>/dev/null");
    ASSERT_EQ(pcm.size(), total * 4);
    for (std::uint64_t i = 0; i < total; ++i) {
        auto at = [&](std::size_t k) { return std::uint16_t(std::uint8_t(pcm[k]) | std::uint8_t(pcm[k + 1]) << 8); };
        ASSERT_EQ(at(4 * i), static_cast<std::uint16_t>(i)) << i;
        ASSERT_EQ(at(4 * i + 2), static_cast<std::uint16_t>(~i)) << i;
    }
    EXPECT_EQ(run("ffprobe -v error '" + path + "' 2>&1"), "");
}

TEST(WriterThread, AFailedWriteRefusesAudioWaitingForRoom)
{
    // Takes its frame's audio, then finds the disk full.
    struct Failing : Vl::FileInfoBase
    {
        using Vl::FileInfoBase::FileInfoBase;
        using Vl::FileInfoBase::writeSurface;
        int initialise() override { return 1; }
        void deinitialise() override {}
        int writeSurface(unsigned char*, unsigned int, VlroMpeg2FrameTypes) override
        {
            std::uint32_t count = 0;
            return getNextAudioBuffers(count) == 1 ? 2 : 0;
        }
    };
    Vl::Ptr<Failing> file(new Failing(L"unused", params("UYVY", 64, 48), true));
    // More than the rings hold: the feeder waits for room only the writer
    // thread makes.
    std::future<int> fed = std::async(std::launch::async, [&] {
        Aud::StreamBufferList buffers;
        buffers.reset(2, 1 << 18, 2);
        buffers.setSamples(1 << 18);
        return file->copyToCircularBuffer(buffers, 1 << 18);
    });
    Vl::Ptr<ByteBufferImpl> memory(new ByteBufferImpl());
    ASSERT_TRUE(memory->alloc(64 * 48 * 2 + 1));
    memory->setUsed(64 * 48 * 2);
    Vl::Ptr<FrameBuffer> frame(new FrameBuffer(nullptr, memory, nullptr));
    ASSERT_EQ(file->writeSurface(frame), 1);
    // A watchdog only: a feeder never woken fails here instead of blocking.
    const bool ended = fed.wait_for(std::chrono::minutes(2)) == std::future_status::ready;
    if (!ended)
        file->signalCancel();
    EXPECT_TRUE(ended);
    EXPECT_EQ(fed.get(), 2); // the failure's code, here and from then on
    Aud::StreamBufferList more;
    more.reset(2, 16, 2);
    EXPECT_EQ(file->copyToCircularBuffer(more, 16), 2);
    EXPECT_EQ(file->writeFinish(), 2);
    EXPECT_EQ(file->getStatus().state, FileWriteInstance::eFailed);
}

TEST(WriterThread, SharesFollowTheFrameRateExactly)
{
    Vl::FileWriterParams p;
    p.videoCompressionInfo_.setFrameRate(Vl::eFrameRate29_97);
    p.audioSettings_.setSamplesPerSec(48000);
    struct Probe : Vl::FileInfoBase
    {
        using Vl::FileInfoBase::FileInfoBase;
        int initialise() override { return 1; }
        void deinitialise() override {}
        int writeSurface(unsigned char*, unsigned int, VlroMpeg2FrameTypes) override { return 1; }
    };
    Vl::Ptr<Probe> probe(new Probe(L"unused", p, false));
    std::vector<std::uint64_t> shares;
    for (int f = 0; f < 10; ++f)
        shares.push_back(probe->audioSamplesBefore(f + 1) - probe->audioSamplesBefore(f));
    EXPECT_EQ(shares, (std::vector<std::uint64_t>{1601, 1602, 1601, 1602, 1602, 1601, 1602, 1601, 1602, 1602}));
    // Ten minutes of frames carry exactly the audio of their duration.
    EXPECT_EQ(probe->audioSamplesBefore(17982), 17982ull * 48000 * 1001 / 30000);
    EXPECT_EQ(probe->audioSamplesBefore(30000 * 3600), 3600ull * 1001 * 48000);
}

} // namespace
