// The editor's whole path over the corpus: the plug-in loaded with
// dlopen, every frame and every audio stream read through its reader
// component, frame-exact against ffmpeg; and velloro's commands.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "PluginRead.h"
#include "common/TempDir.h"
#include "plugin/plugin_support.h"

using namespace plugintest;

namespace {

class Corpus : public LoadedPlugin, public testing::WithParamInterface<std::string>
{};

// Lines that cannot agree by design: the editor is told one audio format
// per file (the first stream's), so a later stream of another layout
// (pcm24_6ch.avi's 6-channel 16-bit stream beside a 2-channel 24-bit one)
// reaches it cut to the first stream's frame size.
std::vector<std::string> withoutMismatchedAudio(const std::string& file, std::vector<std::string> lines)
{
    if (file != "pcm24_6ch.avi")
        return lines;
    std::erase_if(lines, [](const std::string& l) { return l.rfind("audio 1 ", 0) == 0; });
    return lines;
}

TEST_P(Corpus, FrameMd5ThroughThePluginMatchesFfmpeg)
{
    const std::string path = dataPath(GetParam());
    std::string ours;
    std::string error;
    ASSERT_TRUE(velloro::pluginFrameMd5(*reader_, wide(path), ours, error)) << error;
    std::vector<std::string> expected = comparable(slurp(path + ".framemd5"));
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(withoutMismatchedAudio(GetParam(), comparable(ours)), withoutMismatchedAudio(GetParam(), expected));
    // The header lines ffmpeg prints for the video stream.
    if (ours.find("#media_type 0: video") != std::string::npos) {
        const std::string ref = slurp(path + ".framemd5");
        auto line = [](const std::string& text, const char* key) {
            auto at = text.find(key);
            return at == std::string::npos ? std::string() : text.substr(at, text.find('\n', at) - at);
        };
        for (const char* key : {"#tb 0:", "#codec_id 0:", "#dimensions 0:"})
            EXPECT_EQ(line(ours, key), line(ref, key)) << key;
    }
}

INSTANTIATE_TEST_SUITE_P(Plugin, Corpus, testing::ValuesIn(corpus()),
                         [](const testing::TestParamInfo<std::string>& i) {
                             std::string n = i.param.substr(0, i.param.find('.'));
                             for (char& c : n)
                                 if (!std::isalnum(static_cast<unsigned char>(c)))
                                     c = '_';
                             return n;
                         });

// velloro itself: the binary beside lib/, one line on failure.
struct Outcome { int status; std::string out; std::string err; };

Outcome velloroRun(const std::string& args)
{
    testutil::TempDir dir;
    std::string out = (dir.path() / "out").string();
    std::string err = (dir.path() / "err").string();
    std::string cmd = "bin/velloro " + args + " >'" + out + "' 2>'" + err + "'";
    int rc = std::system(cmd.c_str());
    return {WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, slurp(out), slurp(err)};
}

TEST(Velloro, FrameMd5AndProbeRunThroughThePlugin)
{
    ASSERT_TRUE(std::filesystem::exists("bin/velloro"));
    Outcome r = velloroRun("framemd5 '" + dataPath("dv_pal.avi") + "'");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(comparable(r.out), comparable(slurp(dataPath("dv_pal.avi.framemd5"))));
    EXPECT_EQ(r.err, "");
    // The editor's metadata, on one line.
    r = velloroRun("probe '" + dataPath("dv_ntsc.avi") + "' --json");
    EXPECT_EQ(r.status, 0) << r.err;
    for (const char* field : {"\"supported\": 3", "\"width\": 720", "\"height\": 480", "\"fourcc\": \"dvsd\"",
                              "\"stride\": 1440", "\"video_format\": 16", "\"frame_rate\": 29.970",
                              "\"length_frames\": 3", "\"gop_size\": 1", "\"audio_channels\": 2",
                              "\"audio_type\": \"pcm\""})
        EXPECT_NE(r.out.find(field), std::string::npos) << field << "\n" << r.out;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1);
}

// The container's own reason reaches the editor's one error line.
TEST(Velloro, ABadFileGivesOneLineWithTheContainersReason)
{
    testutil::TempDir dir;
    std::string text = (dir.path() / "notes.avi").string();
    std::ofstream(text) << "these are not the frames you are looking for\n";
    Outcome r = velloroRun("framemd5 '" + text + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(r.err.rfind("velloro framemd5: " + text + ": cannot open: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("not an avi file"), std::string::npos) << r.err;
}

} // namespace
