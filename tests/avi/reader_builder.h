#pragma once
// Builds AVI files byte by byte for the reader tests, so that every field
// a test breaks is one it sets itself.
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "FileFormats/AVI/avilib/avilib.MediaType.h"
#include "FileFormats/AVI/avilib/avilib.Records.h"

namespace readertest {

using namespace Morvane::Avi;
using Bytes = std::vector<std::uint8_t>;

class RiffBuilder
{
public:
    std::size_t pos() const { return b_.size(); }
    Bytes& bytes() { return b_; }

    template <class T>
    void put(const T& v)
    {
        const auto* p = reinterpret_cast<const std::uint8_t*>(&v);
        b_.insert(b_.end(), p, p + sizeof v);
    }
    void putBytes(const Bytes& v) { b_.insert(b_.end(), v.begin(), v.end()); }
    void fcc(const char (&s)[5]) { put(Morvane::makeFourCC(s)); }

    // Opens a RIFF or LIST; returns where its size lies for end().
    std::size_t begin(const char (&id)[5], const char (&type)[5])
    {
        fcc(id);
        std::size_t at = pos();
        put(std::uint32_t(0));
        fcc(type);
        return at;
    }
    void end(std::size_t at);

    // A chunk with its pad byte; returns the position of its header.
    std::size_t chunk(std::uint32_t id, const Bytes& data)
    {
        std::size_t at = pos();
        put(id);
        put(static_cast<std::uint32_t>(data.size()));
        putBytes(data);
        if (data.size() & 1)
            b_.push_back(0);
        return at;
    }
    std::size_t chunk(const char (&id)[5], const Bytes& data) { return chunk(Morvane::makeFourCC(id), data); }
    template <class T>
    std::size_t record(const T& rec) // a record that starts with its own fcc/cb
    {
        std::size_t at = pos();
        put(rec);
        return at;
    }

private:
    Bytes b_;
};

template <class T>
Bytes bytesOf(const T& v)
{
    const auto* p = reinterpret_cast<const std::uint8_t*>(&v);
    return Bytes(p, p + sizeof v);
}

template <class T>
Bytes bytesOf(const std::vector<T>& records)
{
    return Bytes(reinterpret_cast<const std::uint8_t*>(records.data()),
                 reinterpret_cast<const std::uint8_t*>(records.data() + records.size()));
}

inline void put32(Bytes& b, std::size_t at, std::uint32_t v) { std::memcpy(&b[at], &v, 4); }
inline void put64(Bytes& b, std::size_t at, std::uint64_t v) { std::memcpy(&b[at], &v, 8); }
inline void RiffBuilder::end(std::size_t at) { put32(b_, at, static_cast<std::uint32_t>(pos() - at - 4)); }

inline void writeFile(const std::string& path, const Bytes& b)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

inline AVIMAINHEADER mainHeader(std::uint32_t streams, std::uint32_t frames)
{
    AVIMAINHEADER h = {};
    h.fcc = ckid::avih;
    h.cb = 56;
    h.dwMicroSecPerFrame = 40000;
    h.dwTotalFrames = frames;
    h.dwStreams = streams;
    h.dwWidth = 16;
    h.dwHeight = 16;
    return h;
}

inline AVISTREAMHEADER streamHeader(const char (&type)[5], const char (&handler)[5], std::uint32_t rate,
                                    std::uint32_t scale, std::uint32_t length)
{
    AVISTREAMHEADER h = {};
    h.fcc = ckid::strh;
    h.cb = 56;
    h.fccType = Morvane::makeFourCC(type);
    h.fccHandler = Morvane::makeFourCC(handler);
    h.dwRate = rate;
    h.dwScale = scale;
    h.dwLength = length;
    h.dwSuggestedBufferSize = 4096;
    return h;
}

inline BITMAPINFOHEADER videoFormat(const char (&code)[5], std::uint32_t biSize = 40)
{
    BITMAPINFOHEADER b = {};
    b.biSize = biSize;
    b.biWidth = 16;
    b.biHeight = 16;
    b.biPlanes = 1;
    b.biBitCount = 16;
    b.biCompression = Morvane::makeFourCC(code);
    b.biSizeImage = 512;
    return b;
}

inline WAVEFORMATEX pcm(std::uint16_t channels, std::uint16_t bits, std::uint32_t rate)
{
    WAVEFORMATEX w = {};
    w.wFormatTag = WAVE_FORMAT_PCM;
    w.nChannels = channels;
    w.nSamplesPerSec = rate;
    w.nBlockAlign = static_cast<std::uint16_t>(channels * bits / 8);
    w.nAvgBytesPerSec = rate * w.nBlockAlign;
    w.wBitsPerSample = bits;
    return w;
}

// An MPEG-2 long-GOP video format: BITMAPINFOHEADER, biExtDataOffset 44,
// then a serialized media type with temporal compression and its 136-byte
// MPEG2VIDEOINFO.
inline Bytes mmesFormat(std::int32_t height)
{
    BITMAPINFOHEADER b = videoFormat("MMES", 40 + 4 + 72 + 136);
    b.biHeight = height;
    RiffBuilder out;
    out.put(b);
    out.put(std::uint32_t(44));
    SERIALIZED_MEDIA_TYPE mt = {};
    mt.majortype = MEDIATYPE_Video;
    mt.subtype = MEDIASUBTYPE_MPEG2_VIDEO;
    mt.bTemporalCompression = 1;
    mt.formattype = FORMAT_MPEG2_VIDEO;
    mt.cbFormat = 136;
    out.put(mt);
    MPEG2VIDEOINFO info = {};
    info.hdr.AvgTimePerFrame = 333667;
    info.hdr.bmiHeader = b;
    info.hdr.bmiHeader.biSize = 40;
    out.put(info);
    return out.bytes();
}

// The payload of frame k: size bytes of the value k + 1.
inline Bytes frameData(unsigned k, std::size_t size)
{
    return Bytes(size, static_cast<std::uint8_t>(k + 1));
}

} // namespace readertest
