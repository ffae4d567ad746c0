#pragma once
// What the host's write side hands to the container writer: one
// description per track at create time, one sample record per track per frame.
#include <cstdint>

namespace Morvane::Avi {

enum StreamType : std::uint32_t
{
    StreamVideo = 1,
    StreamAudio = 2,
    StreamTimecode = 3,
};

// Words of a video track's description; the unnamed ones are the host's.
struct VideoTrackInfo
{
    std::uint64_t width;
    std::uint64_t height;
    std::uint64_t bitCount;
    std::uint64_t fourcc; // low 32 bits
    std::uint64_t stride;
    std::uint64_t fieldCode; // 3 interlaced, 4 progressive
    std::uint64_t scanMode;  // 1 upper field first, 2 lower first, 3 progressive, 4 PsF; 0: not given
    std::uint64_t aspectRatio; // (x << 16) | y, the vprp dwFrameAspectRatio
    std::uint64_t rate;
    std::uint64_t scale; // frames per second = rate / scale
    std::uint64_t reserved10;
    std::uint64_t reserved11;
    std::uint64_t gopLength;
    std::uint64_t reserved[8];
};

struct AudioTrackInfo
{
    std::uint32_t formatTag;
    std::uint16_t channels;
    std::uint32_t samplesPerSec;
    std::uint16_t bitsPerSample;
    std::uint16_t blockAlign;
    std::uint32_t avgBytesPerSec;
};

constexpr std::uint32_t kTimecodeGiven = 1;
constexpr std::uint32_t kTimecodeDropFrame = 2;

// The header track: the frame rate, then the start timecode, which counts
// only when the flags say it was given.
struct TimecodeTrackInfo
{
    std::uint32_t rate;
    std::uint32_t scale;
    std::uint32_t startFrame; // start timecode as a frame count
    std::uint32_t flags;      // kTimecodeGiven, kTimecodeDropFrame
};

union TrackInfo
{
    VideoTrackInfo VInfo;
    AudioTrackInfo AInfo;
    TimecodeTrackInfo TCInfo;
    std::uint64_t Words[21];
};

static_assert(sizeof(TrackInfo) == 21 * 8);

struct TrackStructuralData
{
    std::uint32_t Type; // StreamType
    TrackInfo Data;
    unsigned char* pExtraData; // codec bytes that follow the strf format; may be null
    std::uint16_t cbExtra;
};

constexpr std::uint32_t kDisplayNumberNotGiven = 0xFFFFFFFFu;

struct TrackData
{
    const unsigned char* pData;
    std::uint32_t cbData;
    std::uint32_t dwDisplayNumber; // presentation order, or kDisplayNumberNotGiven
    std::uint32_t dwFrameType;     // 4 or less: intra; 8 and 16: predicted
    std::uint32_t dwReserved;
};

} // namespace Morvane::Avi
