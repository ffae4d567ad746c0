#pragma once
// Test pictures and sound for velloro render: colour bars with a box that
// moves a step each frame, and a sine tone.
#include <cstdint>
#include <vector>

namespace velloro {

// Bytes per row of a synthesised picture in fcc (UYVY, YUY2, M101, M102, v210);
// 0 for another code.
std::uint32_t synthStride(std::uint32_t fcc, std::uint32_t width);

// Frame n of the clip in fcc, height rows of synthStride bytes, into out.
void synthFrame(std::uint32_t fcc, std::uint32_t width, std::uint32_t height, std::uint64_t n, unsigned char* out);
void synthFrame(std::uint32_t fcc, std::uint32_t width, std::uint32_t height, std::uint64_t n,
                std::vector<unsigned char>& out);

// The white box of frame n: its side, and its left column; its top row is
// two thirds down the picture. What tells one frame from another.
std::uint32_t synthBoxSize(std::uint32_t width);
std::uint32_t synthBoxLeft(std::uint32_t width, std::uint64_t n);

// count samples of a 1 kHz tone from sample number first, 16-bit little
// endian, one buffer per channel.
void synthTone(std::uint32_t rate, std::uint64_t first, std::uint32_t count, unsigned char* out);

} // namespace velloro
