// Audio blocks read in any order are the blocks a front-to-back read gives:
// the lookup that resumes where the last one ended must not serve a block
// from the wrong chunk after a jump back or a switch of stream.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"
#include "common/FfmpegFiles.h"
#include "util/stringUtils.h"

using Morvane::Avi::FileReader;

namespace {

// Blocks [first, first + count) of stream s, or empty on a failed read.
std::vector<unsigned char> blocks(FileReader& r, unsigned s, unsigned first, unsigned count)
{
    unsigned align = r.get_Stream(static_cast<int>(s))->wfx.nBlockAlign;
    std::vector<unsigned char> buf(std::size_t(count) * align + 2 * 4096);
    unsigned offset = 0, bytes = 0;
    if (FAILED(r.essenceOpen(s)) ||
        FAILED(r.ReadAudio(first, count, buf.data(), static_cast<unsigned>(buf.size()), &offset, &bytes)))
        return {};
    return std::vector<unsigned char>(buf.begin() + offset, buf.begin() + offset + bytes);
}

TEST(ReaderAudio, BlocksReadInAnyOrderEqualAFrontToBackRead)
{
    for (const char* name : {"uyvy_pcm16.avi", "pcm24_6ch.avi", "dv_pal.avi"}) {
        SCOPED_TRACE(name);
        FileReader r;
        ASSERT_EQ(r.load(Morvane::convertString(testutil::dataPath(name))), S_OK);
        std::vector<unsigned> audio;
        for (unsigned s = 0; s < r.get_StreamCount(); ++s)
            if (r.get_IsAudio(static_cast<int>(s)))
                audio.push_back(s);
        ASSERT_FALSE(audio.empty());
        const unsigned kStep = 300; // not a chunk's length: reads start inside chunks
        std::vector<std::vector<unsigned char>> whole(audio.size());
        std::vector<std::pair<unsigned, unsigned>> reads; // (stream slot, first block)
        for (unsigned a = 0; a < audio.size(); ++a) {
            unsigned length = r.get_Length(static_cast<int>(audio[a]));
            ASSERT_GT(length, 3 * kStep);
            for (unsigned first = 0; first + kStep <= length; first += kStep) {
                std::vector<unsigned char> b = blocks(r, audio[a], first, kStep);
                ASSERT_FALSE(b.empty()) << "block " << first;
                whole[a].insert(whole[a].end(), b.begin(), b.end());
                reads.emplace_back(a, first);
            }
        }
        std::shuffle(reads.begin(), reads.end(), std::mt19937(3));
        for (auto [a, first] : reads) {
            if (first % (2 * kStep) == 0) { // the video made current between audio reads, now and then
                ASSERT_EQ(r.essenceOpen(0), S_OK);
            }
            std::vector<unsigned char> b = blocks(r, audio[a], first, kStep);
            std::size_t align = r.get_Stream(static_cast<int>(audio[a]))->wfx.nBlockAlign;
            std::size_t at = first * align;
            ASSERT_EQ(b.size(), kStep * align) << "stream " << audio[a] << " block " << first;
            ASSERT_TRUE(std::equal(b.begin(), b.end(), whole[a].begin() + static_cast<std::ptrdiff_t>(at)))
                << "stream " << audio[a] << " block " << first;
        }
    }
}

} // namespace
