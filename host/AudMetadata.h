#pragma once
#include <cstdint>

#include "VlExport.h"

namespace Aud {

// The editor's audio data types.
enum DataType : std::uint32_t {
    eDataNone = 0,
    eDataFloat = 2,
    eDataMpeg = 131,
    eDataPcm = 201,
    eDataImaAdpcm = 232,
    eDataAdpcm = 233,
};

enum EndianType : std::uint32_t { eLittleEndian = 0, eBigEndian = 1 };

constexpr std::uint32_t kInvalidSampleType = 0xFFFFFFFF;

// The audio part of a clip's metadata.
class VL_HOST_API Metadata
{
public:
    std::uint32_t audioStreams() const { return streams_; }
    void setAudioStreams(std::uint32_t n) { streams_ = n; }
    std::uint32_t channelsPerStream() const { return channels_; }
    void setChannelsPerStream(std::uint32_t n) { channels_ = n; }
    std::uint32_t bitsPerSample() const { return bits_; }
    void setBitsPerSample(std::uint32_t b) { bits_ = b; }
    // Bytes of one channel's sample.
    std::uint32_t stride() const { return stride_; }
    void setStride(std::uint32_t s) { stride_ = s; }
    std::uint32_t samplesPerSec() const { return rate_; }
    void setSamplesPerSec(std::uint32_t r) { rate_ = r; }
    std::uint32_t endianType() const { return endian_; }
    void setEndianType(std::uint32_t e) { endian_ = e; }
    std::uint32_t dataType() const { return dataType_; }
    void setDataType(std::uint32_t t) { dataType_ = t; }
    std::uint64_t lengthInSamples() const { return length_; }
    void setLengthInSamples(std::uint64_t n) { length_ = n; }

    // The editor's number for data type, size and endianness; all ones when
    // the combination is not one its mixers take.
    std::uint32_t sampleTypeNumber() const { return sampleType_; }
    void calculateSampleTypeNumber();

private:
    std::uint32_t streams_ = 0;
    std::uint32_t channels_ = 0;
    std::uint32_t bits_ = 0;
    std::uint32_t stride_ = 0;
    std::uint32_t rate_ = 0;
    std::uint32_t endian_ = 0;
    std::uint32_t dataType_ = 0;
    std::uint64_t length_ = 0;
    std::uint32_t sampleType_ = kInvalidSampleType;
};

} // namespace Aud
