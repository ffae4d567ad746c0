// The media-type description of the video format that the header walk builds.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"

namespace Morvane::Avi {

bool FileReader::allocFormat(std::uint32_t cb)
{
    delete[] m_MT.pbFormat;
    m_MT.pbFormat = new (std::nothrow) std::uint8_t[cb]();
    m_MT.cbFormat = m_MT.pbFormat ? cb : 0;
    return m_MT.pbFormat != nullptr;
}

// 10,000,000 / (rate / scale) in 32-bit integers: the coarse frame time of
// the compressed types (30000/1001 gives 344,827).
std::uint64_t FileReader::frameTime32(unsigned int stream) const
{
    const AVISTREAMHEADER& h = m_pAviStreams[stream].strh;
    std::uint32_t fps = h.dwScale ? h.dwRate / h.dwScale : 0;
    return fps ? 10000000u / fps : 0;
}

bool FileReader::makeTypeUncompressed(unsigned int stream, const GUID& subtype, bool m102)
{
    freeMediaType();
    m_MT.majortype = MEDIATYPE_Video;
    m_MT.subtype = subtype;
    m_MT.bFixedSizeSamples = 1;
    m_MT.bTemporalCompression = 0;
    m_MT.pUnk = 0;
    m_MT.formattype = FORMAT_VideoInfo;
    bool pvi = allocFormat(sizeof(VIDEOINFO));
    MORVANE_ASSERT(pvi);
    if (!pvi)
        return false;
    const AviStream& s = m_pAviStreams[stream];
    VIDEOINFOHEADER vih;
    std::memset(&vih, 0, sizeof vih);
    double fps = s.strh.dwScale ? double(s.strh.dwRate) / double(s.strh.dwScale) : 0.0;
    vih.AvgTimePerFrame = fps > 0.0 ? static_cast<std::uint64_t>(10000000.0 / fps) : 0;
    vih.bmiHeader = s.bih;
    if (m102) {
        vih.bmiHeader.biBitCount = 16;
        vih.bmiHeader.biCompression = makeFourCC("YUY2");
        m_MT.lSampleSize = std::uint32_t(s.bih.biWidth) * std::uint32_t(s.bih.biHeight) * 2u;
    } else {
        m_MT.lSampleSize =
            std::uint32_t(s.bih.biWidth) * std::uint32_t(s.bih.biHeight) * std::uint32_t(s.bih.biBitCount / 8);
    }
    std::memcpy(m_MT.pbFormat, &vih, sizeof vih);
    return true;
}

bool FileReader::STRF_MakeTypeMJPEG(unsigned int stream, unsigned char* strfData)
{
    freeMediaType();
    m_MT.majortype = MEDIATYPE_Video;
    m_MT.subtype = MEDIASUBTYPE_MJPG;
    m_MT.bFixedSizeSamples = 0;
    m_MT.bTemporalCompression = 0;
    m_MT.lSampleSize = 1;
    m_MT.formattype = FORMAT_VideoInfo;
    const AviStream& s = m_pAviStreams[stream];
    EXBMINFOHEADER ex;
    std::memset(&ex, 0, sizeof ex);
    // The JPEG header form is recognised only when the chunk really holds it.
    bool jpegHeader = s.m_cbStreamFormatExtra >= 68 - 40 && s.bih.biSize == 68;
    if (jpegHeader) {
        std::memcpy(&ex, strfData, sizeof ex);
        jpegHeader = ex.biExtDataOffset == sizeof(EXBMINFOHEADER);
    }
    std::uint32_t cb = jpegHeader ? 116 : sizeof(VIDEOINFOHEADER);
    if (!allocFormat(cb))
        return false;
    VIDEOINFOHEADER vih;
    std::memset(&vih, 0, sizeof vih);
    vih.AvgTimePerFrame = frameTime32(stream);
    vih.bmiHeader = s.bih;
    std::memcpy(m_MT.pbFormat, &vih, sizeof vih);
    if (jpegHeader)
        std::memcpy(m_MT.pbFormat + offsetof(VIDEOINFOHEADER, bmiHeader), strfData, 68);
    return true;
}

bool FileReader::STRF_MakeTypeDV(unsigned int stream, GUID subtype)
{
    freeMediaType();
    m_MT.majortype = MEDIATYPE_Video;
    m_MT.subtype = subtype;
    m_MT.bFixedSizeSamples = 0;
    m_MT.bTemporalCompression = 0;
    m_MT.lSampleSize = 1;
    m_MT.formattype = FORMAT_VideoInfo;
    if (!allocFormat(sizeof(VIDEOINFOHEADER)))
        return false;
    VIDEOINFOHEADER vih;
    std::memset(&vih, 0, sizeof vih);
    vih.AvgTimePerFrame = frameTime32(stream);
    vih.bmiHeader = m_pAviStreams[stream].bih;
    std::memcpy(m_MT.pbFormat, &vih, sizeof vih);
    return true;
}

bool FileReader::STRF_MakeTypeMMES(unsigned int stream)
{
    const AviStream& s = m_pAviStreams[stream];
    const unsigned char* extra = s.m_pStreamFormatExtra;
    std::uint32_t size = s.m_cbStreamFormatExtra;
    if (!extra || size < 80)
        return false;
    std::uint32_t cbOffset;
    std::memcpy(&cbOffset, extra, sizeof cbOffset);
    if (cbOffset != sizeof(EXBMINFOHEADER)) {
        MORVANE_ASSERT(cbOffset == sizeof(EXBMINFOHEADER));
        if (size < cbOffset)
            return false;
    }
    // The media type lies at cbOffset in the whole strf, 40 bytes before
    // that in the extra data; an offset inside the fixed header is nonsense.
    if (cbOffset < sizeof(BITMAPINFOHEADER) || cbOffset - sizeof(BITMAPINFOHEADER) > size)
        return false;
    std::uint32_t at = cbOffset - std::uint32_t(sizeof(BITMAPINFOHEADER));
    std::uint32_t rest = size - at;
    if (rest < 76)
        return false;
    SERIALIZED_MEDIA_TYPE mt;
    std::memcpy(&mt, extra + at, sizeof mt);
    if (mt.majortype != MEDIATYPE_Video || mt.cbFormat > rest - sizeof mt ||
        mt.subtype != MEDIASUBTYPE_MPEG2_VIDEO || mt.formattype != FORMAT_MPEG2_VIDEO)
        return false;
    MORVANE_ASSERT(! m_MT.pbFormat);
    freeMediaType();
    m_MT.majortype = mt.majortype;
    m_MT.subtype = mt.subtype;
    m_MT.bFixedSizeSamples = mt.bFixedSizeSamples;
    m_MT.bTemporalCompression = mt.bTemporalCompression;
    m_MT.lSampleSize = mt.lSampleSize;
    m_MT.formattype = mt.formattype;
    m_MT.pUnk = 0;
    if (!allocFormat(sizeof(MPEG2VIDEOINFO)))
        return false;
    // Copy what the file holds of the 136 bytes; the rest stays zero.
    std::uint32_t have = rest - std::uint32_t(sizeof mt);
    std::memcpy(m_MT.pbFormat, extra + at + sizeof mt, std::min<std::uint32_t>(have, sizeof(MPEG2VIDEOINFO)));
    MPEG2VIDEOINFO info;
    std::memcpy(&info, m_MT.pbFormat, sizeof info);
    if (info.hdr.bmiHeader.biHeight == 576) {
        info.hdr.AvgTimePerFrame = 400000;
        std::memcpy(m_MT.pbFormat, &info, sizeof info);
    }
    return true;
}

} // namespace Morvane::Avi
