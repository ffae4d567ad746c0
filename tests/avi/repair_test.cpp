// Repair of files whose writer was cut off: files of our writer copied while
// it was still writing, ffmpeg's files cut in the middle of a frame and one
// whose ffmpeg was killed. Each is repaired in place and to a new file, and
// both must read, through our reader and through ffmpeg, as exactly the
// whole frames of the source and the audio that starts before the end of the
// last one, by its time (our writer puts a frame's audio after it).
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "FileFormats/AVI/avilib/avilib.FileRepair.h"
#include "Repair.h"
#include "common/TempDir.h"
#include "writer_readback.h"

using namespace writertest;

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

bool haveFfmpeg()
{
    return !run("command -v ffmpeg ffprobe").empty();
}

// The chunks of a whole file that a repair cut before video chunk `cut` keeps.
struct Kept
{
    std::vector<Bytes> video{}, audio{};
    std::uint32_t blockAlign = 0;
    std::uint64_t cutAt = 0; // in the middle of the data of video chunk `cut`
};

// end: the size of the damaged file, past which no chunk is whole.
Kept keptOf(const std::wstring& whole, std::uint32_t cut, std::uint32_t blockAlign, std::uint64_t end = UINT64_MAX)
{
    Walk w(whole);
    Kept k{.blockAlign = blockAlign};
    std::vector<const Chunk*> audio;
    auto data = [&](const Chunk& c) { return Bytes(&w.data[c.offset + 8], &w.data[c.offset + 8] + c.size); };
    for (const Chunk& c : w.chunks) {
        if ((c.id == "00dc" || c.id == "00db") && k.video.size() == cut) {
            k.cutAt = c.offset + 8 + c.size / 2;
            break;
        } else if (c.id == "00dc" || c.id == "00db") {
            k.video.push_back(data(c));
        } else if (c.id == "01wb") {
            audio.push_back(&c);
        }
    }
    // Audio by time: the whole chunks whose first sample lies before the last
    // frame ends.
    const std::uint64_t strh = w.find("strh")[0]->offset + 8, bytesPerSec = rd32(w.data, w.find("strf")[1]->offset + 16);
    const double videoEnd = double(k.video.size()) * rd32(w.data, strh + 20) / rd32(w.data, strh + 24);
    std::uint64_t bytes = 0;
    for (const Chunk* c : audio) {
        if (c->offset + 8 + c->size > std::min(end, k.cutAt ? k.cutAt : end) || double(bytes) / bytesPerSec >= videoEnd)
            break;
        k.audio.push_back(data(*c));
        bytes += c->size;
    }
    return k;
}

Bytes joined(const std::vector<Bytes>& chunks)
{
    Bytes all;
    for (const Bytes& b : chunks)
        all.insert(all.end(), b.begin(), b.end());
    return all;
}

// The repaired file holds exactly what was kept: for our reader, for
// ffprobe's frame count (with nothing on its error output) and ffmpeg's copy.
void expectHolds(const std::wstring& path, const Kept& k)
{
    Written w;
    w.streams = {{.video = true}, {.track = 1, .blockAlign = k.blockAlign}};
    for (std::uint32_t s = 0; s < 2; ++s)
        for (const Bytes& b : s == 0 ? k.video : k.audio) {
            w.streams[s].sizes.push_back(static_cast<std::uint32_t>(b.size()));
            w.streams[s].frameTypes.push_back(4);
            w.streams[s].displayNumbers.push_back(kDisplayNumberNotGiven);
            w.streams[s].maxChunk = std::max(w.streams[s].maxChunk, static_cast<std::uint32_t>(b.size()));
        }
    w.bytes = [&](std::uint32_t track, std::uint32_t f) { return track == 0 ? k.video[f] : k.audio[f]; };
    expectReadsBack(path, w);
    const std::string p = convertString(path);
    EXPECT_EQ(run("ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 '" +
                  p + "' 2>&1"),
              std::to_string(k.video.size()) + "\n");
    const Bytes video = joined(k.video), audio = joined(k.audio);
    EXPECT_TRUE(copied(path, "0:v") == std::string(video.begin(), video.end())) << "ffmpeg's copy of the video";
    EXPECT_TRUE(copied(path, "0:a") == std::string(audio.begin(), audio.end())) << "ffmpeg's copy of the audio";
}

