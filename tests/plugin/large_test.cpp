// The OpenDML file over 1 GiB (indx per stream, ix## chunks, RIFF AVIX),
// made at test time, read through the loaded plug-in frame-exact.
#include <gtest/gtest.h>

#include "PluginRead.h"
#include "common/TempDir.h"
#include "plugin/plugin_support.h"

using namespace plugintest;

namespace {

TEST_F(LoadedPlugin, OpenDmlFileOverOneGiBMatchesFfmpeg)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::string path = (dir.path() / "large.avi").string();
    ASSERT_TRUE(testutil::makeLargeFile(path));

    std::string ours, error;
    ASSERT_TRUE(velloro::pluginFrameMd5(*reader_, wide(path), ours, error)) << error;
    std::vector<std::string> expected = comparable(slurp(path + ".framemd5"));
    ASSERT_EQ(expected.size(), 641u);
    EXPECT_EQ(comparable(ours), expected);
}

} // namespace
