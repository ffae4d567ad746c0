// velloro render of every encoded format through the loaded plug-in: ffprobe
// opens the file cleanly and counts its frames, ffmpeg decodes it without
// error, MPEG-2 reads back through the plug-in group by group in
// presentation order with I, P and B frames, velloro thumbnails decodes it,
// and velloro export copies it frame for frame.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <sstream>

#include "PluginRead.h"
#include "PluginWrite.h"
#include "Thumbnails.h"
#include "common/TempDir.h"
#include "host/ByteBufferImpl.h"
#include "host/DecoderInfo.h"
#include "plugin/plugin_support.h"
#include "plugin_writer/codec_support.h"
#include "util/fourcc.h"

namespace {

using namespace plugintest;
using testutil::probe;
using testutil::run;

// ffmpeg's frame lines of the video, without their header.
std::vector<std::string> frameMd5(const std::string& path)
{
    return comparable(run("ffmpeg -v quiet -i '" + path + "' -map 0:v -f framemd5 -"));
}

class CodecRender : public LoadedPlugin
{
protected:
    void SetUp() override
    {
        LoadedPlugin::SetUp();
        writer_ = loader_.findWriter("AVI FileWriter");
        ASSERT_NE(writer_, nullptr);
    }

    // The file's frames read through the plug-in in storage order, split
    // into their groups by their picture headers, each group decoded whole
    // with the record the reader would give: the pictures must come back
    // in presentation order, each its own frame.
    void readGroups(const std::string& path, std::uint32_t frames, std::string& kinds)
    {
        std::string error;
        Vl::Ptr<FileReadInstance> file = velloro::openThrough(*reader_, wide(path), error);
        ASSERT_TRUE(file) << error;
        ASSERT_EQ(file->metadata()->video().lengthInFrames(), frames);
        Vl::Ptr<VlDecoder> decoder = Vl::DecoderInfo::getDecoderFor(*file->metadata());
        ASSERT_TRUE(decoder);
        kinds.assign(frames, '?');
        std::vector<unsigned char> group;
        Vl::Ptr<IndexInfo> record(new IndexInfo);
        std::uint32_t start = 0, shown = 0;
        auto decodeGroup = [&] {
            if (record->decodeOrder().empty())
                return;
            Vl::Ptr<ByteBufferImpl> block(new ByteBufferImpl);
            ASSERT_TRUE(block->alloc(static_cast<std::uint32_t>(group.size())));
            std::copy(group.begin(), group.end(), block->data());
            block->setUsed(static_cast<std::uint32_t>(group.size()));
            std::vector<VlDecodedPicture> pictures;
            ASSERT_TRUE(decoder->decode(FrameBuffer(file->metadata(), block, record), pictures, error)) << error;
            ASSERT_EQ(pictures.size(), record->decodeOrder().size());
            for (const VlDecodedPicture& p : pictures) {
                EXPECT_EQ(p.presentation, shown) << "presentation order";
                EXPECT_TRUE(codectest::shows(p, p.presentation)) << "picture " << p.presentation;
                ++shown;
            }
            group.clear();
            record = Vl::Ptr<IndexInfo>(new IndexInfo);
        };
        for (std::uint32_t i = 0; i < frames; ++i) {
            Vl::Ptr<VideoReadRequest> request =
                reader_->readVideoSample(file, i, false, VideoReadRequest::eCompressed, nullptr, nullptr, false);
            ASSERT_EQ(request->wait(), RequestStatus::eCompleted) << "frame " << i;
            Vl::Ptr<FrameBuffer> frame = request->getResult();
            const std::vector<VlCodedFrame> coded = Vl::DecoderInfo::splitMpeg2(frame->bytes(), frame->size());
            ASSERT_EQ(coded.size(), 1u) << "frame " << i;
            if (coded[0].startsGroup) {
                decodeGroup();
                start = i;
            }
            const std::uint32_t place = start + coded[0].temporalReference;
            ASSERT_LT(place, frames);
            EXPECT_EQ(kinds[place], '?') << "picture " << place << " twice";
            kinds[place] = coded[0].type == eVlroFrameI ? 'I' : coded[0].type == eVlroFrameP ? 'P' : 'B';
            group.insert(group.end(), frame->bytes(), frame->bytes() + frame->size());
            record->decodeOrder().push_back(i);
            record->presentationOrder().push_back(place);
        }
        decodeGroup();
        EXPECT_EQ(shown, frames) << "pictures lost";
        reader_->waitForIdle();
    }

