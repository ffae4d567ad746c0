// The editor's whole path over the corpus: the plug-in loaded with
// dlopen, every frame and every audio stream read through its reader
// component, frame-exact against ffmpeg; and velloro's commands.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "PluginRead.h"
#include "common/TempDir.h"
#include "plugin/plugin_support.h"

using namespace plugintest;

namespace {

// One file of the corpus: ffmpeg's files beside the tests, then the files
// of tests/corpus/variants.txt that make-corpus.sh made for the run.
struct CorpusFile
{
    std::string name;
    std::string path;
    bool cut = false; // the file ends where its writer was cut off
    bool headersLie = false; // its lengths or sizes are not what it holds
};

void PrintTo(const CorpusFile& f, std::ostream* os)
{
    *os << f.path;
}

std::vector<CorpusFile> corpusFiles()
{
    std::vector<CorpusFile> files;
    for (const std::string& f : corpus())
        files.push_back({f.substr(0, f.find('.')), dataPath(f)});
    std::ifstream list(VELLORO_CORPUS_LIST);
    for (std::string line; std::getline(list, line);) {
        line = line.substr(0, line.find('#'));
        std::istringstream words(line);
        std::string name;
        if (!(words >> name))
            continue;
        const bool cut = line.find(" --cut") != std::string::npos;
        files.push_back({name, std::string(VELLORO_CORPUS_DIR) + "/" + name + ".avi", cut,
                         cut || line.find("--zero-lengths") != std::string::npos ||
                             line.find("--stale-sizes") != std::string::npos});
    }
    return files;
}

class Corpus : public LoadedPlugin, public testing::WithParamInterface<CorpusFile>
{};

// Lines that cannot agree by design: the editor is told one audio format
// per file (the first stream's), so a later stream of another layout
// (pcm24_6ch.avi's 6-channel 16-bit stream beside a 2-channel 24-bit one)
// reaches it cut to the first stream's frame size.
std::vector<std::string> withoutMismatchedAudio(const std::string& file, std::vector<std::string> lines)
{
    if (file != "pcm24_6ch")
        return lines;
    std::erase_if(lines, [](const std::string& l) { return l.rfind("audio 1 ", 0) == 0; });
    return lines;
}

std::vector<std::string> videoLines(std::vector<std::string> lines)
{
    std::erase_if(lines, [](const std::string& l) { return l.rfind("audio ", 0) == 0; });
    return lines;
}

std::uint64_t packetSize(const std::string& line)
{
    std::istringstream words(line);
    std::string stream, dts;
    std::uint64_t size = 0;
    words >> stream >> dts >> size;
    return size;
}

// ffmpeg's lines, less the partial packet that ffmpeg makes of a frame cut
// by the end of the file (shorter than the whole frames before it): the
// reader serves whole chunks only.
std::vector<std::string> expectedLines(const CorpusFile& f)
{
    std::vector<std::string> lines = withoutMismatchedAudio(f.name, comparable(slurp(f.path + ".framemd5")));
    std::vector<std::string> video = videoLines(lines);
    if (f.cut && video.size() >= 2 && packetSize(video.back()) < packetSize(video[video.size() - 2]))
        std::erase(lines, video.back());
    return lines;
}

TEST_P(Corpus, ReadsFrameExactAndExportsFrameExact)
{
    const CorpusFile& f = GetParam();
    ASSERT_TRUE(std::filesystem::exists(f.path)) << f.path << ": run scripts/make-corpus.sh";
    std::string ours;
    std::string error;
    ASSERT_TRUE(velloro::pluginFrameMd5(*reader_, wide(f.path), ours, error)) << error;
    std::vector<std::string> expected = expectedLines(f);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(withoutMismatchedAudio(f.name, comparable(ours)), expected);
    // The header lines ffmpeg prints for the video stream.
    if (ours.find("#media_type 0: video") != std::string::npos) {
        const std::string ref = slurp(f.path + ".framemd5");
        auto line = [](const std::string& text, const char* key) {
            auto at = text.find(key);
            return at == std::string::npos ? std::string() : text.substr(at, text.find('\n', at) - at);
        };
        for (const char* key : {"#tb 0:", "#codec_id 0:", "#dimensions 0:"})
            EXPECT_EQ(line(ours, key), line(ref, key)) << key;
    }

    // velloro export copies what the editor is handed, frame for frame, or
    // says at once why it cannot.
    testutil::TempDir dir;
    const std::string copy = (dir.path() / "copy.avi").string();
    const std::string err = (dir.path() / "err").string();
    int rc = std::system(("timeout 120 bin/velloro export '" + f.path + "' '" + copy + "' >/dev/null 2>'" + err + "'").c_str());
    ASSERT_TRUE(WIFEXITED(rc)) << f.name;
    if (WEXITSTATUS(rc) != 0) {
        EXPECT_EQ(WEXITSTATUS(rc), 1);
        const std::string why = slurp(err);
        EXPECT_EQ(std::count(why.begin(), why.end(), '\n'), 1) << why;
        EXPECT_EQ(why.rfind("velloro export: ", 0), 0u) << why;
        return;
    }
    // Other readers see the copy as we do.
    EXPECT_EQ(testutil::run("ffprobe -v error '" + copy + "' 2>&1"), "");
    std::string served;
    std::string copied;
    ASSERT_TRUE(velloro::pluginFrameMd5(*reader_, wide(f.path), served, error, true)) << error;
    ASSERT_TRUE(velloro::pluginFrameMd5(*reader_, wide(copy), copied, error, true)) << error;
    // The copy's sound ends with its pictures; a cut file's ran on further.
    if (f.cut)
        EXPECT_EQ(videoLines(comparable(copied)), videoLines(comparable(served)));
    else
        EXPECT_EQ(comparable(copied), comparable(served));
}

// What files of other tools record of their scan and first frame's label,
// and their sound, as the editor must be told (a label of "" is none), and
// as velloro export's copies keep them.
TEST_F(LoadedPlugin, ScanTimecodeAndChannelsAsTheFilesRecordThem)
{
    struct Case { const char* name; std::uint32_t scan; const char* timecode; std::uint32_t channels; } cases[] = {
        {"ff_dv_pal", 2, "", 2},                 // ffmpeg's DV: lower field first, as its frames say
        {"dv_ntsc_odml_dropped", 2, "", 2},
        {"dv_pal_tff", 1, "", 2},
        {"dv_subcode_tc", 2, "01:02:03;04", 0},
        {"ismp_drop", 3, "01:00:00;00", 2},
        {"ismp_dot_ntsc", 3, "01:00:00;00", 2},
        {"ismp_colon_pal", 3, "10:00:00:12", 2},
        {"ismp_dot_pal", 3, "10:00:00:12", 2},
        {"rewritten_plain", 3, "", 2},           // no ISMP: no label
        {"mpeg2_51", 0, "", 6},
        {"dv50_4ch", 2, "", 4},
    };
    testutil::TempDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // The file as it is, then velloro export's copy of it.
        const std::string path = std::string(VELLORO_CORPUS_DIR) + "/" + c.name + ".avi";
        const std::string copy = (dir.path() / (std::string(c.name) + ".avi")).string();
        ASSERT_EQ(std::system(("bin/velloro export -q '" + path + "' '" + copy + "'").c_str()), 0);
        for (const std::string& file : {path, copy}) {
            std::string error;
            Vl::Ptr<FileReadInstance> f = velloro::openThrough(*reader_, wide(file), error);
            ASSERT_TRUE(f) << error;
            const PlayFileMetadata& md = *f->metadata();
            if (c.scan) {
                EXPECT_EQ(md.video().scanMode(), c.scan) << file;
            }
            EXPECT_EQ(md.startLabel().text(), c.timecode) << file;
            EXPECT_EQ(md.audio().audioStreams() ? md.audio().channelsPerStream() : 0, c.channels) << file;
            if (c.channels) {
                EXPECT_EQ(md.audio().dataType(), Aud::eDataPcm) << file;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Plugin, Corpus, testing::ValuesIn(corpusFiles()),
                         [](const testing::TestParamInfo<CorpusFile>& i) {
                             std::string n = i.param.name;
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

TEST(Velloro, FrameMd5RunsThroughThePlugin)
{
    ASSERT_TRUE(std::filesystem::exists("bin/velloro"));
    Outcome r = velloroRun("framemd5 '" + dataPath("dv_pal.avi") + "'");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(comparable(r.out), comparable(slurp(dataPath("dv_pal.avi.framemd5"))));
    EXPECT_EQ(r.err, "");
}

// velloro probe --json in ffprobe's shape, field by field against ffprobe
// over the corpus: what ffprobe leaves out or cannot tell ("unknown" field
// order, an audio duration it estimates) it is not asked for, nor the lengths
// of files whose headers lie.
TEST(Velloro, ProbeJsonSaysWhatFfprobeSays)
{
    using nlohmann::json;
    for (const CorpusFile& f : corpusFiles()) {
        SCOPED_TRACE(f.path);
        if (f.headersLie)
            continue;
        Outcome r = velloroRun("probe --json '" + f.path + "'");
        if (r.status != 0)
            continue; // nothing the editor can play: the frame tests say why
        const json ours = json::parse(r.out, nullptr, false);
        const json theirs = json::parse(
            testutil::run("ffprobe -v error -show_streams -show_format -of json '" + f.path + "'"), nullptr, false);
        ASSERT_FALSE(ours.is_discarded()) << r.out;
        ASSERT_FALSE(theirs.is_discarded());
        ASSERT_TRUE(ours.contains("editor"));
        for (const json& s : ours["streams"]) {
            const json& t = theirs["streams"].at(s["index"].get<std::size_t>());
            for (const char* key : {"index", "codec_type", "codec_tag_string", "width", "height", "r_frame_rate",
                                    "nb_frames", "sample_rate", "channels", "bits_per_sample", "duration",
                                    "field_order"}) {
                if (!s.contains(key) || !t.contains(key) || t[key] == "unknown" ||
                    (s["codec_type"] == "audio" && key == std::string("duration")))
                    continue;
                EXPECT_EQ(s[key], t[key]) << key << " of stream " << s["index"];
            }
        }
        const json& format = theirs["format"];
        // Without video, ffprobe estimates the duration from the bit rate.
        for (const char* key : {"nb_streams", "size", "duration"}) {
            if (key != std::string("duration") || ours["editor"]["video_tracks"] != 0) {
                EXPECT_EQ(ours["format"][key], format[key]) << key;
            }
        }
        // ffprobe shows ISMP as written ('.' before the frames, drop frame
        // or not, as the rate says); a DV frame's own label it does not show.
        std::string label = format.value("/tags/timecode"_json_pointer, "");
        const std::string ourLabel = ours["format"].value("/tags/timecode"_json_pointer, "");
        if (label.size() == 11 && ourLabel.size() == 11 && label[8] == '.')
            label[8] = ourLabel[8];
        if (!label.empty()) {
            EXPECT_EQ(ourLabel, label);
        }
    }
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
