#pragma once
#include <cstdint>

#include "AudMetadata.h"
#include "AudStreamBufferList.h"
#include "VlExport.h"
#include "iMemHolder.h"

// Splits interleaved little-endian PCM (8, 16, 24 or 32 bits) into the
// per-channel buffers the editor's mixer takes.
class VL_HOST_API AudioInterleaver
{
public:
    void setAudioFormat(const Aud::Metadata& format);
    std::uint32_t channels() const { return channels_; }
    std::uint32_t bytesPerSample() const { return bytesPerSample_; }

    // At most sampleCount samples, no more than the payload of memory holds;
    // the buffers are sized to this format and the number split, which is
    // returned.
    std::uint32_t deinterleaveAudio(std::uint32_t sampleCount, const iMemHolder& memory,
                                    Aud::StreamBufferList& buffers) const;

private:
    std::uint32_t channels_ = 0;
    std::uint32_t bytesPerSample_ = 0;
};
