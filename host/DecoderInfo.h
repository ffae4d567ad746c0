#pragma once
#include <cstdint>

#include "PlayFileMetadata.h"
#include "VlExport.h"

namespace Vl {

// The editor's registry of installed video decoders, by FourCC.
class VL_HOST_API DecoderInfo
{
public:
    static bool isDecodable(const PlayFileMetadata& metadata);

    static void registerDecoder(std::uint32_t fcc);
    static void unregisterDecoder(std::uint32_t fcc);
};

} // namespace Vl
