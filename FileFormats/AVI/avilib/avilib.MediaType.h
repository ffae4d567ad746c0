#pragma once
// DirectShow media-type records and GUIDs, in the packed layouts that the
// reader builds and the writer serializes into stream formats.
#include <cstdint>

#include "FileFormats/AVI/avilib/avilib.Records.h"
#include "util/linux/platform.h"
#include "util/morvaneguid.h"

namespace Morvane::Avi {

// The subtype GUID of a FourCC: {code-0000-0010-8000-00AA00389B71}.
constexpr GUID fourccGuid(std::uint32_t code)
{
    return GUID{code, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
}

inline constexpr GUID MEDIATYPE_Video = fourccGuid(makeFourCC("vids"));
inline constexpr GUID MEDIATYPE_Audio = fourccGuid(makeFourCC("auds"));
inline constexpr GUID MEDIASUBTYPE_UYVY = fourccGuid(makeFourCC("UYVY"));
inline constexpr GUID MEDIASUBTYPE_YUY2 = fourccGuid(makeFourCC("YUY2"));
inline constexpr GUID MEDIASUBTYPE_MJPG = fourccGuid(makeFourCC("MJPG"));
inline constexpr GUID MEDIASUBTYPE_dvsd = fourccGuid(makeFourCC("dvsd"));
inline constexpr GUID MEDIASUBTYPE_dv25 = fourccGuid(makeFourCC("dv25"));
inline constexpr GUID MEDIASUBTYPE_dv50 = fourccGuid(makeFourCC("dv50"));
inline constexpr GUID MEDIASUBTYPE_PCM = fourccGuid(WAVE_FORMAT_PCM);
inline constexpr GUID MEDIASUBTYPE_MPEG2_VIDEO = {
    0xE06D8026, 0xDB46, 0x11CF, {0xB4, 0xD1, 0x00, 0x80, 0x5F, 0x6C, 0xBB, 0xEA}};
inline constexpr GUID FORMAT_VideoInfo = {
    0x05589F80, 0xC356, 0x11CE, {0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};
inline constexpr GUID FORMAT_VideoInfo2 = {
    0xF72A76A0, 0xEB0A, 0x11D0, {0xAC, 0xE4, 0x00, 0x00, 0xC0, 0xCC, 0x16, 0xBA}};
inline constexpr GUID FORMAT_WaveFormatEx = {
    0x05589F81, 0xC356, 0x11CE, {0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};
inline constexpr GUID FORMAT_MPEG2_VIDEO = {
    0xE06D80E3, 0xDB46, 0x11CF, {0xB4, 0xD1, 0x00, 0x80, 0x5F, 0x6C, 0xBB, 0xEA}};

#pragma pack(push, 1)

struct RECT
{
    std::int32_t left;
    std::int32_t top;
    std::int32_t right;
    std::int32_t bottom;
};

// AM_MEDIA_TYPE as the reader holds it: pUnk is a 32-bit zero and the
// format block is owned by whoever filled the record.
struct AM_MEDIA_TYPE
{
    GUID majortype;
    GUID subtype;
    std::int32_t bFixedSizeSamples;
    std::int32_t bTemporalCompression;
    std::uint32_t lSampleSize;
    GUID formattype;
    std::uint32_t pUnk;
    std::uint32_t cbFormat;
    std::uint8_t* pbFormat;
};

// A media type as serialized into a stream format: the fields of
// AM_MEDIA_TYPE without the pointers; the format block follows it.
struct SERIALIZED_MEDIA_TYPE
{
    GUID majortype;
    GUID subtype;
    std::int32_t bFixedSizeSamples;
    std::int32_t bTemporalCompression;
    std::uint32_t lSampleSize;
    GUID formattype;
    std::uint32_t unused1;
    std::uint32_t cbFormat;
    std::uint32_t unused2;
};

struct VIDEOINFOHEADER
{
    RECT rcSource;
    RECT rcTarget;
    std::uint32_t dwBitRate;
    std::uint32_t dwBitErrorRate;
    std::uint64_t AvgTimePerFrame; // 100 ns units
    BITMAPINFOHEADER bmiHeader;
};

// VIDEOINFOHEADER with room for a palette or the three colour masks.
struct VIDEOINFO
{
    VIDEOINFOHEADER hdr;
    std::uint32_t bmiColors[256];
    std::uint32_t dwBitMasks[3];
};

struct VIDEOINFOHEADER2
{
    RECT rcSource;
    RECT rcTarget;
    std::uint32_t dwBitRate;
    std::uint32_t dwBitErrorRate;
    std::uint64_t AvgTimePerFrame;
    std::uint32_t dwInterlaceFlags;
    std::uint32_t dwCopyProtectFlags;
    std::uint32_t dwPictAspectRatioX;
    std::uint32_t dwPictAspectRatioY;
    std::uint32_t dwControlFlags;
    std::uint32_t dwReserved2;
    BITMAPINFOHEADER bmiHeader;
};

struct MPEG2VIDEOINFO
{
    VIDEOINFOHEADER2 hdr;
    std::uint32_t dwStartTimeCode;
    std::uint32_t cbSequenceHeader;
    std::uint32_t dwProfile;
    std::uint32_t dwLevel;
    std::uint32_t dwFlags;
    std::uint32_t dwSequenceHeader[1];
};

#pragma pack(pop)

static_assert(sizeof(GUID) == 16);
static_assert(sizeof(SERIALIZED_MEDIA_TYPE) == 72);
static_assert(sizeof(VIDEOINFOHEADER) == 88);
static_assert(sizeof(VIDEOINFO) == 1124);
static_assert(sizeof(VIDEOINFOHEADER2) == 112);
static_assert(sizeof(MPEG2VIDEOINFO) == 136);

} // namespace Morvane::Avi
