#pragma once
// Compressed pictures for velloro render and export: the bars encoded by the
// editor's encoder, and the picture kind and presentation place of each
// frame a reader gives back in storage order.
#include <cstdint>
#include <string>
#include <vector>

#include "host/DecoderInfo.h"
#include "host/EncoderInfo.h"
#include "host/FileReaderResource.h"

namespace velloro {

struct RenderOptions;

// The size and rate render uses for a format when none was given: DV and
// SD MPEG-2 have no 1920x1080, and DV's rasters have one rate each.
void applyFormatDefaults(RenderOptions& options, bool sizeGiven, bool rateGiven);

// The editor's code for writing frames read under fcc as they are: a
// reader may name the same coding in lower case.
std::uint32_t writtenCode(std::uint32_t fcc, std::uint32_t width);

// The bars encoded for the editor's encoder of a compression.
class BarsEncoder
{
public:
    // info: what is being written; input: the raster the encoder takes.
    bool open(const VideoCompressionInfo& info, const ImageDescription& input, std::string& error);
    // Frame n of the clip encoded; the frames that are complete go to out
    // in storage order.
    bool picture(std::uint64_t n, std::vector<VlEncodedFrame>& out, std::string& error);
    bool flush(std::vector<VlEncodedFrame>& out, std::string& error);

private:
    Vl::Ptr<VlEncoder> encoder_;
    ImageDescription input_;
    std::vector<unsigned char> raster_;
};

// A frame's bytes as the writer takes them, with a spare byte after.
Vl::Ptr<FrameBuffer> frameOf(const std::vector<unsigned char>& bytes);

// What each stored frame of a clip is: its picture kind and its place in
// presentation order. Frames come in storage order; MPEG-2 is read from
// its picture headers, with the places the file's group records give
// where it has them; every other frame is an I frame shown where it lies.
class StorageOrder
{
public:
    StorageOrder(Vl::FileReaderResource& reader, const Vl::Ptr<FileReadInstance>& file);
    // Frame i (read in storage order) described; false for MPEG-2 bytes
    // with no picture in them.
    bool describe(std::uint32_t i, const FrameBuffer& frame, VlroMpeg2FrameTypes& type, std::uint32_t& presentation,
                  std::string& error);
    bool predicted() const { return mpeg2_; }

private:
    Vl::FileReaderResource& reader_;
    Vl::Ptr<FileReadInstance> file_;
    bool mpeg2_ = false;
    bool records_ = false; // the file has group records
    Vl::Ptr<IndexInfo> group_;
    std::uint32_t groupStart_ = 0;
};

} // namespace velloro
