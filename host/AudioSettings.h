#pragma once
#include <cstdint>

#include "AudMetadata.h"

namespace Aud {

constexpr std::uint32_t keAudioDataTypePCM = eDataPcm;

// The audio of a write request: the metadata fields under the names the
// writer side uses.
class AudioSettings : public Metadata
{
public:
    std::uint32_t getDataType() const { return dataType(); }
};

} // namespace Aud
