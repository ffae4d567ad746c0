// Written files as an independent reader sees them: ffprobe and ffmpeg.
#include <gtest/gtest.h>

#include "common/TempDir.h"
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

    // ffmpeg's copy of each stream is exactly the bytes written, in order
    // (the frames are all one size, and counted above).
    for (std::uint32_t k = 0; k < written.streams.size(); ++k) {
        std::string bytes;
        for (std::uint32_t f = 0; f < c.frames; ++f) {
            const std::vector<unsigned char> chunk = written.chunk(k, f);
            bytes.append(chunk.begin(), chunk.end());
        }
        EXPECT_TRUE(copied(path, "0:" + std::to_string(k)) == bytes) << "stream " << k;
    }
}

INSTANTIATE_TEST_SUITE_P(Files, WriterFfprobe,
                         testing::Values(ProbeCase{"Video", 320, 240, 30, 0, 0, 1},
                                         ProbeCase{"VideoAndTwoAudio", 320, 240, 30, 2, 1920, 1},
                                         ProbeCase{"ThreeRiffs", 16, 8, 2 * 8124 + 5, 2, 48, 3}),
                         [](const testing::TestParamInfo<ProbeCase>& info) { return std::string(info.param.name); });
