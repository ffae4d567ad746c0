#pragma once
#include <cstdint>
#include <string>

#include "VideoCodes.h"
#include "VlExport.h"

// A position on the editor's timeline: a frame count at a frame rate.
class VL_HOST_API edit_label
{
public:
    edit_label() = default;
    edit_label(std::uint32_t frames, std::uint32_t scanMode, Vl::FrameRate rate, bool dropFrame)
        : frames_(frames), scanMode_(scanMode), rate_(rate), dropFrame_(dropFrame), valid_(true)
    {
    }

    bool valid() const { return valid_; }
    std::uint32_t frames() const { return frames_; }
    std::uint32_t scanMode() const { return scanMode_; }
    Vl::FrameRate frameRate() const { return rate_; }
    bool dropFrame() const { return dropFrame_; }
    // "HH:MM:SS:FF" (";" before the frames for drop-frame), or "" when unset.
    std::string text() const;

private:
    std::uint32_t frames_ = 0;
    std::uint32_t scanMode_ = 0;
    Vl::FrameRate rate_ = Vl::eFrameRateNone;
    bool dropFrame_ = false;
    bool valid_ = false;
};

VL_HOST_API edit_label editLabFrom(std::uint32_t frames, std::uint32_t scanMode, Vl::FrameRate rate, bool dropFrame);
