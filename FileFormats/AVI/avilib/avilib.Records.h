#pragma once
// The RIFF/AVI records as they lie in the file (little-endian, packed).
// Reader and writer both use these layouts.
#include <cstdint>

#include "util/fourcc.h"

namespace Morvane::Avi {

#pragma pack(push, 1)

// Chunk header: id and the size of the data that follows (without the
// header and without the pad byte of an odd size).
struct RIFFCHUNK
{
    std::uint32_t fcc;
    std::uint32_t cb;
};

// RIFF or LIST header: chunk header and the form or list type.
struct RIFFLIST
{
    std::uint32_t fcc;
    std::uint32_t cb;
    std::uint32_t fccListType;
};

// "avih", header included.
struct AVIMAINHEADER
{
    std::uint32_t fcc;
    std::uint32_t cb;
    std::uint32_t dwMicroSecPerFrame;
    std::uint32_t dwMaxBytesPerSec;
    std::uint32_t dwPaddingGranularity;
    std::uint32_t dwFlags;
    std::uint32_t dwTotalFrames;
    std::uint32_t dwInitialFrames;
    std::uint32_t dwStreams;
    std::uint32_t dwSuggestedBufferSize;
    std::uint32_t dwWidth;
    std::uint32_t dwHeight;
    std::uint32_t dwReserved[4];
};

struct RECT16
{
    std::int16_t left;
    std::int16_t top;
    std::int16_t right;
    std::int16_t bottom;
};

// "strh", header included.
struct AVISTREAMHEADER
{
    std::uint32_t fcc;
    std::uint32_t cb;
    std::uint32_t fccType;
    std::uint32_t fccHandler;
    std::uint32_t dwFlags;
    std::uint16_t wPriority;
    std::uint16_t wLanguage;
    std::uint32_t dwInitialFrames;
    std::uint32_t dwScale;
    std::uint32_t dwRate;
    std::uint32_t dwStart;
    std::uint32_t dwLength;
    std::uint32_t dwSuggestedBufferSize;
    std::uint32_t dwQuality;
    std::uint32_t dwSampleSize;
    RECT16 rcFrame;
};

// Video "strf".
struct BITMAPINFOHEADER
{
    std::uint32_t biSize;
    std::int32_t biWidth;
    std::int32_t biHeight;
    std::uint16_t biPlanes;
    std::uint16_t biBitCount;
    std::uint32_t biCompression;
    std::uint32_t biSizeImage;
    std::int32_t biXPelsPerMeter;
    std::int32_t biYPelsPerMeter;
    std::uint32_t biClrUsed;
    std::uint32_t biClrImportant;
};

// BITMAPINFOHEADER with the offset of the codec data that follows it.
struct EXBMINFOHEADER
{
    BITMAPINFOHEADER bmi;
    std::uint32_t biExtDataOffset;
};

// Audio "strf" of 14 to 17 bytes.
struct WAVEFORMAT
{
    std::uint16_t wFormatTag;
    std::uint16_t nChannels;
    std::uint32_t nSamplesPerSec;
    std::uint32_t nAvgBytesPerSec;
    std::uint16_t nBlockAlign;
};

struct WAVEFORMATEX
{
    std::uint16_t wFormatTag;
    std::uint16_t nChannels;
    std::uint32_t nSamplesPerSec;
    std::uint32_t nAvgBytesPerSec;
    std::uint16_t nBlockAlign;
    std::uint16_t wBitsPerSample;
    std::uint16_t cbSize;
};

struct WAVEFORMATEXTENSIBLE
{
    WAVEFORMATEX Format;
    std::uint16_t wValidBitsPerSample;
    std::uint32_t dwChannelMask;
    std::uint8_t SubFormat[16];
};

constexpr std::uint16_t WAVE_FORMAT_PCM = 1;
constexpr std::uint16_t WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

// "dmlh" (OpenDML extended header), header included.
struct AVIEXTHEADER
{
    std::uint32_t fcc;
    std::uint32_t cb;
    std::uint32_t dwTotalFrames;
    std::uint32_t dwFuture[61];
};

struct VIDEO_FIELD_DESC
{
    std::uint32_t CompressedBMHeight;
    std::uint32_t CompressedBMWidth;
    std::uint32_t ValidBMHeight;
    std::uint32_t ValidBMWidth;
    std::uint32_t ValidBMXOffset;
    std::uint32_t ValidBMYOffset;
    std::uint32_t VideoXOffsetInT;
    std::uint32_t VideoYValidStartLine;
};

// The first 48 bytes of "vprp", header included: the fixed part and the
// first word of the first field description.
struct AVIVIDEOPROPERTIES
{
    std::uint32_t fcc;
    std::uint32_t cb;
    std::uint32_t VideoFormatToken;
    std::uint32_t VideoStandard;
    std::uint32_t dwVerticalRefreshRate;
    std::uint32_t dwHTotalInT;
    std::uint32_t dwVTotalInLines;
    std::uint32_t dwFrameAspectRatio;
    std::uint32_t dwFrameWidthInPixels;
    std::uint32_t dwFrameHeightInLines;
    std::uint32_t nbFieldPerFrame;
    std::uint32_t CompressedBMHeight;
};

// What the field descriptions of a "vprp" say of the field order: how many
// the chunk holds (at most the two kept here) and each one's first line.
struct VideoFieldLayout
{
    std::uint32_t descriptions;
    std::uint32_t startLine[2];
};

// Legacy "idx1" record.
struct INDEXENTRY
{
    std::uint32_t dwChunkId;
    std::uint32_t dwFlags;
    std::uint32_t dwOffset;
    std::uint32_t dwSize;
};

constexpr std::uint32_t AVIIF_KEYFRAME = 0x10;

constexpr std::uint8_t AVI_INDEX_OF_INDEXES = 0;
constexpr std::uint8_t AVI_INDEX_OF_CHUNKS = 1;
constexpr std::uint8_t AVI_INDEX_SUB_DEFAULT = 0;
constexpr std::uint8_t AVI_INDEX_2FIELD = 1;
constexpr std::uint8_t AVI_INDEX_IBP = 16;

// "indx" super index header, chunk header included; the entries follow.
struct AVISUPERINDEX
{
    std::uint32_t fcc;
    std::uint32_t cb;
    std::uint16_t wLongsPerEntry;
    std::uint8_t bIndexSubType;
    std::uint8_t bIndexType;
    std::uint32_t nEntriesInUse;
    std::uint32_t dwChunkId;
    std::uint32_t dwReserved[3];
};

struct AVISUPERINDEX_ENTRY
{
    std::uint64_t qwOffset;
    std::uint32_t dwSize;
    std::uint32_t dwDuration;
};

// "ix##" standard index header, chunk header included; the entries follow.
struct AVISTDINDEX
{
    std::uint32_t fcc;
    std::uint32_t cb;
    std::uint16_t wLongsPerEntry;
    std::uint8_t bIndexSubType;
    std::uint8_t bIndexType;
    std::uint32_t nEntriesInUse;
    std::uint32_t dwChunkId;
    std::uint64_t qwBaseOffset;
    std::uint32_t dwReserved;
};

// Bit 31 of dwSize marks a non-key frame.
constexpr std::uint32_t AVISTDINDEX_DELTAFRAME = 0x80000000u;
constexpr std::uint32_t AVISTDINDEX_SIZEMASK = 0x7FFFFFFFu;

struct AVISTDINDEX_ENTRY
{
    std::uint32_t dwOffset;
    std::uint32_t dwSize;
};

struct AVIFIELDINDEX_ENTRY
{
    std::uint32_t dwOffset;
    std::uint32_t dwSize;
    std::uint32_t dwOffsetField2;
};

// Frame-type (IBP) index entry of long-GOP streams: bits 0-28 of
// dwSizeAndType are the size, bits 29-31 the frame type (0 key, 1 P,
// 2 or 3 B).
struct MQ_AVIIBPINDEX_ENTRY
{
    std::uint64_t qwOffset;
    std::uint32_t dwSizeAndType;
    std::uint32_t dwDisplay;
    std::uint32_t dwRealLocation;
    std::uint32_t dwReserved;
};

constexpr std::uint32_t MQ_IBP_SIZEMASK = 0x1FFFFFFFu;
constexpr unsigned MQ_IBP_TYPESHIFT = 29;

#pragma pack(pop)

static_assert(sizeof(RIFFCHUNK) == 8);
static_assert(sizeof(RIFFLIST) == 12);
static_assert(sizeof(AVIMAINHEADER) == 64);
static_assert(sizeof(AVISTREAMHEADER) == 64);
static_assert(sizeof(BITMAPINFOHEADER) == 40);
static_assert(sizeof(EXBMINFOHEADER) == 44);
static_assert(sizeof(WAVEFORMAT) == 14);
static_assert(sizeof(WAVEFORMATEX) == 18);
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);
static_assert(sizeof(AVIEXTHEADER) == 256);
static_assert(sizeof(VIDEO_FIELD_DESC) == 32);
static_assert(sizeof(AVIVIDEOPROPERTIES) == 48);
static_assert(sizeof(INDEXENTRY) == 16);
static_assert(sizeof(AVISUPERINDEX) == 32);
static_assert(sizeof(AVISUPERINDEX_ENTRY) == 16);
static_assert(sizeof(AVISTDINDEX) == 32);
static_assert(sizeof(AVISTDINDEX_ENTRY) == 8);
static_assert(sizeof(AVIFIELDINDEX_ENTRY) == 12);
static_assert(sizeof(MQ_AVIIBPINDEX_ENTRY) == 24);