    Vl::FileWriterResource* writer_ = nullptr;
    testutil::TempDir dir_;
};

TEST_F(CodecRender, RenderExportAndReadBackEveryEncodedFormat)
{
    struct Case { const char* format; std::uint32_t width, height, num, den; const char* codec; } cases[] = {
        {"dvsd", 720, 480, 30000, 1001, "dvvideo"}, {"dvsd", 720, 576, 25, 1, "dvvideo"},
        {"dv25", 720, 576, 25, 1, "dvvideo"},       {"dv50", 720, 480, 30000, 1001, "dvvideo"},
        {"dvh1", 1920, 1080, 30000, 1001, "dvvideo"}, {"dvh1", 1280, 720, 50, 1, "dvvideo"},
        {"MMES", 720, 576, 25, 1, "mpeg2video"},    {"MMES", 720, 480, 30000, 1001, "mpeg2video"},
        {"M701", 1920, 1080, 25, 1, "mpeg2video"},  {"MJPG", 1280, 720, 25, 1, "mjpeg"},
    };
    for (const Case& c : cases) {
        const std::string name = std::string(c.format) + "_" + std::to_string(c.width) + "x" + std::to_string(c.height);
        SCOPED_TRACE(name);
        const bool mpeg2 = std::string(c.codec) == "mpeg2video";
        velloro::RenderOptions o;
        o.fcc = Morvane::makeFourCC(reinterpret_cast<const char(&)[5]>(*c.format));
        o.width = c.width, o.height = c.height, o.rateNum = c.num, o.rateDen = c.den;
        o.seconds = 1.0;
        const std::string path = dir_.path().string() + "/" + name + ".avi";
        std::string error;
        ASSERT_TRUE(velloro::renderFile(*reader_, *writer_, wide(path), o, nullptr, error)) << error;
        const unsigned frames = static_cast<unsigned>(std::llround(double(c.num) / c.den));

        // (a) and (b): opened cleanly, every frame there, decoded without error.
        EXPECT_EQ(run("ffprobe -v error '" + path + "' 2>&1"), "");
        const std::map<std::string, std::string> video = {{"codec_name", c.codec},
                                                          {"nb_read_packets", std::to_string(frames)}};
        std::map<std::string, std::string> probed = probe(path, "v", "stream=codec_name,nb_read_packets");
        if (mpeg2)
            probed.erase("error");
        EXPECT_EQ(probed, video);
        EXPECT_EQ(run("ffmpeg -v error -i '" + path + "' -f null - 2>&1"), "");
        const std::vector<std::string> source = frameMd5(path);
        EXPECT_EQ(source.size(), frames);

        // (c) long GOP: group by group, in presentation order, with every kind.
        if (mpeg2) {
            std::string kinds;
            readGroups(path, frames, kinds);
            EXPECT_EQ(kinds.find('?'), std::string::npos) << kinds;
            for (char k : {'I', 'P', 'B'})
                EXPECT_NE(kinds.find(k), std::string::npos) << kinds;
        }

        EXPECT_TRUE(velloro::pluginThumbnails(*reader_, wide(path), path + ".png", 3, error)) << error;
        // Without the editor's decoder there is no picture, and a clear reason.
        Vl::Ptr<FileReadInstance> file = velloro::openThrough(*reader_, wide(path), error);
        ASSERT_TRUE(file) << error;
        const std::uint32_t read = file->metadata()->video().image().dataFormat;
        file = nullptr;
        Vl::DecoderInfo::unregisterDecoder(read);
        EXPECT_FALSE(velloro::pluginThumbnails(*reader_, wide(path), path + ".png", 3, error));
        EXPECT_NE(error.find("no decoder here for"), std::string::npos) << error;
        Vl::DecoderInfo::registerDecoder(read);

        // (d) export copies the frames as they are, in their order.
        const std::string copy = dir_.path().string() + "/" + name + ".copy.avi";
        ASSERT_TRUE(velloro::exportFile(*reader_, *writer_, wide(path), wide(copy), nullptr, error)) << error;
        EXPECT_EQ(frameMd5(copy), source);
    }
}

} // namespace
