#pragma once
#include "VideoCodes.h"
#include "VlExport.h"

namespace Vl {

// Frames per second of an editor rate; 0.0 for eFrameRateNone.
VL_HOST_API double getFramesPerSecond(FrameRate rate);
// The editor rate within a small tolerance of a measured rate, or eFrameRateNone.
VL_HOST_API FrameRate getEquivalentVlFrameRate(double fps);

} // namespace Vl
