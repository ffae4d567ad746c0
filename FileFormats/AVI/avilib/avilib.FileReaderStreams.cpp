// The per-stream accessors of the reader.
#include <cstring>

#include "FileFormats/AVI/avilib/avilib.FileReader.h"

namespace Morvane::Avi {

bool FileReader::ValidStream(int n) const
{
    return m_pAviStreams && n >= 0 && static_cast<unsigned>(n) < m_AviHeader.dwStreams;
}

unsigned int FileReader::get_StreamCount() const
{
    return m_pAviStreams ? m_AviHeader.dwStreams : 0;
}

bool FileReader::get_IsVideo(int n) const
{
    if (!ValidStream(n))
        return false;
    std::uint32_t t = m_pAviStreams[n].strh.fccType;
    return t == streamtype::vids || t == streamtype::iavs;
}

bool FileReader::get_IsAudio(int n) const
{
    return ValidStream(n) && m_pAviStreams[n].strh.fccType == streamtype::auds;
}

unsigned int FileReader::get_FCC(int n) const
{
    if (!ValidStream(n))
        return 0;
    const AviStream& s = m_pAviStreams[n];
    if (s.bih.biSize >= sizeof(BITMAPINFOHEADER))
        return s.bih.biCompression;
    if (s.wfx.nSamplesPerSec != 0)
        return s.wfx.wFormatTag;
    return s.strh.fccHandler;
}

unsigned int FileReader::get_Length(int n) const
{
    if (!ValidStream(n))
        return 0;
    // The index lists what is there; header totals are often stale or 0.
    if (m_pAviStreams[n].m_bIndexLengthKnown)
        return m_pAviStreams[n].m_nIndexLength;
    if (get_IsVideo(n) && m_OpenDmlHeader.fcc == ckid::dmlh)
        return m_OpenDmlHeader.dwTotalFrames;
    return m_pAviStreams[n].strh.dwLength;
}

int FileReader::get_Width(int n) const
{
    return get_IsVideo(n) ? m_pAviStreams[n].bih.biWidth : 0;
}

int FileReader::get_Height(int n) const
{
    return get_IsVideo(n) ? m_pAviStreams[n].bih.biHeight : 0;
}

unsigned int FileReader::get_BitsPerSample(int n) const
{
    if (get_IsVideo(n))
        return m_pAviStreams[n].bih.biBitCount;
    if (get_IsAudio(n))
        return m_pAviStreams[n].wfx.wBitsPerSample;
    return 0;
}

unsigned int FileReader::get_ChannelCount(int n) const
{
    return get_IsAudio(n) ? m_pAviStreams[n].wfx.nChannels : 0;
}

double FileReader::get_Rate(int n) const
{
    if (!ValidStream(n) || m_pAviStreams[n].strh.dwScale == 0)
        return 0.0;
    return double(m_pAviStreams[n].strh.dwRate) / double(m_pAviStreams[n].strh.dwScale);
}

bool FileReader::get_RateAndScale(int n, int* rate, int* scale) const
{
    if (!ValidStream(n))
        return false;
    if (rate)
        *rate = static_cast<int>(m_pAviStreams[n].strh.dwRate);
    if (scale)
        *scale = static_cast<int>(m_pAviStreams[n].strh.dwScale);
    return true;
}

unsigned int FileReader::get_BufferSize(int n) const
{
    // A negative n is not checked by the original contract; refusing it
    // here keeps the array access in bounds.
    if (!ValidStream(n))
        return 0;
    return m_pAviStreams[n].strh.dwSuggestedBufferSize;
}

bool FileReader::get_HasIndexTable(int n) const
{
    if (!get_IsVideo(n))
        return false;
    return !m_pAviStreams[n].m_SuperIndex.empty() ||
           (m_eFileIndexSource != IndexSource::none && !m_FileIndex[n].empty());
}

bool FileReader::get_IsTimeCode(int) const
{
    return false;
}

HRESULT FileReader::get_TimeCode(int, unsigned int*) const
{
    return E_NOTIMPL;
}

int FileReader::streamGetExtraData(int n, unsigned char* buf, int bufSize) const
{
    if (!ValidStream(n))
        return -1;
    const AviStream& s = m_pAviStreams[n];
    if (!s.m_pStreamFormatExtra || s.m_cbStreamFormatExtra == 0)
        return 0;
    int size = static_cast<int>(s.m_cbStreamFormatExtra);
    if (!buf)
        return size;
    if (size <= bufSize) {
        std::memcpy(buf, s.m_pStreamFormatExtra, s.m_cbStreamFormatExtra);
        return size;
    }
    return -4;
}

const BITMAPINFOHEADER* FileReader::get_VideoFormat() const
{
    return get_IsVideo(m_nCurrentStream) ? &m_pAviStreams[m_nCurrentStream].bih : nullptr;
}

} // namespace Morvane::Avi
