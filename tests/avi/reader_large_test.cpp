// The reader on a file over 1 GiB that ffmpeg writes as OpenDML (indx per
// stream, ix## chunks, RIFF AVIX), made at test time and removed after.
#include <gtest/gtest.h>

#include <string>

#include "avi/ContainerFrameMd5.h"
#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "common/FfmpegFiles.h"
#include "common/TempDir.h"
#include "util/stringUtils.h"

namespace {

TEST(ReaderLarge, OpenDmlFileOverOneGiBMatchesFfmpeg)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::string path = (dir.path() / "large.avi").string();
    ASSERT_TRUE(testutil::makeLargeFile(path));

    Morvane::Avi::FileReader r;
    ASSERT_EQ(r.load(Morvane::convertString(path)), S_OK);
    ASSERT_EQ(r.get_StreamCount(), 2u);
    EXPECT_GT(r.get_Stream(0)->m_SuperIndex.size(), 1u); // more than one RIFF
    EXPECT_GT(r.get_Stream(1)->m_SuperIndex.size(), 1u);
    EXPECT_EQ(r.get_Length(0), 640u); // dmlh counts the frames of every RIFF
    r.close();

    std::string ours, error;
    ASSERT_TRUE(avitest::aviFrameMd5(Morvane::convertString(path), ours, error)) << error;
    std::vector<std::string> expected = testutil::comparable(testutil::slurp(path + ".framemd5"), false);
    ASSERT_EQ(expected.size(), 641u);
    EXPECT_EQ(testutil::comparable(ours, false), expected);
}

} // namespace
