#pragma once
// What the plug-in tests share: the corpus, framemd5 lines to compare, and
// the plug-in loaded exactly as the editor loads it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "PluginLoader.h"
#include "util/stringUtils.h"

namespace plugintest {

inline std::string dataPath(const std::string& name)
{
    const char* root = std::getenv("VELLORO_SOURCE_DIR");
    return std::string(root ? root : ".") + "/tests/data/" + name;
}

inline std::wstring wide(const std::string& s)
{
    return Morvane::convertString(s);
}

inline std::string slurp(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// The fields both sides must agree on: dts, size and hash of each video
// packet (ffmpeg's pts is its own), and the audio lines.
inline std::vector<std::string> comparable(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        if (line.rfind("audio", 0) == 0) {
            out.push_back(line);
            continue;
        }
        std::vector<std::string> f;
        std::stringstream ss(line);
        std::string field;
        while (std::getline(ss, field, ','))
            f.push_back(field.substr(field.find_first_not_of(' ')));
        if (f.size() >= 6)
            out.push_back(f[0] + " " + f[1] + " " + f[4] + " " + f[5]);
    }
    return out;
}

// The files ffmpeg wrote for the reader's tests.
inline const std::vector<std::string>& corpus()
{
    static const std::vector<std::string> files = {"uyvy_pcm16.avi", "yuy2_pcm16.avi", "dv_pal.avi",
                                                   "dv_ntsc.avi",    "dv50.avi",       "mjpeg.avi",
                                                   "mpeg2_bframes.avi", "pcm24_6ch.avi", "audio_only.avi"};
    return files;
}

// The built plug-in, loaded through dlopen and its load hook.
class LoadedPlugin : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_TRUE(loader_.load(VELLORO_PLUGIN_PATH, error)) << error;
        reader_ = loader_.findReader("AVI FileReader");
        ASSERT_NE(reader_, nullptr);
    }
    void TearDown() override { loader_.unload(); }

    velloro::PluginLoader loader_;
    Vl::FileReaderResource* reader_ = nullptr;
};

} // namespace plugintest
