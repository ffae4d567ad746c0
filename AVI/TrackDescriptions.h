#pragma once
// The container writer's track descriptions for a write request: track 0
// the header track, track 1 the video, then one PCM track per audio stream.
#include <cstdint>

#include "FileFormats/AVI/avilib/avilib.TrackData.h"
#include "host/FileWriterParams.h"

namespace avi {

constexpr std::uint16_t kHeaderTrack = 0;
constexpr std::uint16_t kVideoTrack = 1;
constexpr std::uint16_t kFirstAudioTrack = 2;

// Tracks a request needs: its audio streams plus two; 0 when that does not fit.
std::uint16_t trackCount(const Vl::FileWriterParams& params);

// The frame duration as scale / rate.
void frameRateFraction(const Vl::FileWriterParams& params, std::uint32_t& rate, std::uint32_t& scale);

// Fills tracks[0 .. trackCount(params)), which must be zeroed. 1, or 0 when
// the codec data could not be made (what was made stays in the tracks).
int describeTracks(const Vl::FileWriterParams& params, Morvane::Avi::TrackStructuralData* tracks);

} // namespace avi
