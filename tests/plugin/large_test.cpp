// The OpenDML file over 1 GiB (indx per stream, ix## chunks, RIFF AVIX),
// made at test time, read through the loaded plug-in frame-exact.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "PluginRead.h"
#include "common/TempDir.h"
#include "plugin/plugin_support.h"

using namespace plugintest;

namespace {

TEST_F(LoadedPlugin, OpenDmlFileOverOneGiBMatchesFfmpeg)
{
    const char* root = std::getenv("VELLORO_SOURCE_DIR");
    ASSERT_NE(root, nullptr);
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::string path = (dir.path() / "large.avi").string();
    std::string cmd = std::string("bash '") + root + "/scripts/make-test-files.sh' --large '" + path + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    ASSERT_GT(std::filesystem::file_size(path), 1ull << 30);

    std::string ours;
    std::string error;
    ASSERT_TRUE(velloro::pluginFrameMd5(*reader_, wide(path), ours, error)) << error;
    std::vector<std::string> expected = comparable(slurp(path + ".framemd5"));
    ASSERT_EQ(expected.size(), 641u);
    EXPECT_EQ(comparable(ours), expected);
}

} // namespace