// Our writer, copied while it writes (the headers as its last flush left
// them, so the indx names index chunks of part of the frames): `frames` of
// ~300 bytes with 160 bytes of stereo audio each, copied at `copyAt`.
void ourWriter(std::uint32_t frames, std::uint32_t copyAt, const std::wstring& damaged, const std::wstring& whole)
{
    std::vector<TrackStructuralData> tracks = {videoTrack("UYVY", 16, 8, 25, 1), audioTrack(2, 48000)};
    FileWriter w;
    w.set_FlushFrequency(50);
    ASSERT_EQ(w.create(whole, tracks.data(), 2), S_OK);
    for (std::uint32_t f = 0; f < frames; ++f) {
        ASSERT_EQ(writeFrame(w, tracks, f, [f](std::size_t k) { return k == 0 ? 300u + f % 7 : 160u; }), S_OK);
        if (f + 1 == copyAt)
            fs::copy_file(convertString(whole), convertString(damaged), fs::copy_options::overwrite_existing);
    }
    ASSERT_EQ(w.finish(), S_OK);
}

std::string ffmpegAvi(const std::string& video, const std::string& seconds, const std::wstring& out)
{
    return "ffmpeg -v error -y -f lavfi -i testsrc=size=" + video + ":rate=25 -f lavfi -i sine -t " + seconds +
           " -c:v rawvideo -pix_fmt uyvy422 -c:a pcm_s16le '" + convertString(out) + "'";
}

} // namespace