// Chunk and list ids.
namespace ckid {
constexpr std::uint32_t RIFF = makeFourCC("RIFF");
constexpr std::uint32_t LIST = makeFourCC("LIST");
constexpr std::uint32_t AVI = makeFourCC("AVI ");
constexpr std::uint32_t AVIX = makeFourCC("AVIX");
constexpr std::uint32_t hdrl = makeFourCC("hdrl");
constexpr std::uint32_t avih = makeFourCC("avih");
constexpr std::uint32_t strl = makeFourCC("strl");
constexpr std::uint32_t strh = makeFourCC("strh");
constexpr std::uint32_t strf = makeFourCC("strf");
constexpr std::uint32_t strn = makeFourCC("strn");
constexpr std::uint32_t indx = makeFourCC("indx");
constexpr std::uint32_t vprp = makeFourCC("vprp");
constexpr std::uint32_t odml = makeFourCC("odml");
constexpr std::uint32_t dmlh = makeFourCC("dmlh");
constexpr std::uint32_t movi = makeFourCC("movi");
constexpr std::uint32_t idx1 = makeFourCC("idx1");
constexpr std::uint32_t JUNK = makeFourCC("JUNK");
constexpr std::uint32_t INFO = makeFourCC("INFO");
constexpr std::uint32_t rec = makeFourCC("rec ");
} // namespace ckid

// Stream types.
namespace streamtype {
constexpr std::uint32_t vids = makeFourCC("vids");
constexpr std::uint32_t auds = makeFourCC("auds");
constexpr std::uint32_t iavs = makeFourCC("iavs");
constexpr std::uint32_t txts = makeFourCC("txts");
} // namespace streamtype

} // namespace Morvane::Avi
