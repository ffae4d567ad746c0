#include "util/videoutils.h"

#include <algorithm>
#include <cwchar>
#include <new>

#include "util/fourcc.h"
#include "util/linux/platform.h"

namespace Morvane {

bool allocGOPInfo(GOPInfo& g, unsigned long n)
{
    MORVANE_ASSERT_AT(! g.GOPIndexes_ && ! g.presentationOrder_, "util/videoutils line 20");
    auto* indexes = new (std::nothrow) std::uint32_t[n];
    if (!indexes)
        return false;
    auto* order = new (std::nothrow) std::uint32_t[n];
    if (!order) {
        delete[] indexes;
        return false;
    }
    // A record that held arrays already keeps working; the old ones go.
    delete[] g.GOPIndexes_;
    delete[] g.presentationOrder_;
    std::fill_n(indexes, n, 0u);
    std::fill_n(order, n, 0u);
    g.GOPIndexes_ = indexes;
    g.presentationOrder_ = order;
    g.count_ = n;
    return true;
}

void freeGOPInfo(GOPInfo& g)
{
    delete[] g.GOPIndexes_;
    delete[] g.presentationOrder_;
    g.GOPIndexes_ = nullptr;
    g.presentationOrder_ = nullptr;
    g.count_ = 0;
}

unsigned getBitrateForFCC(unsigned fcc, unsigned, unsigned)
{
    switch (fcc) {
    case makeFourCC("dvsd"):
    case makeFourCC("dv25"):
    case makeFourCC("xd25"):
        return 25000;
    case makeFourCC("xd35"):
        return 35000;
    case makeFourCC("dv50"):
    case makeFourCC("xd50"):
    case makeFourCC("avc5"):
        return 50000;
    case makeFourCC("dvh1"):
    case makeFourCC("avc6"):
        return 100000;
    default:
        return 0;
    }
}

unsigned getBppForFCC(unsigned)
{
    return 24;
}

bool isValidIMXBitrate(unsigned kbps)
{
    return kbps == 30000 || kbps == 40000 || kbps == 50000;
}

std::wstring aspectRatioToString(unsigned long code)
{
    switch (code) {
    case kAspect14x9:
        return L"14-9";
    case kAspect16x9:
        return L"16-9";
    case kAspect4x3:
        return L"4-3";
    default:
        MORVANE_ASSERT_AT(false, "util/videoutils line 145");
        return L"16-9";
    }
}

unsigned long aspectRatioFromString(const std::wstring& text)
{
    if (text == L"16-9")
        return kAspect16x9;
    if (text == L"4-3")
        return kAspect4x3;
    if (text == L"14-9")
        return kAspect14x9;
    MORVANE_ASSERT_AT(false, "util/videoutils line 154");
    return kAspect16x9;
}

const std::vector<unsigned long>& aspectRatios()
{
    static const std::vector<unsigned long> ratios{kAspect16x9, kAspect4x3, kAspect14x9};
    return ratios;
}

bool getRateAndScaleFromWString(const std::wstring& s, unsigned& rate, unsigned& scale)
{
    auto slash = s.find(L'/');
    if (slash == std::wstring::npos)
        return false;
    std::wstring before = s.substr(0, slash);
    std::wstring after = s.substr(slash + 1);
    // Out-of-range values are clamped: converting them to unsigned as they
    // stand would be undefined.
    auto toUnsigned = [](double v) -> unsigned {
        if (!(v > 0))
            return 0;
        return v >= 4294967295.0 ? 0xFFFFFFFFu : static_cast<unsigned>(v);
    };
    rate = toUnsigned(std::wcstod(before.c_str(), nullptr));
    scale = toUnsigned(std::wcstod(after.c_str(), nullptr));
    return rate != 0 && scale != 0;
}

bool getWStringFromFrameRateAndScale(unsigned rate, unsigned scale, std::wstring& out)
{
    wchar_t buf[32];
    std::swprintf(buf, 32, L"%u%c%u", rate, L'/', scale);
    out = buf;
    return !out.empty();
}

} // namespace Morvane
