#pragma once
#include <cstdint>
#include <string>
#include <vector>

// A GOP as the reader hands it out: its samples in storage order and their
// presentation order. Both arrays are present or both are null.
struct GOPInfo
{
    std::uint64_t count_ = 0;
    std::uint32_t* GOPIndexes_ = nullptr;
    std::uint32_t* presentationOrder_ = nullptr;
};

namespace Morvane {

bool allocGOPInfo(GOPInfo& g, unsigned long n);
void freeGOPInfo(GOPInfo& g);

// Nominal bit rate in kbit/s of the DV and AVC-Intra families; 0 for others.
unsigned getBitrateForFCC(unsigned fcc, unsigned width = 0, unsigned height = 0);
unsigned getBppForFCC(unsigned fcc);
bool isValidIMXBitrate(unsigned kbps);

std::wstring aspectRatioToString(unsigned long code);
unsigned long aspectRatioFromString(const std::wstring& text);
const std::vector<unsigned long>& aspectRatios();

bool getRateAndScaleFromWString(const std::wstring& s, unsigned& rate, unsigned& scale);
bool getWStringFromFrameRateAndScale(unsigned rate, unsigned scale, std::wstring& out);

constexpr unsigned long kAspect16x9 = 0x00100009;
constexpr unsigned long kAspect4x3 = 0x00040003;
constexpr unsigned long kAspect14x9 = 0x000E0009;

} // namespace Morvane
