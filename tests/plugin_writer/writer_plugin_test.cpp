// velloro's render and export through the loaded plug-in: ffprobe opens
// every written file cleanly with the right streams, and the files read back
// through the plug-in frame-exact; a source that breaks part-way ends the
// export with its error.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
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

// Sources whose reads fail part-way, made from one ffmpeg file by breaking its
// idx1 from half-way (or from the start) on: entries of one kind pointed past
// the end of the file or dropped, or the movi cut in half with the idx1 kept.
// velloro export ends (timeout makes a hang a status of its own) with
// status 1 and one line naming the source and what failed, and leaves no
// file or one ffprobe opens cleanly.
TEST_F(WriterPlugin, ExportOfASourceThatFailsPartWayEndsWithItsError)
{
    const std::string dir = dir_.path().string(), src = dir + "/src.avi";
    ASSERT_EQ(std::system(("ffmpeg -v error -f lavfi -i testsrc=size=64x48:rate=25 -f lavfi -i sine=sample_rate=48000 "
                           "-t 2 -c:v rawvideo -pix_fmt uyvy422 -vtag UYVY -c:a pcm_s16le -ac 2 '" + src + "'")
                              .c_str()),
              0);
    const std::string whole = slurp(src);
    auto u32 = [](const std::string& s, std::size_t at) {
        std::uint32_t v;
        std::memcpy(&v, s.data() + at, 4);
        return v;
    };
    auto put = [](std::string& s, std::size_t at, std::uint32_t v) { std::memcpy(s.data() + at, &v, 4); };
    std::size_t movi = 0, idx1 = 0;
    for (std::size_t at = 12; at + 8 <= whole.size(); at += 8 + ((u32(whole, at + 4) + 1) & ~1u)) {
        if (whole.compare(at, 4, "idx1") == 0)
            idx1 = at;
        if (whole.compare(at, 4, "LIST") == 0 && whole.compare(at + 8, 4, "movi") == 0)
            movi = at;
    }
    ASSERT_TRUE(movi && idx1 && idx1 + 8 + u32(whole, idx1 + 4) <= whole.size());
    const std::string entries = whole.substr(idx1 + 8, u32(whole, idx1 + 4));

    enum How { kPastTheEnd, kDropped, kCut };
    // reason: what the line names after the source; none where the index
    // lists less sound than the header says (the export may finish with the
    // sound there is) or the reader takes the break for its end.
    struct Case { How how; const char* kind; bool fromStart; const char* reason; } cases[] = {
        {kPastTheEnd, "dc", false, ": frame "},
        {kCut, "", false, ": frame "},
        {kDropped, "wb", false, nullptr},
        {kDropped, "wb", true, nullptr},
        {kPastTheEnd, "wb", false, nullptr},
    };
    for (std::size_t k = 0; k < std::size(cases); ++k) {
        const Case& c = cases[k];
        SCOPED_TRACE(k);
        std::string kept;
        const std::size_t n = entries.size() / 16;
        std::size_t ofKind = 0, seen = 0;
        for (std::size_t i = 0; i < n; ++i)
            ofKind += entries.compare(i * 16 + 2, 2, c.kind) == 0;
        for (std::size_t i = 0; i < n; ++i) {
            std::string e = entries.substr(i * 16, 16);
            bool broken = e.compare(2, 2, c.kind) == 0 && seen++ >= (c.fromStart ? 0 : ofKind / 2);
            if (broken && c.how == kDropped)
                continue;
            if (broken)
                put(e, 8, 0x7FFF0000);
            kept += e;
        }
        std::string file = whole.substr(0, idx1);
        if (c.how == kCut) {
            file.resize((movi + 8 + u32(whole, movi + 4) / 2) & ~std::size_t(1));
            put(file, movi + 4, static_cast<std::uint32_t>(file.size() - movi - 8));
        }
        file += "idx1    " + kept;
        put(file, file.size() - kept.size() - 4, static_cast<std::uint32_t>(kept.size()));
        put(file, 4, static_cast<std::uint32_t>(file.size() - 8));
        const std::string in = dir + "/in" + std::to_string(k) + ".avi", out = dir + "/out" + std::to_string(k) + ".avi";
        std::ofstream(in, std::ios::binary) << file;

        int rc = std::system(("timeout -k 10 120 bin/velloro export '" + in + "' '" + out + "' >/dev/null 2>'" + dir +
                              "/err'")
                                 .c_str());
        const int status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
        const std::string err = slurp(dir + "/err");
        const bool oneLine = std::count(err.begin(), err.end(), '\n') == 1;
        if (c.reason) {
            EXPECT_EQ(status, 1) << err;
            EXPECT_TRUE(oneLine) << err;
            EXPECT_EQ(err.rfind("velloro export: " + out + ": " + in + c.reason, 0), 0u) << err;
        } else {
            EXPECT_TRUE((status == 0 && err.empty()) || (status == 1 && oneLine)) << status << " " << err;
        }
        EXPECT_TRUE(!exists(out) || run("ffprobe -v error '" + out + "' 2>&1").empty());
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

// Nothing the user has is written over: an existing OUT without -y, or IN
// under another name even with -y; status 1, one line, the file untouched.
TEST_F(WriterPlugin, ExportAndRenderRefuseToWriteOverWhatIsThere)
{
    const std::string d = dir_.path().string(), in = d + "/in.avi", keep = d + "/keep.avi", link = d + "/link.avi";
    ASSERT_EQ(std::system(("bin/velloro render '" + in + "' --size 64x48 --seconds 0.2").c_str()), 0);
    std::ofstream(keep) << "mine";
    std::filesystem::create_symlink(in, link);
    const std::string was = slurp(in);
    struct Case { std::string args, file, line; } cases[] = {
        {"render '" + keep + "' --size 64x48", keep, "render: " + keep + ": exists (use -y to overwrite)"},
        {"export '" + in + "' '" + keep + "'", keep, "export: " + keep + ": exists (use -y to overwrite)"},
        {"export '" + in + "' -y '" + d + "/./in.avi'", in, "export: " + d + "/./in.avi: is the input file"},
        {"export -y '" + in + "' '" + link + "'", in, "export: " + link + ": is the input file"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const std::string before = slurp(c.file);
        EXPECT_EQ(std::system(("bin/velloro " + c.args + " 2>'" + d + "/err'").c_str()), 1 << 8);
        EXPECT_EQ(slurp(d + "/err"), "velloro " + c.line + "\n");
        EXPECT_EQ(slurp(c.file), before);
    }
    // The editor's side refuses to write a file a reader has open, whatever its name.
    std::string error;
    EXPECT_FALSE(velloro::exportFile(*reader_, *writer_, wide(in), wide(link), nullptr, error));
    EXPECT_NE(error.find("is open for reading"), std::string::npos) << error;
    EXPECT_EQ(slurp(in), was);
    // Told to, it replaces the file.
    EXPECT_EQ(std::system(("bin/velloro export '" + in + "' '" + keep + "' --overwrite").c_str()), 0);
    EXPECT_EQ(probe(keep, "v", "stream=nb_read_packets")["nb_read_packets"], "6");
}

// The command line: help and version on standard output with status 0,
// a usage error named on standard error with status 2 and nothing written,
// options in any order, a summary line after a take unless told to be quiet.
TEST_F(WriterPlugin, CommandLineHelpVersionAndUsageErrors)
{
    const std::string d = dir_.path().string(), clip = d + "/clip.avi";
    ASSERT_EQ(std::system(("bin/velloro render --seconds 0.2 '" + clip + "' --size 64x48 -y >/dev/null").c_str()), 0);
    struct Case { std::string args; int status; std::string out, err; } cases[] = {
        {"--version", 0, "velloro ", ""},
        {"render --help", 0, "--size WxH", ""},
        {"probe --help", 0, "--json", ""},
        {"probe --json '" + clip + "'", 0, "\"width\": 64", ""},
        {"", 2, "", "A subcommand is required"},
        {"bogus", 2, "", "unknown command bogus"},
        {"export '" + clip + "'", 2, "", "OUT is required"},
        {"render '" + d + "/new.avi' --size 12", 2, "", "--size: not WIDTHxHEIGHT: 12"},
        {"render '" + d + "/new.avi' --seconds 0", 2, "", "--seconds"},
        {"render '" + d + "/new.avi' --frobnicate", 2, "", "--frobnicate"},
        {"render '" + d + "/a.avi' --size 64x48 --seconds 0.2", 0, "velloro render: wrote " + d + "/a.avi: 6 frames (0.2 s), ", ""},
        {"render -q '" + d + "/b.avi' --size 64x48 --seconds 0.2", 0, "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const int rc = std::system(("cd '" + d + "' && " + std::filesystem::current_path().string() + "/bin/velloro " +
                                    c.args + " >out 2>err").c_str());
        EXPECT_EQ(WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, c.status);
        EXPECT_NE(slurp(d + "/out").find(c.out), std::string::npos) << slurp(d + "/out");
        EXPECT_NE(slurp(d + "/err").find(c.err), std::string::npos) << slurp(d + "/err");
    }
    // Quiet says nothing; help is not a file name; a refused render leaves nothing.
    EXPECT_EQ(slurp(d + "/out"), "");
    EXPECT_FALSE(exists(d + "/--help"));
    EXPECT_FALSE(exists(d + "/new.avi"));
}

// Contact sheets of every uncompressed format we render: four thumbnails
// 192 pixels wide in a row, each showing the bars (grey, then yellow) where
// the picture has them; a picture it cannot decode is refused by name.
TEST_F(WriterPlugin, ThumbnailsShowTheFramesOfEveryUncompressedFormat)
{
    const std::string d = dir_.path().string();
    for (const char* format : {"UYVY", "YUY2", "M101", "v210"}) {
        SCOPED_TRACE(format);
        const std::string clip = d + "/" + format + ".avi", png = d + "/" + format + ".png";
        ASSERT_EQ(std::system(("bin/velloro render -q '" + clip + "' --format " + format + " --size 128x96 --seconds 0.5")
                                  .c_str()),
                  0);
        ASSERT_EQ(std::system(("bin/velloro thumbnails '" + clip + "' '" + png + "' --count 4 >/dev/null").c_str()), 0);
        EXPECT_EQ(run("ffprobe -v error -show_entries stream=width,height -of csv=p=0 '" + png + "'"), "808,182\n");
        const std::string rgb = run("ffmpeg -v error -i '" + png + "' -f rawvideo -pix_fmt rgb24 -");
        ASSERT_EQ(rgb.size(), 808u * 182 * 3);
        auto at = [&](int x, int y, int c) { return static_cast<unsigned char>(rgb[(std::size_t(y) * 808 + x) * 3 + c]); };
        for (int k = 0; k < 4; ++k) {
            const int left = 8 + k * 200;
            EXPECT_NEAR(at(left + 4, 20, 0), 191, 12) << "grey bar of thumbnail " << k;
            EXPECT_NEAR(at(left + 4, 20, 2), 191, 12) << "grey bar of thumbnail " << k;
            EXPECT_GT(at(left + 36, 20, 1), 160) << "yellow bar of thumbnail " << k;
            EXPECT_LT(at(left + 36, 20, 2), 40) << "yellow bar of thumbnail " << k;
        }
    }
    // Compressed pictures go through the editor's decoder.
    EXPECT_EQ(std::system(("bin/velloro thumbnails '" + dataPath("dv_pal.avi") + "' '" + d + "/dv.png' 2>'" + d + "/err'").c_str()),
              0);
    EXPECT_EQ(slurp(d + "/err"), "");
}

// Ctrl-C or SIGTERM part-way: the file ends with the frames written, whole
// to the plug-in and to ffprobe, and the status is the shell's for the signal.
TEST_F(WriterPlugin, AnInterruptedTakeKeepsTheFramesWritten)
{
    const std::string d = dir_.path().string(), src = d + "/src.avi";
    velloro::RenderOptions o{.width = 640, .height = 360, .seconds = 20};
    std::string error;
    ASSERT_TRUE(velloro::renderFile(*reader_, *writer_, wide(src), o, nullptr, error)) << error;
    struct Case { int signal; const char* command; } cases[] = {
        {SIGINT, "render"}, {SIGTERM, "render"}, {SIGINT, "export"}, {SIGTERM, "export"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.command) + " " + std::to_string(c.signal));
        const std::string out = d + "/out" + std::to_string(c.signal) + c.command + ".avi";
        std::vector<const char*> args = {"velloro", c.command, out.c_str(), "--seconds", "20", "--size", "640x360",
                                         nullptr};
        if (std::strcmp(c.command, "export") == 0)
            args = {"velloro", c.command, src.c_str(), out.c_str(), nullptr};
        int fd = ::open((d + "/err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        pid_t pid = fork();
        if (pid == 0)
            _exit(dup2(fd, 2) == 2 ? execv("bin/velloro", const_cast<char* const*>(args.data())) : 127);
        ::close(fd);
        // Signalled once frames are in the file; one that ends first, or hangs, fails below.
        int rc = 0, sent = 0, ended = 0;
        struct stat st;
        for (int i = 0; i < 300000 && !(ended = waitpid(pid, &rc, WNOHANG) == pid); ++i, usleep(200))
            if (!sent && ::stat(out.c_str(), &st) == 0 && st.st_size > (4 << 20))
                sent = kill(pid, c.signal) == 0;
        if (!ended && kill(pid, SIGKILL) == 0)
            waitpid(pid, &rc, 0);
        ASSERT_TRUE(WIFEXITED(rc));
        EXPECT_EQ(WEXITSTATUS(rc), 128 + c.signal);
        const std::string err = slurp(d + "/err");
        const std::string head = "velloro " + std::string(c.command) + ": " + out + ": stopped at frame ";
        const std::string tail = " of 599 (interrupted)\n";
        ASSERT_TRUE(err.starts_with(head) && err.ends_with(tail) && err.size() > head.size() + tail.size()) << err;
        const std::string n = err.substr(head.size(), err.size() - head.size() - tail.size());
        Vl::Ptr<FileReadInstance> file = velloro::openThrough(*reader_, wide(out), error);
        ASSERT_TRUE(file) << error;
        EXPECT_EQ(std::to_string(file->metadata()->video().lengthInFrames()), n);
        EXPECT_EQ(run("ffprobe -v error '" + out + "' 2>&1"), "");
        EXPECT_EQ(probe(out, "v", "stream=nb_read_packets")["nb_read_packets"], n);
    }
}

} // namespace
