// The reader on a file over 1 GiB that ffmpeg writes as OpenDML (indx per
// stream, ix## chunks, RIFF AVIX), made at test time and removed after.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "AviFrameMd5.h"
#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "common/TempDir.h"
#include "util/stringUtils.h"

namespace {

std::vector<std::string> comparable(std::istream& in)
{
    std::vector<std::string> out;
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
            out.push_back(f[1] + " " + f[4] + " " + f[5]);
    }
    return out;
}

TEST(ReaderLarge, OpenDmlFileOverOneGiBMatchesFfmpeg)
{
    const char* root = std::getenv("VELLORO_SOURCE_DIR");
    ASSERT_NE(root, nullptr);
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    std::string path = (dir.path() / "large.avi").string();
    std::string cmd = std::string("bash '") + root + "/scripts/make-test-files.sh' --large '" + path + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    ASSERT_GT(std::filesystem::file_size(path), 1ull << 30);

    Morvane::Avi::FileReader r;
    ASSERT_EQ(r.load(Morvane::convertString(path)), S_OK);
    ASSERT_EQ(r.get_StreamCount(), 2u);
    EXPECT_GT(r.get_Stream(0)->m_SuperIndex.size(), 1u); // more than one RIFF
    EXPECT_GT(r.get_Stream(1)->m_SuperIndex.size(), 1u);
    EXPECT_EQ(r.get_Length(0), 640u); // dmlh counts the frames of every RIFF
    r.close();

    std::string ours, error;
    ASSERT_TRUE(velloro::aviFrameMd5(Morvane::convertString(path), ours, error)) << error;
    std::istringstream oursIn(ours);
    std::ifstream refIn(path + ".framemd5");
    std::vector<std::string> expected = comparable(refIn);
    ASSERT_EQ(expected.size(), 641u);
    EXPECT_EQ(comparable(oursIn), expected);
}

} // namespace
