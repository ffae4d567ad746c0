// velloro play: several files played at once, by the clock or as fast as
// possible, each reported with the frames it played; a file that breaks
// part-way is named with status 1, a usage error has status 2. How fast the
// reads ran depends on the machine and is never checked.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "common/FfmpegFiles.h"
#include "common/TempDir.h"
#include "plugin/avi_files.h"

namespace {

using testutil::dataPath;
using testutil::slurp;

TEST(VelloroPlay, ReportsTheFramesOfEveryFilePlayedAndNamesTheOneThatFails)
{
    testutil::TempDir dir;
    const std::string d = dir.path().string(), clip = d + "/clip.avi", groups = d + "/groups.avi",
                      cut = d + "/cut.avi";
    // One second at 29.97, and a copy cut off half-way through its frames.
    ASSERT_EQ(std::system(("bin/velloro render -q '" + clip + "' --size 64x48 --seconds 1").c_str()), 0);
    const std::string whole = slurp(clip);
    std::ofstream(cut, std::ios::binary) << whole.substr(0, whole.size() / 2);
    // Long GOP: 13 frames in groups of 6, 6 and 1, asked for a group at a time.
    using namespace readertest;
    writeFile(groups, buildOdml(Morvane::Avi::AVI_INDEX_IBP, {longGopEntries()}, true));
    const std::string dv = dataPath("dv_pal.avi"), uyvy = dataPath("uyvy_pcm16.avi"),
                      sound = dataPath("audio_only.avi");

    using Frames = std::vector<std::pair<std::string, unsigned>>;
    struct Case { std::string args; int status; Frames frames; std::string err; };
    const Case cases[] = {
        {"--as-fast-as-possible '" + dv + "' '" + uyvy + "' '" + groups + "' '" + clip + "' '" + sound + "'", 0,
         {{dv, 3}, {uyvy, 5}, {groups, 13}, {clip, 30}, {sound, 0}}, ""},
        // By the clock, 0.2 s of each: the frames that start within it.
        {"'" + uyvy + "' '" + clip + "' --for 0.2 '" + groups + "'", 0, {{uyvy, 5}, {clip, 6}, {groups, 5}}, ""},
        {"--json --as-fast-as-possible '" + dv + "' '" + groups + "'", 0, {{dv, 3}, {groups, 13}}, ""},
        {"--json --for 0.1 '" + clip + "'", 0, {{clip, 3}}, ""},
        {"--as-fast-as-possible '" + dv + "' '" + cut + "'", 1, {}, "velloro play: " + cut + ": frame "},
        {"'" + d + "/none.avi'", 1, {}, "velloro play: " + d + "/none.avi: cannot open"},
        {"", 2, {}, "FILE is required"},
        {"'" + dv + "' --for 0", 2, {}, "--for"},
        {"'" + dv + "' --for soon", 2, {}, "--for"},
        {"'" + dv + "' --loop", 2, {}, "--loop"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const int rc = std::system(("bin/velloro play " + c.args + " >'" + d + "/out' 2>'" + d + "/err'").c_str());
        const std::string out = slurp(d + "/out"), err = slurp(d + "/err");
        ASSERT_EQ(WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, c.status) << err;
        EXPECT_NE(err.find(c.err), std::string::npos) << err;
        if (c.status != 0)
            continue;
        EXPECT_EQ(err, "");
        const unsigned total = std::accumulate(c.frames.begin(), c.frames.end(), 0u,
                                               [](unsigned n, const auto& f) { return n + f.second; });
        if (c.args.find("--json") == std::string::npos) {
            for (const auto& [path, n] : c.frames)
                EXPECT_NE(out.find(path + ": " + std::to_string(n) + " frames, "), std::string::npos) << out;
            EXPECT_NE(out.find("\ntotal (" + std::to_string(c.frames.size()) + " files): " + std::to_string(total) +
                               " frames, "),
                      std::string::npos)
                << out;
            EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), std::ptrdiff_t(c.frames.size() + 1)) << out;
            continue;
        }
        const nlohmann::json j = nlohmann::json::parse(out, nullptr, false);
        ASSERT_FALSE(j.is_discarded()) << out;
        ASSERT_EQ(j["files"].size(), c.frames.size()) << out;
        for (std::size_t k = 0; k < c.frames.size(); ++k) {
            EXPECT_EQ(j["files"][k]["file"], c.frames[k].first);
            EXPECT_EQ(j["files"][k]["frames"], c.frames[k].second);
        }
        EXPECT_EQ(j["total"]["frames"], total);
        EXPECT_EQ(j["total"]["files"], c.frames.size());
        for (const char* key : {"frames_late", "worst_late_ms", "material_seconds", "busy_seconds", "headroom", "mb",
                                "seconds", "mb_per_s"})
            EXPECT_TRUE(j["total"].contains(key) && j["files"][0].contains(key)) << key;
    }
}

} // namespace
