// velloro's render and export through the loaded plug-in: ffprobe opens
// every written file cleanly with the right streams, and the files read back
// through the plug-in frame-exact.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>

#include "Md5.h"
#include "PluginRead.h"
#include "PluginWrite.h"
#include "Synth.h"
#include "common/TempDir.h"
#include "plugin/plugin_support.h"
#include "plugin_writer/writer_support.h"
#include "util/fourcc.h"
#include "vlhost/FileFaults.h"

namespace {

using namespace plugintest;
using std::filesystem::exists;
using pluginwritertest::run;
using testutil::probe;

class WriterPlugin : public LoadedPlugin
{
protected:
    void SetUp() override
    {
        LoadedPlugin::SetUp();
        writer_ = loader_.findWriter("AVI FileWriter");
        ASSERT_NE(writer_, nullptr);
    }
    Vl::FileWriterResource* writer_ = nullptr;
    testutil::TempDir dir_;
};

TEST_F(WriterPlugin, RenderEveryFormat)
{
    // The tag written is the format rendered.
    struct Case { const char* format; std::uint32_t width, height, num, den, channels, rate; } cases[] = {
        {"UYVY", 1920, 1080, 30000, 1001, 2, 48000}, {"YUY2", 720, 576, 25, 1, 1, 44100},
        {"M101", 720, 486, 30000, 1001, 4, 48000},   {"M102", 1280, 720, 60000, 1001, 2, 48000},
        {"v210", 1920, 1080, 24000, 1001, 2, 96000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        velloro::RenderOptions o;
        o.fcc = Morvane::makeFourCC(reinterpret_cast<const char(&)[5]>(*c.format));
        o.width = c.width, o.height = c.height, o.rateNum = c.num, o.rateDen = c.den;
        o.channels = c.channels, o.sampleRate = c.rate, o.seconds = 0.5;
        const std::string path = dir_.path().string() + "/" + c.format + ".avi";
        std::string error;
        ASSERT_TRUE(velloro::renderFile(*reader_, *writer_, wide(path), o, nullptr, error)) << error;
        const unsigned frames = static_cast<unsigned>(std::llround(0.5 * c.num / c.den));

        EXPECT_EQ(run("ffprobe -v error '" + path + "' 2>&1"), "");
        const std::map<std::string, std::string> video = {
            {"codec_tag_string", c.format}, {"width", std::to_string(c.width)}, {"height", std::to_string(c.height)},
            {"r_frame_rate", std::to_string(c.num) + "/" + std::to_string(c.den)},
            {"nb_read_packets", std::to_string(frames)}};
        EXPECT_EQ(probe(path, "v", "stream=codec_tag_string,width,height,r_frame_rate,nb_read_packets"), video);
        const std::map<std::string, std::string> audio = {{"codec_name", "pcm_s16le"},
            {"sample_rate", std::to_string(c.rate)}, {"channels", std::to_string(c.channels)}};
        EXPECT_EQ(probe(path, "a", "stream=codec_name,sample_rate,channels"), audio);
        // Audio as long as the video, to the sample.
        std::string pcm = run("ffmpeg -v error -i '" + path + "' -map 0:a -f s16le - 2>/dev/null");
        EXPECT_EQ(pcm.size(), std::uint64_t(frames) * c.den * c.rate / c.num * 2 * c.channels);

        // Through the plug-in, every frame is the frame that was made.
        std::string lines;
        ASSERT_TRUE(velloro::pluginFrameMd5(*reader_, wide(path), lines, error)) << error;
        std::vector<std::string> got = comparable(lines);
        std::vector<unsigned char> picture;
        for (unsigned n = 0; n < frames; ++n) {
            velloro::synthFrame(o.fcc, c.width, c.height, n, picture);
            ASSERT_LT(n, got.size());
            EXPECT_NE(got[n].find(velloro::Md5::of(picture.data(), picture.size())), std::string::npos) << n;
        }
    }
}

TEST_F(WriterPlugin, ExportKeepsFramesAndAudio)
{
    const std::map<std::string, const char*> carried = {
        {"uyvy_pcm16.avi", "UYVY"}, {"yuy2_pcm16.avi", "YUY2"}, {"dv_pal.avi", "dvsd"},
        {"dv_ntsc.avi", "dvsd"},    {"dv50.avi", "dv50"},       {"mjpeg.avi", "mjpg"},
    };
    for (const std::string& name : corpus()) {
        SCOPED_TRACE(name);
        const std::string in = dataPath(name);
        const std::string out = dir_.path().string() + "/e_" + name;
        std::string error;
        bool ok = velloro::exportFile(*reader_, *writer_, wide(in), wide(out), nullptr, error);
        auto tag = carried.find(name);
        if (tag == carried.end()) {
            EXPECT_FALSE(ok);
            EXPECT_FALSE(error.empty());
            EXPECT_FALSE(exists(out));
            continue;
        }
        ASSERT_TRUE(ok) << error;
        EXPECT_EQ(run("ffprobe -v error '" + out + "' 2>&1"), "");
        const char* entries = "stream=codec_tag_string,width,height,r_frame_rate,nb_read_packets";
        auto vi = probe(in, "v", entries), vo = probe(out, "v", entries);
        EXPECT_EQ(vo["codec_tag_string"], tag->second);
        for (const char* key : {"width", "height", "r_frame_rate", "nb_read_packets"})
            EXPECT_EQ(vo[key], vi[key]) << key;
        auto ai = probe(in, "a", "stream=codec_name,sample_rate,channels");
        EXPECT_EQ(probe(out, "a", "stream=codec_name,sample_rate,channels"), ai);
        auto videoMd5 = [&](const std::string& f) {
            return comparable(run("ffmpeg -v error -i '" + f + "' -map 0:v -c copy -f framemd5 - 2>/dev/null"));
        };
        EXPECT_EQ(videoMd5(out), videoMd5(in));
        auto audioMd5 = [&](const std::string& f) {
            return run("ffmpeg -v error -i '" + f + "' -map 0:a -c copy -f md5 - 2>/dev/null");
        };
        EXPECT_EQ(audioMd5(out), audioMd5(in));
    }
}

TEST_F(WriterPlugin, FailuresLeaveNoFile)
{
    velloro::RenderOptions o;
    o.width = 720, o.height = 576, o.rateNum = 25, o.rateDen = 1, o.seconds = 2;
    std::string error;

    const std::string full = dir_.path().string() + "/full.avi";
    vlhost::FileFaults faults;
    faults.writeLimit = 1 << 20;
    vlhost::setFileFaults(wide(full), faults);
    EXPECT_FALSE(velloro::renderFile(*reader_, *writer_, wide(full), o, nullptr, error));
    vlhost::clearFileFaults();
    EXPECT_NE(error.find("disk is full"), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos);
    EXPECT_FALSE(exists(full));

    error.clear();
    const std::string nowhere = dir_.path().string() + "/no/such/dir/x.avi";
    EXPECT_FALSE(velloro::renderFile(*reader_, *writer_, wide(nowhere), o, nullptr, error));
    EXPECT_NE(error.find("cannot create"), std::string::npos) << error;

    const std::string odd = dir_.path().string() + "/odd.avi";
    o.fcc = Morvane::makeFourCC("XVID");
    EXPECT_FALSE(velloro::renderFile(*reader_, *writer_, wide(odd), o, nullptr, error));
    EXPECT_NE(error.find("unsupported format"), std::string::npos) << error;
    o.fcc = Morvane::makeFourCC("UYVY");
    o.rateNum = 7;
    EXPECT_FALSE(velloro::renderFile(*reader_, *writer_, wide(odd), o, nullptr, error));
    EXPECT_NE(error.find("unsupported frame rate"), std::string::npos) << error;
    EXPECT_FALSE(exists(odd));
}

} // namespace
