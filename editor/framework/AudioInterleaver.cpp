#include "host/AudioInterleaver.h"

#include <algorithm>
#include <cstring>

namespace {

// One channel's samples, B bytes each and stride bytes apart. The size is a
// constant so that each copy is one load and one store, not a byte loop:
// the mixer asks for every frame's audio during playback.
template <unsigned B>
void gather(unsigned char* out, const unsigned char* from, std::size_t stride, std::uint64_t n)
{
    for (std::uint64_t s = 0; s < n; ++s)
        std::memcpy(out + s * B, from + s * stride, B);
}

void gather(unsigned bps, unsigned char* out, const unsigned char* from, std::size_t stride, std::uint64_t n)
{
    switch (bps) {
    case 1: return gather<1>(out, from, stride, n);
    case 2: return gather<2>(out, from, stride, n);
    case 3: return gather<3>(out, from, stride, n);
    default: return gather<4>(out, from, stride, n);
    }
}

} // namespace

void AudioInterleaver::setAudioFormat(const Aud::Metadata& format)
{
    channels_ = format.channelsPerStream();
    bytesPerSample_ = (format.bitsPerSample() + 7) / 8;
}

std::uint32_t AudioInterleaver::deinterleaveAudio(std::uint32_t sampleCount, const iMemHolder& memory,
                                                  Aud::StreamBufferList& buffers) const
{
    const std::uint32_t bps = bytesPerSample_;
    if (channels_ == 0 || bps == 0 || bps > 4) {
        buffers.reset(buffers.channels(), 0, buffers.bytesPerSample());
        return 0;
    }
    // The buffers are sized by the samples that the payload holds, never
    // by the count asked for or the channels claimed: a header that claims
    // thousands of channels costs what its bytes cost.
    const std::uint64_t frameBytes = std::uint64_t(channels_) * bps;
    const std::uint64_t n = std::min<std::uint64_t>(sampleCount, memory.used() / frameBytes);
    buffers.reset(channels_, static_cast<std::uint32_t>(n), bps);
    const unsigned char* in = memory.data() + memory.dataOffset();
    for (std::uint32_t c = 0; c < channels_ && n; ++c)
        gather(bps, buffers.channel(c), in + std::size_t(c) * bps, frameBytes, n);
    buffers.setSamples(static_cast<std::uint32_t>(n));
    return static_cast<std::uint32_t>(n);
}
