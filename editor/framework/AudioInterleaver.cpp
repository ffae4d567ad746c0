#include "host/AudioInterleaver.h"

#include <algorithm>
#include <cstring>

void AudioInterleaver::setAudioFormat(const Aud::Metadata& format)
{
    channels_ = format.channelsPerStream();
    bytesPerSample_ = (format.bitsPerSample() + 7) / 8;
}

std::uint32_t AudioInterleaver::deinterleaveAudio(std::uint32_t sampleCount, const iMemHolder& memory,
                                                  Aud::StreamBufferList& buffers) const
{
    const std::uint32_t bps = bytesPerSample_;
    if (channels_ == 0 || bps == 0 || bps > 4 || buffers.channels() < channels_ || buffers.bytesPerSample() != bps) {
        buffers.setSamples(0);
        return 0;
    }
    const std::uint64_t frameBytes = std::uint64_t(channels_) * bps;
    std::uint64_t n = std::min<std::uint64_t>({sampleCount, memory.used() / frameBytes, buffers.capacity()});
    const unsigned char* in = memory.data() + memory.dataOffset();
    for (std::uint32_t c = 0; c < channels_; ++c) {
        unsigned char* out = buffers.channel(c);
        const unsigned char* from = in + std::size_t(c) * bps;
        for (std::uint64_t s = 0; s < n; ++s)
            std::memcpy(out + s * bps, from + s * frameBytes, bps);
    }
    buffers.setSamples(static_cast<std::uint32_t>(n));
    return static_cast<std::uint32_t>(n);
}
