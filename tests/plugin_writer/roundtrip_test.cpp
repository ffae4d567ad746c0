// What the editor asks to write is what it reads back, and what ffprobe,
// mediainfo and GStreamer say of the file: scan, field order, the first
// frame's label, frame count and the sound's duration, for each format and
// scan velloro render makes.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <sstream>
#include <string>

#include "PluginRead.h"
#include "common/TempDir.h"
#include "plugin/plugin_support.h"

using namespace plugintest;

namespace {

struct Take
{
    const char* name;
    const char* format;
    const char* size;
    const char* rate;
    const char* scan;     // --scan: tff, bff, progressive or psf
    const char* timecode; // --timecode, or "" for none
    unsigned frames;
};

void PrintTo(const Take& t, std::ostream* os)
{
    *os << t.name;
}

std::uint32_t scanCode(const std::string& scan)
{
    return scan == "tff" ? 1 : scan == "bff" ? 2 : scan == "progressive" ? 3 : 4;
}

bool interlaced(const std::string& scan)
{
    return scan == "tff" || scan == "bff";
}

// Where ffprobe and GStreamer find a scan: neither reads AVI's field layout,
// ffprobe reads MPEG-2's picture headers, GStreamer decodes standard-definition
// DV (it has no decoder for the Matrox MPEG-2 codes).
bool ffprobeKnowsScan(const std::string& format)
{
    return format == "MMES" || format == "M701";
}

bool gstreamerKnowsScan(const std::string& format)
{
    return format == "dvsd" || format == "dv25" || format == "dv50";
}

// "Key: value" lines of gst-discoverer, trimmed.
std::map<std::string, std::string> discovered(const std::string& path)
{
    std::map<std::string, std::string> kv;
    std::istringstream in(testutil::run("gst-discoverer-1.0 -v '" + path + "' 2>&1"));
    for (std::string line; std::getline(in, line);) {
        std::size_t colon = line.find(": ");
        std::size_t key = line.find_first_not_of(' ');
        if (colon != std::string::npos && key < colon && !kv.count(line.substr(key, colon - key)))
            kv[line.substr(key, colon - key)] = line.substr(colon + 2);
    }
    return kv;
}

std::string mediainfo(const std::string& path, const std::string& inform)
{
    std::string out = testutil::run("mediainfo --Inform='" + inform + "' '" + path + "'");
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r'))
        out.pop_back();
    return out;
}

class RoundTrip : public LoadedPlugin, public testing::WithParamInterface<Take>
{};

TEST_P(RoundTrip, ScanTimecodeAndLengthsAgreeEverywhere)
{
    const Take& t = GetParam();
    testutil::TempDir dir;
    const std::string path = (dir.path() / "take.avi").string();
    double fps = 0;
    {
        unsigned num = 0, den = 1;
        ASSERT_EQ(std::sscanf(t.rate, "%u/%u", &num, &den), 2);
        fps = double(num) / den;
    }
    const double seconds = t.frames / fps;
    std::ostringstream seconds6;
    seconds6.precision(6);
    seconds6 << std::fixed << seconds;
    std::string command = std::string("bin/velloro render -q '") + path + "' --format " + t.format + " --size " +
                          t.size + " --rate " + t.rate + " --seconds " + seconds6.str() + " --scan " + t.scan;
    if (*t.timecode)
        command += std::string(" --timecode '") + t.timecode + "'";
    ASSERT_EQ(std::system((command + " 2>&1").c_str()), 0) << command;

    // Ours: what the editor is told.
    std::string error;
    Vl::Ptr<FileReadInstance> f = velloro::openThrough(*reader_, wide(path), error);
    ASSERT_TRUE(f) << error;
    const PlayFileMetadata& md = *f->metadata();
    EXPECT_EQ(md.video().scanMode(), scanCode(t.scan));
    EXPECT_EQ(md.startLabel().text(), t.timecode);
    EXPECT_EQ(md.video().lengthInFrames(), t.frames);
    EXPECT_NEAR(double(md.audio().lengthInSamples()), seconds * 48000, 1.0);
    f = nullptr;

    // ffprobe: field order where the essence records it, the label, the
    // frame count and the sound's duration.
    auto video = testutil::probe(path, "v", "stream=nb_read_packets,field_order:format_tags=timecode");
    auto audio = testutil::probe(path, "a", "stream=duration");
    EXPECT_EQ(video["error"] + audio["error"], "");
    EXPECT_EQ(video["nb_read_packets"], std::to_string(t.frames));
    const std::string order = !ffprobeKnowsScan(t.format)                                  ? "unknown"
                              : t.scan == std::string("tff")                           ? "tt"
                              : t.scan == std::string("bff")                           ? "bb"
                                                                                       : "progressive";
    EXPECT_EQ(video["field_order"], order);
    EXPECT_EQ(video["TAG:timecode"], t.timecode);
    EXPECT_NEAR(std::stod(audio["duration"].empty() ? "0" : audio["duration"]), seconds, 1e-3);

    // mediainfo reads the field layout of the headers and of the essence.
    const std::string scanType = interlaced(t.scan) ? "Interlaced" : "Progressive";
    const std::string scanOrder = t.scan == std::string("tff") ? "TFF" : t.scan == std::string("bff") ? "BFF" : "";
    EXPECT_EQ(mediainfo(path, "Video;%ScanType%|%ScanOrder%|%TimeCode_FirstFrame%|%FrameCount%"),
              scanType + "|" + scanOrder + "|" + t.timecode + "|" + std::to_string(t.frames));
    EXPECT_NEAR(std::stod("0" + mediainfo(path, "Audio;%Duration%")), seconds * 1000, 1.0);

    // GStreamer: interlacing where the essence records it, and the duration.
    auto gst = discovered(path);
    EXPECT_EQ(gst["Interlaced"], gstreamerKnowsScan(t.format) && interlaced(t.scan) ? "true" : "false");
    unsigned h = 0, m = 0;
    double s = -1;
    std::sscanf(gst["Duration"].c_str(), "%u:%u:%lf", &h, &m, &s);
    EXPECT_NEAR(h * 3600.0 + m * 60.0 + s, seconds, 1e-3) << gst["Duration"];
}

INSTANTIATE_TEST_SUITE_P(
    Render, RoundTrip,
    testing::Values(Take{"UyvyHdTff", "UYVY", "1920x1080", "25/1", "tff", "10:00:00:00", 10},
                    Take{"UyvyHdBff", "UYVY", "1920x1080", "25/1", "bff", "", 10},
                    Take{"UyvyHdProgressive", "UYVY", "1920x1080", "25/1", "progressive", "00:00:00:00", 10},
                    Take{"UyvyHdPsf", "UYVY", "1920x1080", "25/1", "psf", "23:59:59:24", 10},
                    Take{"Yuy2NtscDropFrame", "YUY2", "720x486", "30000/1001", "bff", "10:00:00;00", 12},
                    Take{"M101PalTff", "M101", "720x576", "25/1", "tff", "", 10},
                    Take{"M101PalBff", "M101", "720x576", "25/1", "bff", "", 10},
                    Take{"M101NtscTff", "M101", "720x486", "30000/1001", "tff", "", 12},
                    Take{"M102HdPsfDropFrame", "M102", "1920x1080", "30000/1001", "psf", "01:00:00;02", 12},
                    Take{"V210Hd720p50", "v210", "1280x720", "50/1", "progressive", "12:34:56:49", 20},
                    Take{"DvPal", "dvsd", "720x576", "25/1", "bff", "10:00:00:00", 10},
                    Take{"DvNtscDropFrame", "dvsd", "720x480", "30000/1001", "bff", "00:59:59;29", 12},
                    Take{"Dv25Ntsc", "dv25", "720x480", "30000/1001", "bff", "", 12},
                    Take{"Dv50PalTff", "dv50", "720x576", "25/1", "tff", "", 10},
                    Take{"DvPalProgressive", "dvsd", "720x576", "25/1", "progressive", "", 10},
                    Take{"DvcproHd1080", "dvh1", "1440x1080", "25/1", "tff", "01:00:00:00", 10},
                    Take{"MpegSdTff", "MMES", "720x576", "25/1", "tff", "10:00:00:00", 25},
                    Take{"MpegSdBff", "MMES", "720x480", "30000/1001", "bff", "10:00:00;00", 30},
                    Take{"MpegHdTff", "M701", "1920x1080", "25/1", "tff", "", 25},
                    Take{"MpegHd720p50", "M701", "1280x720", "50/1", "progressive", "", 25},
                    Take{"MpegHdPsf", "M701", "1920x1080", "25/1", "psf", "", 25},
                    Take{"MjpegPal", "MJPG", "720x576", "25/1", "tff", "", 10}),
    [](const testing::TestParamInfo<Take>& i) { return std::string(i.param.name); });

} // namespace
