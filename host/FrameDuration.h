#pragma once
#include <cstdint>

#include "VideoCodes.h"
#include "VlExport.h"

namespace Vl {

// Seconds of one frame at an editor rate: exactly 1001/30000 for 29.97; 0.0
// for eFrameRateNone.
VL_HOST_API double getFrameDuration(FrameRate rate);

} // namespace Vl

// The fraction num/den nearest to value with den at most 1000000; false
// (and 0/1) for a value that is negative, not finite or too large.
VL_HOST_API bool toRational(double value, std::uint32_t& num, std::uint32_t& den);
