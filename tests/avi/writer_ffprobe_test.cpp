// Written files as an independent reader sees them: ffprobe and ffmpeg.
#include <gtest/gtest.h>

#include "common/TempDir.h"
#include "writer_layout_check.h"
#include "writer_readback.h"

using namespace writertest;

namespace {

struct ProbeCase
{
    const char* name;
    std::uint32_t width, height;
    std::uint32_t frames;
    std::uint32_t audioStreams;
    std::uint32_t audioSamplesPerFrame;
    std::uint32_t expectedRiffs;
};

} // namespace

class WriterFfprobe : public testing::TestWithParam<ProbeCase>
{
};

TEST_P(WriterFfprobe, OpensCleanlyAndGivesTheWrittenBytes)
{
    const ProbeCase c = GetParam();
    testutil::TempDir dir;
    const std::wstring path = dir.file("probe.avi");
    std::vector<TrackStructuralData> tracks = {timecodeTrack(0), videoTrack("UYVY", c.width, c.height, 25, 1)};
    tracks[1].Data.VInfo.bitCount = 16;
    for (std::uint32_t a = 0; a < c.audioStreams; ++a)
        tracks.push_back(audioTrack(2, 48000));

    Written written;
    {
        FileWriter w;
        w.set_FlushFrequency(50);
        ASSERT_EQ(w.create(path, tracks.data(), static_cast<std::uint16_t>(tracks.size())), S_OK);
        written.start(w, tracks);
        for (std::uint32_t f = 0; f < c.frames; ++f) {
            // Audio: a few samples more or less so that frames and streams differ.
            ASSERT_EQ(writeFrame(w, tracks, f, [&](std::size_t k) -> std::uint32_t {
                          return k == 0 ? 4 : k == 1 ? c.width * c.height * 2
                                                     : (c.audioSamplesPerFrame + f % 3 - (k - 2)) * 4;
                      }, &written), S_OK);
        }
        EXPECT_EQ(w.get_RiffChunkIndex() + 1, c.expectedRiffs);
    }
    // The writer's destructor closed the file.
    expectReadsBack(path, written);
    std::vector<std::string> ids = {"00db", "01wb", "02wb"};
    ids.resize(1 + c.audioStreams);
    checkLayout(Walk(path), Expected{86016 + 4096 + 512 + 86016ull * c.audioStreams, c.frames, ids});

    EXPECT_EQ(run("ffprobe -v error '" + narrow(path) + "' 2>&1"), "");
    using Fields = std::map<std::string, std::string>;
    EXPECT_EQ(probeStream(path, 0, "codec_tag_string,width,height,r_frame_rate,nb_read_packets,nb_frames"),
              (Fields{{"codec_tag_string", "UYVY"}, {"width", std::to_string(c.width)},
                      {"height", std::to_string(c.height)}, {"r_frame_rate", "25/1"},
                      {"nb_frames", std::to_string(c.frames)}, {"nb_read_packets", std::to_string(c.frames)}}));
    for (std::uint32_t a = 0; a < c.audioStreams; ++a)
        EXPECT_EQ(probeStream(path, 1 + static_cast<int>(a), "codec_name,sample_rate,channels"),
                  (Fields{{"codec_name", "pcm_s16le"}, {"sample_rate", "48000"}, {"channels", "2"}}));

    // ffmpeg's copy gives back exactly the bytes written: video frame by
    // frame, audio stream by stream (it may cut PCM into other packets).
    auto lines = frameMd5(path, "0");
    std::vector<std::vector<const FrameMd5Line*>> perStream(1 + c.audioStreams);
    for (const FrameMd5Line& l : lines) {
        ASSERT_GE(l.stream, 0) << l.md5;
        ASSERT_LT(static_cast<std::uint32_t>(l.stream), perStream.size());
        perStream[l.stream].push_back(&l);
    }
    ASSERT_EQ(perStream[0].size(), c.frames);
    for (std::size_t i = 0; i < c.frames; ++i) {
        EXPECT_EQ(perStream[0][i]->size, c.width * c.height * 2) << "frame " << i;
        if (i < 100) {
            EXPECT_EQ(perStream[0][i]->md5, md5Hex(written.streams[0].frames[i])) << "frame " << i;
        }
    }
    for (std::uint32_t a = 0; a < c.audioStreams; ++a) {
        const std::vector<unsigned char>& audio = written.streams[1 + a].audio;
        std::uint64_t bytes = 0;
        for (const FrameMd5Line* l : perStream[1 + a])
            bytes += l->size;
        EXPECT_EQ(bytes, audio.size()) << "audio stream " << a;
        std::string md5 = run("ffmpeg -v error -i '" + narrow(path) + "' -map 0:" + std::to_string(1 + a) +
                              " -c copy -f md5 - 2>&1");
        EXPECT_EQ(md5, "MD5=" + md5Hex(audio) + "\n") << "audio stream " << a;
    }
}

INSTANTIATE_TEST_SUITE_P(Files, WriterFfprobe,
                         testing::Values(ProbeCase{"Video", 320, 240, 30, 0, 0, 1},
                                         ProbeCase{"VideoAndTwoAudio", 320, 240, 30, 2, 1920, 1},
                                         ProbeCase{"ThreeRiffs", 16, 8, 2 * 8124 + 5, 2, 48, 3}),
                         [](const testing::TestParamInfo<ProbeCase>& info) { return std::string(info.param.name); });