TEST(Repair, KeepsEveryWholeFrameAndTheAudioBeforeTheLast)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    if (!haveFfmpeg())
        GTEST_SKIP() << "no ffmpeg/ffprobe";
    constexpr std::uint32_t kFromRepair = UINT32_MAX;
    struct Case
    {
        const char* name;
        std::uint32_t cut;      // the video chunk cut in two; kFromRepair: as the walk found it
        std::uint32_t blockAlign;
        bool partialFrame;      // what the end of the damaged file cuts
        // Makes the damaged file and a whole one with the same chunks before the cut.
        std::function<void(const std::wstring& damaged, const std::wstring& whole)> make;
    } cases[] = {
        {"our writer, killed in its first RIFF, RIFF size zeroed", 777, 4, true,
         [&](const std::wstring& damaged, const std::wstring& whole) {
             ourWriter(1000, 990, damaged, whole);
             std::fstream f(convertString(damaged), std::ios::binary | std::ios::in | std::ios::out);
             f.seekp(4).write("\0\0\0", 4); // the RIFF size
         }},
        {"our writer, killed in its AVIX", 8150, 4, true,
         [&](const std::wstring& damaged, const std::wstring& whole) { ourWriter(8200, 8190, damaged, whole); }},
        {"ffmpeg, cut in the middle of movi", 120, 2, true,
         [&](const std::wstring& damaged, const std::wstring& whole) {
             ASSERT_EQ(std::system(ffmpegAvi("64x48", "10", whole).c_str()), 0);
             fs::copy_file(convertString(whole), convertString(damaged), fs::copy_options::overwrite_existing);
         }},
        {"ffmpeg, killed", kFromRepair, 2, false,
         [&](const std::wstring& damaged, const std::wstring& whole) {
             // Killed once the file passes 8 MB: partway through a frame.
             const std::string d = convertString(damaged), script = convertString(dir.file("kill.sh"));
             std::ofstream(script) << ffmpegAvi("160x120", "600", damaged) << " </dev/null >/dev/null 2>&1 &\n"
                                   << "pid=$!\nfor i in $(seq 600); do\n"
                                   << "  [ $(stat -c %s '" << d << "' 2>/dev/null || echo 0) -gt 8000000 ] && break\n"
                                   << "  kill -0 $pid 2>/dev/null || break\n  sleep 0.05\ndone\n"
                                   << "kill -9 $pid 2>/dev/null; wait $pid\n";
             std::system(("bash '" + script + "'").c_str());
             ASSERT_EQ(std::system(ffmpegAvi("160x120", "40", whole).c_str()), 0);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::wstring damaged = dir.file("damaged.avi"), whole = dir.file("whole.avi");
        c.make(damaged, whole);
        if (HasFatalFailure())
            return;
        std::uint32_t cut = c.cut;
        if (cut != kFromRepair)
            fs::resize_file(convertString(damaged), keptOf(whole, cut, c.blockAlign).cutAt);

        FileRepair toNew;
        ASSERT_EQ(toNew.open(damaged), S_OK) << convertString(toNew.getLastError());
        if (cut == kFromRepair)
            cut = toNew.get_Summary().frames;
        ASSERT_GT(cut, 0u);
        const Kept kept = keptOf(whole, cut, c.blockAlign, fs::file_size(convertString(damaged)));
        ASSERT_EQ(kept.video.size(), cut) << "the whole file is shorter than the damaged one";
        const RepairSummary& s = toNew.get_Summary();
        EXPECT_EQ(std::pair(s.frames, s.audioBytes), std::pair(cut, std::uint64_t{joined(kept.audio).size()}));
        EXPECT_TRUE(!c.partialFrame || s.partialFrames == 1u) << s.partialFrames;

        SCOPED_TRACE("to a new file");
        const std::wstring out = dir.file("out.avi");
        ASSERT_EQ(toNew.writeTo(out), S_OK) << convertString(toNew.getLastError());
        expectHolds(out, kept);

        SCOPED_TRACE("in place, twice");
        for (int again = 0; again < 2; ++again) {
            FileRepair inPlace;
            ASSERT_EQ(inPlace.open(damaged), S_OK) << convertString(inPlace.getLastError());
            EXPECT_EQ(inPlace.get_Summary().frames, cut);
            if (again) {
                // Nothing is left to drop once the file was repaired.
                const std::string line = velloro::repairSummaryLine(inPlace.get_Summary());
                EXPECT_NE(line.find("nothing dropped"), std::string::npos) << line;
            }
            ASSERT_EQ(inPlace.repairInPlace(), S_OK) << convertString(inPlace.getLastError());
            expectHolds(damaged, kept);
        }
    }
}

TEST(Repair, RefusesWithoutTouchingTheFile)
{
    testutil::TempDir dir;
    ASSERT_TRUE(dir.ok());
    if (!haveFfmpeg())
        GTEST_SKIP() << "no ffmpeg/ffprobe";
    const std::wstring text = dir.file("notes.avi"), noFrame = dir.file("noframe.avi"), audio = dir.file("audio.avi");
    std::ofstream(convertString(text)) << "not a RIFF file, only text that is long enough to be read as one\n";
    ASSERT_EQ(std::system(ffmpegAvi("64x48", "1", noFrame).c_str()), 0);
    fs::resize_file(convertString(noFrame), keptOf(noFrame, 0, 2).cutAt);
    fs::copy_file(testutil::dataPath("audio_only.avi"), convertString(audio));
    for (const std::wstring& path : {text, noFrame, audio}) {
        SCOPED_TRACE(convertString(path));
        const Bytes before = Walk(path).data;
        FileRepair r;
        EXPECT_TRUE(FAILED(r.open(path)));
        EXPECT_FALSE(r.getLastError().empty());
        const std::string in = convertString(path), out = convertString(dir.file("out.avi"));
        EXPECT_EQ(velloro::repairCommand(in.c_str(), nullptr, false), 1);
        EXPECT_EQ(velloro::repairCommand(in.c_str(), out.c_str(), false), 1);
        EXPECT_FALSE(fs::exists(out));
        EXPECT_TRUE(Walk(path).data == before);
    }
    // OUT is never IN, under any name; an existing OUT needs -y.
    const std::string good = convertString(dir.file("good.avi")), link = convertString(dir.file("link.avi"));
    ASSERT_EQ(std::system(ffmpegAvi("64x48", "1", dir.file("good.avi")).c_str()), 0);
    fs::create_hard_link(good, link);
    const Bytes before = Walk(dir.file("good.avi")).data;
    EXPECT_EQ(velloro::repairCommand(good.c_str(), link.c_str(), true), 1);
    EXPECT_EQ(velloro::repairCommand(good.c_str(), convertString(text).c_str(), false), 1);
    EXPECT_TRUE(Walk(dir.file("good.avi")).data == before);
}

TEST(Repair, SaysWhatWasKept)
{
    struct Case
    {
        RepairSummary summary;
        const char* line;
    } cases[] = {
        {{2942, true, 22'598'400, 192'000, 1, 0, 0}, "repaired: 2942 frames, 117.7 s of audio; 1 partial frame dropped"},
        {{1, false, 0, 0, 0, 0, 0}, "repaired: 1 frame; nothing dropped"},
        {{10, true, 0, 0, 0, 1, 3}, "repaired: 10 frames, 0.0 s of audio; 1 partial audio chunk, "
                                    "3 audio chunks after the last frame dropped"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(velloro::repairSummaryLine(c.summary), c.line);
}
