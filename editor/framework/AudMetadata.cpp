#include "host/AudMetadata.h"

namespace Aud {

void Metadata::calculateSampleTypeNumber()
{
    // The mixers take little- and big-endian integer PCM of 8 to 32 bits and
    // 32-bit float; the number packs type, size and endianness.
    sampleType_ = kInvalidSampleType;
    bool pcm = dataType_ == eDataPcm && (bits_ == 8 || bits_ == 16 || bits_ == 24 || bits_ == 32);
    bool flt = dataType_ == eDataFloat && bits_ == 32;
    if (pcm || flt)
        sampleType_ = (dataType_ << 16) | (bits_ << 1) | (endian_ & 1);
}

} // namespace Aud
