#include "Synth.h"

#include <cmath>
#include <algorithm>
#include <cstring>

#include "util/fourcc.h"

namespace velloro {

namespace {

using Morvane::makeFourCC;

struct Yuv
{
    int y, cb, cr;
};

// 75% bars: white, yellow, cyan, green, magenta, red, blue, black.
constexpr Yuv kBars[] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                         {84, 184, 198},  {65, 100, 212}, {35, 212, 114}, {16, 128, 128}};
constexpr Yuv kBox = {235, 128, 128};

Yuv pixel(std::uint32_t x, std::uint32_t y, std::uint32_t width, std::uint32_t height, std::uint64_t n)
{
    const std::uint32_t box = synthBoxSize(width);
    const std::uint32_t left = synthBoxLeft(width, n);
    if (y >= height * 2 / 3 && y < height * 2 / 3 + box && x >= left && x < left + box)
        return kBox;
    return kBars[std::min<std::uint64_t>(std::uint64_t(x) * 8 / width, 7)];
}

void put32(unsigned char* p, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<unsigned char>(v >> (8 * i));
}

} // namespace

std::uint32_t synthBoxSize(std::uint32_t width)
{
    return std::max<std::uint32_t>(width / 16, 2);
}

std::uint32_t synthBoxLeft(std::uint32_t width, std::uint64_t n)
{
    // The box crosses the lower third, one step a frame.
    const std::uint32_t box = synthBoxSize(width);
    const std::uint32_t span = width > box ? width - box : 1;
    return static_cast<std::uint32_t>((n * std::max<std::uint32_t>(width / 64, 1)) % span);
}

std::uint32_t synthStride(std::uint32_t fcc, std::uint32_t width)
{
    const std::uint64_t w = width;
    std::uint64_t stride = 0;
    if (fcc == makeFourCC("UYVY") || fcc == makeFourCC("YUY2"))
        stride = w * 2;
    else if (fcc == makeFourCC("M101") || fcc == makeFourCC("M102"))
        stride = (w * 2 + 127) / 128 * 128;
    else if (fcc == makeFourCC("v210"))
        stride = (w + 47) / 48 * 128;
    return stride > 0xFFFFFFFFu ? 0 : static_cast<std::uint32_t>(stride);
}

namespace {

// One row of the picture: every row outside the box's band is the same, and
// every row inside it too, so a frame is two rows painted and copied down.
void paintRow(std::uint32_t fcc, std::uint32_t width, std::uint32_t height, std::uint32_t y, std::uint64_t n,
              unsigned char* row)
{
    if (fcc == makeFourCC("v210")) {
        // Six pixels in four little-endian words of three 10-bit values.
        for (std::uint32_t x = 0; x < width; x += 6) {
            int v[12]; // Cb0 Y0 Cr0 Y1 Cb1 Y2 Cr1 Y3 Cb2 Y4 Cr2 Y5
            for (int k = 0; k < 6; ++k) {
                std::uint32_t px = std::min(x + k, width - 1);
                Yuv c = pixel(px, y, width, height, n);
                v[2 * k + 1] = c.y << 2;
                if (k % 2 == 0) {
                    v[2 * k] = c.cb << 2;
                    v[2 * k + 2] = c.cr << 2;
                }
            }
            unsigned char* p = row + std::size_t(x / 6) * 16;
            for (int w = 0; w < 4; ++w)
                put32(p + 4 * w,
                      std::uint32_t(v[3 * w]) | std::uint32_t(v[3 * w + 1]) << 10 | std::uint32_t(v[3 * w + 2]) << 20);
        }
        return;
    }
    const bool yuy2 = fcc == makeFourCC("YUY2");
    // Pairs of pixels share one Cb and Cr; an odd last column is left black.
    for (std::uint32_t x = 0; x + 1 < width; x += 2) {
        Yuv a = pixel(x, y, width, height, n);
        Yuv b = pixel(x + 1, y, width, height, n);
        unsigned char* p = row + std::size_t(x) * 2;
        if (yuy2) {
            p[0] = static_cast<unsigned char>(a.y);
            p[1] = static_cast<unsigned char>(a.cb);
            p[2] = static_cast<unsigned char>(b.y);
            p[3] = static_cast<unsigned char>(a.cr);
        } else {
            p[0] = static_cast<unsigned char>(a.cb);
            p[1] = static_cast<unsigned char>(a.y);
            p[2] = static_cast<unsigned char>(a.cr);
            p[3] = static_cast<unsigned char>(b.y);
        }
    }
}

} // namespace

void synthFrame(std::uint32_t fcc, std::uint32_t width, std::uint32_t height, std::uint64_t n, unsigned char* out)
{
    const std::size_t stride = synthStride(fcc, width);
    if (!stride || !height)
        return;
    const std::uint32_t boxTop = height * 2 / 3;
    const std::uint32_t boxRows = std::max<std::uint32_t>(width / 16, 2);
    unsigned char* bars = nullptr;
    unsigned char* box = nullptr;
    for (std::uint32_t y = 0; y < height; ++y) {
        unsigned char* row = out + std::size_t(y) * stride;
        const bool inBox = y >= boxTop && y < boxTop + boxRows;
        unsigned char*& painted = inBox ? box : bars;
        if (painted) {
            std::memcpy(row, painted, stride);
        } else {
            // Padding and an odd last column stay black.
            std::memset(row, 0, stride);
            paintRow(fcc, width, height, y, n, row);
            painted = row;
        }
    }
}

void synthFrame(std::uint32_t fcc, std::uint32_t width, std::uint32_t height, std::uint64_t n,
                std::vector<unsigned char>& out)
{
    out.resize(std::size_t(synthStride(fcc, width)) * height);
    synthFrame(fcc, width, height, n, out.data());
}

void synthTone(std::uint32_t rate, std::uint64_t first, std::uint32_t count, unsigned char* out)
{
    const double step = 2.0 * 3.14159265358979323846 * 1000.0 / (rate ? rate : 48000);
    for (std::uint32_t i = 0; i < count; ++i) {
        // The phase from the sample number modulo the rate stays exact over hours.
        double phase = step * double((first + i) % (rate ? rate : 48000));
        auto v = static_cast<std::int16_t>(std::lround(8192.0 * std::sin(phase)));
        out[2 * i] = static_cast<unsigned char>(v & 0xFF);
        out[2 * i + 1] = static_cast<unsigned char>((v >> 8) & 0xFF);
    }
}

} // namespace velloro
