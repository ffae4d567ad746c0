#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "FrameBuffer.h"
#include "PlayFileMetadata.h"
#include "VlExport.h"
#include "VlroMpeg2FrameTypes.h"
#include "iObject.h"

// One decoded picture: 8-bit 4:2:2 UYVY, rows of width * 2 bytes, top first.
struct VlDecodedPicture
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t presentation = 0; // its place in presentation order
    std::vector<unsigned char> uyvy;
};

// Where one MPEG-2 frame lies in a run of frames laid back to back, with the
// headers before its picture; startsGroup: a group of pictures begins here.
struct VlCodedFrame
{
    std::uint32_t offset = 0;
    std::uint32_t size = 0;
    VlroMpeg2FrameTypes type = eVlroFrameUnknown;
    std::uint32_t temporalReference = 0;
    bool startsGroup = false;
};

// A decoder for the frames of one clip.
class VL_HOST_API VlDecoder : public iObject
{
public:
    explicit VlDecoder(std::uint32_t fcc);
    ~VlDecoder() override;

    std::uint32_t fcc() const { return fcc_; }
    // frame: one compressed frame, or a whole group as the reader hands it
    // (its frames back to back in decode order, with its group record). The
    // pictures that are complete are appended to out in presentation order:
    // a whole group comes out whole; single long-GOP frames, fed in decode
    // order from a group's start, come out as the references allow.
    // A picture's presentation is its group record's, or else counted from
    // the first frame fed.
    virtual bool decode(const FrameBuffer& frame, std::vector<VlDecodedPicture>& out, std::string& error);
    // The pictures still held back.
    virtual bool flush(std::vector<VlDecodedPicture>& out, std::string& error);

private:
    struct Session;
    std::uint32_t fcc_;
    Session* session_ = nullptr;
};

namespace Vl {

// The editor's registry of installed video decoders, by FourCC.
class VL_HOST_API DecoderInfo
{
public:
    static bool isDecodable(const PlayFileMetadata& metadata);
    // A decoder to UYVY for metadata's video, or null when the editor has
    // none for its compression.
    static Vl::Ptr<VlDecoder> getDecoderFor(const PlayFileMetadata& metadata);
    // Whether fcc names MPEG-2 video, whose frames may be predicted.
    static bool isMpeg2(std::uint32_t fcc);
    // The frames of MPEG-2 video bytes laid back to back, in order; empty
    // when the bytes hold no picture.
    static std::vector<VlCodedFrame> splitMpeg2(const unsigned char* bytes, std::uint32_t size);

    static void registerDecoder(std::uint32_t fcc);
    static void unregisterDecoder(std::uint32_t fcc);
};

} // namespace Vl
