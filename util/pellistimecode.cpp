#include "util/pellistimecode.h"

#include <cmath>
#include <cstdio>
#include <ctime>
#include <cwchar>
#include <new>

#include "util/linux/platform.h"

namespace Morvane {

namespace {

constexpr float kRate2398 = 23.976025f;
constexpr float kRate2997 = 29.97003f;
constexpr float kRate5994 = 59.94006f;

constexpr unsigned long kAspect43 = 0x00040003;
constexpr unsigned long kAspect169 = 0x00100009;

// Largest count a wrap-free timecode can hold; the next value means unset.
constexpr std::uint64_t kMaxUnwrapped = 0xFFFFFFFEull;
// Frame rates beyond this are nonsense; capping keeps every count product
// inside 64 bits.
constexpr double kMaxFramesPerSecond = 1e9;
// 2^64: doubles at or above it do not convert to a 64-bit count.
constexpr double kTwoPow64 = 18446744073709551616.0;

// Kept exactly as the editor lists them, irregular entries included.
const VideoStandardEx kStandards[VS_Count] = {
    {0, L"Invalid Std", 0, 0, 0, 0, 0, 0, 0, 0, kAspect43, false, 0, 0},
    {1, L"Pal", 720, 576, 25, 25, 1, 200000, 1, 1, kAspect43, false, 34, 0},
    {2, L"Ntsc", 720, 486, 30, 30000, 1001, 1001000, 6, 2, kAspect43, true, 30, 1},
    {3, L"720p@24", 1280, 720, 24, 24, 1, 10000000, 24, 3, kAspect169, false, 19, 5},
    {4, L"720p@23.98", 1280, 720, 24, 24000, 1001, 1251250, 6, 3, kAspect169, false, 19, 2},
    {5, L"720p@25", 1280, 720, 25, 25, 1, 400000, 1, 3, kAspect169, false, 19, 0},
    {6, L"720p@29.97", 1280, 720, 30, 30000, 1001, 2002000, 6, 3, kAspect169, true, 19, 1},
    {7, L"720p@50", 1280, 720, 50, 50, 1, 200000, 1, 3, kAspect169, false, 19, 3},
    {8, L"720p@60", 1280, 720, 60, 60, 1, 1000000, 6, 3, kAspect169, false, 19, 6},
    {9, L"720p@59.94", 1280, 720, 60, 60000, 1001, 1001000, 6, 3, kAspect169, true, 19, 4},
    {10, L"1080psf@24", 1920, 1080, 24, 24, 1, 10000000, 24, 4, kAspect169, false, 30, 5},
    {11, L"1080psf@23.98", 1920, 1080, 24, 24000, 1001, 1251250, 6, 4, kAspect169, false, 30, 2},
    {12, L"1080i@25", 1920, 1080, 25, 25, 1, 200000, 1, 1, kAspect169, false, 30, 0},
    {13, L"1080i@30", 1920, 1080, 30, 30, 1, 1000000, 6, 1, kAspect169, false, 30, 7},
    {14, L"1080i@29.97", 1920, 1080, 30, 30000, 1001, 1001000, 6, 1, kAspect169, true, 30, 1},
    {15, L"1080psf@25", 1920, 1080, 25, 25, 1, 400000, 1, 4, kAspect169, false, 30, 0},
    {16, L"1080psf@30", 1920, 1080, 30, 30, 1, 2000000, 6, 4, kAspect169, false, 30, 7},
    {17, L"1080psf@29.97", 1920, 1080, 30, 30000, 1001, 2002000, 6, 4, kAspect169, true, 30, 1},
    {18, L"1080p@50", 1920, 1080, 50, 50, 1, 200000, 1, 3, kAspect169, false, 35, 3},
    {19, L"1080p@60", 1920, 1080, 60, 60, 1, 1000000, 6, 3, kAspect169, false, 35, 6},
    {20, L"1080p@59.94", 1920, 1080, 60, 60000, 1001, 1001000, 6, 3, kAspect169, true, 35, 4},
    {21, L"QFHD@23.98", 3840, 2160, 24, 24000, 1001, 1251250, 6, 3, kAspect169, false, 0, 2},
    {22, L"QFHD@25", 3840, 2160, 25, 25, 1, 400000, 1, 3, kAspect169, false, 0, 0},
    {23, L"QFHD@29.97", 3840, 2160, 30, 30000, 1001, 2002000, 6, 3, kAspect169, true, 0, 1},
    {24, L"QFHD@50", 3840, 2160, 50, 50, 1, 200000, 1, 3, kAspect169, false, 0, 3},
    {25, L"QFHD@59.94", 3840, 2160, 60, 60000, 1001, 1001000, 6, 3, kAspect169, true, 0, 4},
    {26, L"4k@23.98", 4096, 2160, 24, 24000, 1001, 2502500, 6, 3, kAspect169, false, 0, 2},
    {27, L"4k@25", 4096, 2160, 25, 25, 1, 400000, 1, 3, kAspect169, false, 0, 0},
    {28, L"4k@29.97", 4096, 2160, 30, 30000, 1001, 2002000, 6, 3, kAspect169, true, 0, 1},
    {29, L"4k@50", 4096, 2160, 50, 50, 1, 200000, 1, 3, kAspect169, false, 0, 3},
    {30, L"4k@59.94", 4096, 2160, 60, 60000, 1001, 1001000, 6, 3, kAspect169, true, 40, 4},
};

// Drop-frame constants per rate: labels dropped at each minute start, frames
// of a nominal minute and ten minutes, and real frames of one minute that
// starts with a drop and of ten minutes.
struct DropRule
{
    unsigned dropped;
    std::uint64_t nominalMinute;
    std::uint64_t nominalTenMinutes;
    std::uint64_t realMinute;
    std::uint64_t realTenMinutes;
};

constexpr DropRule kDrop2997 = {2, 1800, 18000, 1798, 17982};
constexpr DropRule kDrop5994 = {4, 3600, 36000, 3596, 35964};

const DropRule* dropRuleFor(float rate)
{
    if (rate == kRate2997)
        return &kDrop2997;
    if (rate == kRate5994)
        return &kDrop5994;
    return nullptr;
}

// Labels removed from a nominal count of n frames.
std::uint64_t droppedLabels(const DropRule& rule, std::uint64_t n)
{
    return 9 * rule.dropped * (n / rule.nominalTenMinutes)
        + rule.dropped * ((n % rule.nominalTenMinutes) / rule.nominalMinute);
}

bool isSkippedLabel(const DropRule& rule, unsigned m, unsigned s, unsigned f)
{
    return m % 10 != 0 && s == 0 && f < rule.dropped;
}

unsigned char toBcd(unsigned v)
{
    return static_cast<unsigned char>(((v / 10) << 4) | (v % 10));
}

// One BCD byte: units at most 9, tens from the bits of tensMask (after the
// shift), value at most maxValue.
bool fromBcd(unsigned char b, unsigned tensMask, unsigned maxValue, unsigned& value)
{
    unsigned units = b & 0x0F;
    if (units > 9)
        return false;
    unsigned v = ((b >> 4) & tensMask) * 10 + units;
    if (v > maxValue)
        return false;
    value = v;
    return true;
}

std::uint64_t toCount(double v)
{
    if (!(v >= 0.0))
        return 0;
    if (v >= kTwoPow64)
        return UINT64_MAX;
    return static_cast<std::uint64_t>(v);
}

} // namespace

const VideoStandardEx& getVideoStandard(VideoStandard vs)
{
    if (vs < 1 || vs > 30)
        return kStandards[0];
    return kStandards[vs];
}

CTimeCodeEx::CTimeCodeEx() : data_(new (std::nothrow) Record) {}

CTimeCodeEx::CTimeCodeEx(double rate) : data_(new (std::nothrow) Record)
{
    setRate(rate);
    if (data_)
        data_->frames = 0;
}

CTimeCodeEx::CTimeCodeEx(double rate, std::uint64_t frames) : data_(new (std::nothrow) Record)
{
    setRate(rate);
    setDuration(frames, false);
}

CTimeCodeEx::CTimeCodeEx(VideoStandard vs) : data_(new (std::nothrow) Record)
{
    setStandard(vs);
    if (data_)
        data_->frames = 0;
}

CTimeCodeEx::CTimeCodeEx(VideoStandard vs, std::uint64_t frames) : data_(new (std::nothrow) Record)
{
    setStandard(vs);
    setDuration(frames, false);
}

CTimeCodeEx::CTimeCodeEx(unsigned h, unsigned m, unsigned s, unsigned f, VideoStandard vs)
    : data_(new (std::nothrow) Record)
{
    setStandard(vs);
    setDuration(toFrameCount(h, m, s, f, 1), false);
}

CTimeCodeEx::CTimeCodeEx(const wchar_t* text, VideoStandard vs) : data_(new (std::nothrow) Record)
{
    setStandard(vs);
    fromString(text, true, 1);
}

CTimeCodeEx::CTimeCodeEx(const wchar_t* text, double rate) : data_(new (std::nothrow) Record)
{
    setRate(rate);
    fromString(text, true, 1);
}

CTimeCodeEx::CTimeCodeEx(const CTimeCodeEx& other) : data_(new (std::nothrow) Record)
{
    if (data_ && other.data_)
        *data_ = *other.data_;
}

CTimeCodeEx& CTimeCodeEx::operator=(const CTimeCodeEx& other)
{
    if (this != &other && data_)
        *data_ = other.data_ ? *other.data_ : Record();
    return *this;
}

CTimeCodeEx::~CTimeCodeEx()
{
    delete data_;
}

bool CTimeCodeEx::assign(const CTimeCodeEx* other)
{
    if (!other || !other->isValid()) {
        std::fputs("CTimeCodeEx::assign cannot assign to invalid object\n", stderr);
        return false;
    }
    *this = *other;
    return data_ != nullptr;
}

void CTimeCodeEx::setRate(double rate)
{
    if (!data_)
        return;
    // NaN counts as below 1: nothing sensible can be counted at it.
    if (!(rate >= 1.0)) {
        MORVANE_ASSERT_AT(false, "util/pellistimecode line 123");
        data_->rate = 25.0f;
        return;
    }
    float r;
    if (rate > 23.9999 && rate < 24.00001)
        r = 24.0f;
    else if (rate > 23.97 && rate < 23.99)
        r = kRate2398;
    else if (rate > 29.9999 && rate < 30.00001)
        r = 30.0f;
    else if (rate > 29.96 && rate < 29.98)
        r = kRate2997;
    else if (rate > 59.9999 && rate < 60.00001)
        r = 60.0f;
    else if (rate > 59.93 && rate < 59.95)
        r = kRate5994;
    else
        r = static_cast<float>(rate);
    data_->rate = r;
}

void CTimeCodeEx::setStandard(VideoStandard vs)
{
    if (!data_)
        return;
    const VideoStandardEx& row = getVideoStandard(vs);
    // The invalid row's 0/0 gives rate 0, which no timecode counts at.
    data_->rate = row.rateDen ? static_cast<float>(row.rateNum) / static_cast<float>(row.rateDen) : 0.0f;
    data_->dropFrame = row.dropFrame;
}

std::uint64_t CTimeCodeEx::getFrameDuration() const
{
    return data_ ? data_->frames : kUnset;
}

float CTimeCodeEx::getTimecodeRate() const
{
    return data_ ? data_->rate : 0.0f;
}

bool CTimeCodeEx::isValid() const
{
    return data_ && data_->frames != kUnset && data_->rate >= 1.0f;
}

bool CTimeCodeEx::isDropFrame() const
{
    return data_ && data_->dropFrame;
}

void CTimeCodeEx::setDropFrame(bool drop)
{
    if (data_)
        data_->dropFrame = drop;
}

bool CTimeCodeEx::getWrap() const
{
    return data_ && data_->wrap;
}

void CTimeCodeEx::setWrap(bool wrap)
{
    if (data_)
        data_->wrap = wrap;
}

void CTimeCodeEx::clear()
{
    if (data_)
        *data_ = Record();
}

std::uint64_t CTimeCodeEx::framesPerSecond() const
{
    if (!data_ || !(data_->rate > 0.0f))
        return 0;
    double r = std::ceil(static_cast<double>(data_->rate));
    return static_cast<std::uint64_t>(r < kMaxFramesPerSecond ? r : kMaxFramesPerSecond);
}

std::uint64_t CTimeCodeEx::getMaxFrames() const
{
    if (!data_)
        return 0;
    if (!data_->wrap)
        return kMaxUnwrapped;
    std::uint64_t max = framesPerSecond() * 86400;
    const DropRule* rule = dropRuleFor(data_->rate);
    if (data_->dropFrame && rule)
        max -= droppedLabels(*rule, max);
    return max;
}

bool CTimeCodeEx::setDuration(std::uint64_t n, bool allowWrap)
{
    if (!data_)
        return false;
    std::uint64_t max = getMaxFrames();
    if (n < max) {
        data_->frames = n;
        return true;
    }
    if (data_->wrap && allowWrap && max > 0) {
        data_->frames = n % max;
        return true;
    }
    MORVANE_ASSERT_AT(false, "util/pellistimecode line 1108");
    return false;
}

std::uint64_t CTimeCodeEx::toFrameCount(unsigned h, unsigned m, unsigned s, unsigned f, int dropAware) const
{
    if (!data_)
        return kUnset;
    const std::uint64_t fps = framesPerSecond();
    const DropRule* rule = dropRuleFor(data_->rate);

    if (dropAware > 0 && data_->dropFrame) {
        if (!rule)
            MORVANE_ASSERT_AT(false, "util/pellistimecode line 182");
        else if (isSkippedLabel(*rule, m, s, f)) {
            // A label drop frame never shows reads as the frame before it.
            m -= 1;
            s = 59;
            f = static_cast<unsigned>(f + fps - rule->dropped);
        }
    }

    double nominal = (static_cast<double>(h) * 3600.0 + static_cast<double>(m) * 60.0 + s)
        * static_cast<double>(fps) + f;
    std::uint64_t n = toCount(nominal);

    if (rule && (data_->dropFrame || dropAware == 0))
        n -= droppedLabels(*rule, n);

    if (data_->wrap ? n >= getMaxFrames() : n >= kMaxUnwrapped)
        return kUnset;
    return n;
}

bool CTimeCodeEx::toHHMMSSFF(unsigned& h, unsigned& m, unsigned& s, unsigned& f, bool dropAware) const
{
    if (!isValid())
        return false;
    std::uint64_t n = data_->frames;
    const std::uint64_t fps = framesPerSecond();
    const DropRule* rule = nullptr;
    if (data_->dropFrame || !dropAware)
        rule = dropRuleFor(data_->rate);
    if (!rule && data_->dropFrame)
        MORVANE_ASSERT_AT(false, "util/pellistimecode line 274");

    if (rule) {
        std::uint64_t tens = n / rule->realTenMinutes;
        std::uint64_t rest = n % rule->realTenMinutes;
        std::uint64_t minutes = rest / rule->realMinute;
        if (minutes % 10 == 0)
            minutes -= minutes / 10;
        if (!(tens == 0 && rest < rule->nominalMinute && dropAware))
            n += 9 * rule->dropped * tens + rule->dropped * minutes;
    }

    f = static_cast<unsigned>(n % fps);
    s = static_cast<unsigned>((n / fps) % 60);
    m = static_cast<unsigned>((n / fps / 60) % 60);
    h = static_cast<unsigned>((n / fps / 3600) % 60);

    if (rule && dropAware && data_->dropFrame && isSkippedLabel(*rule, m, s, f)) {
        m -= 1;
        s = 59;
        f = static_cast<unsigned>(f + fps - rule->dropped);
    }
    return true;
}

wchar_t* CTimeCodeEx::toString(wchar_t* buf, unsigned long size, bool dropAware) const
{
    if (!buf)
        return nullptr;
    unsigned h, m, s, f;
    if (toHHMMSSFF(h, m, s, f, dropAware)) {
        int delim = getDelim(data_->dropFrame);
        StringCchPrintfW(buf, size, L"%.2d%c%.2d%c%.2d%c%.2d", static_cast<int>(h), delim,
            static_cast<int>(m), delim, static_cast<int>(s), delim, static_cast<int>(f));
    } else {
        StringCchPrintfW(buf, size, L"%ls", getErrorTimecode(isDropFrame()).c_str());
    }
    return buf;
}

std::wstring CTimeCodeEx::toStdString(bool dropAware) const
{
    wchar_t buf[32] = {};
    toString(buf, 32, dropAware);
    return buf;
}

bool CTimeCodeEx::fromString(const wchar_t* text, bool takeDropFromDelimiter, int dropAware)
{
    if (!text || !data_)
        return false;
    const std::size_t len = wcsnlen(text, 12);
    if (len != 11) {
        std::fputs("CTimeCodeEx::fromString Failed string wrong length\n", stderr);
        return false;
    }

    auto isDigit = [](wchar_t c) { return c >= L'0' && c <= L'9'; };
    unsigned values[4] = {};
    int pos = 0;
    std::size_t i = 0;
    while (pos < 4 && i + 1 < len) {
        if (!isDigit(text[i]) || !isDigit(text[i + 1]))
            return false;
        values[pos++] = static_cast<unsigned>((text[i] - L'0') * 10 + (text[i + 1] - L'0'));
        i += 2;
        if (pos == 4 || i >= len)
            break;
        wchar_t sep = text[i++];
        // Only the separator before the frames says anything (the drop mode);
        // the others are taken as they come.
        if (pos == 3) {
            if (sep != L';' && sep != L':' && sep != L'.')
                return false;
            if (takeDropFromDelimiter)
                data_->dropFrame = sep != L':';
        }
    }
    if (pos != 4) {
        std::fputs("CTimeCodeEx::fromString pos was not 4, string wrong length?\n", stderr);
        return false;
    }
    data_->frames = toFrameCount(values[0], values[1], values[2], values[3], dropAware);
    return isValid();
}

bool CTimeCodeEx::formatSony(unsigned char* out, bool markDrop) const
{
    if (!out)
        return false;
    unsigned h, m, s, f;
    if (!toHHMMSSFF(h, m, s, f, true))
        return false;
    out[0] = toBcd(f);
    if (markDrop && data_->dropFrame)
        out[0] |= 0x40;
    out[1] = toBcd(s);
    out[2] = toBcd(m);
    out[3] = toBcd(h);
    return true;
}

bool CTimeCodeEx::setFromSony(const unsigned char* in)
{
    if (!in || !data_)
        return false;
    if ((in[0] & 0x0F) > 9)
        return false;
    unsigned f = ((in[0] >> 4) & 0x03) * 10 + (in[0] & 0x0F);
    data_->dropFrame = (in[0] & 0x40) != 0;
    // A frame number equal to the rounded rate passes.
    if (f > std::floor(static_cast<double>(data_->rate) + 0.5))
        return false;
    unsigned s, m, h;
    if (!fromBcd(in[1], 0x07, 59, s) || !fromBcd(in[2], 0x07, 59, m) || !fromBcd(in[3], 0x03, 23, h))
        return false;
    data_->frames = toFrameCount(h, m, s, f, 1);
    return isValid();
}

bool CTimeCodeEx::setFromSystemTime()
{
    if (!data_)
        return false;
    std::timespec now;
    std::timespec_get(&now, TIME_UTC);
    std::tm local;
    if (!localtime_r(&now.tv_sec, &local))
        return false;
    double ms = static_cast<double>(now.tv_nsec / 1000000);
    // An absurd rate leaves no period to divide by; its frame is 0.
    double period = 1000.0 / data_->rate;
    double frame = period > 0.0 ? ms / period : 0.0;
    unsigned f = frame >= 0.0 && frame < 4294967295.0 ? static_cast<unsigned>(frame) : 0;
    return setDuration(toFrameCount(static_cast<unsigned>(local.tm_hour), static_cast<unsigned>(local.tm_min),
                           static_cast<unsigned>(local.tm_sec), f, 1),
        false);
}

double CTimeCodeEx::toSeconds() const
{
    if (!data_ || !(data_->rate > 0.0f))
        return 0.0;
    return static_cast<double>(data_->frames) / data_->rate;
}

std::uint64_t CTimeCodeEx::toMilliseconds() const
{
    return toCount(toSeconds() * 1000.0);
}

std::uint64_t CTimeCodeEx::toRefTime() const
{
    return toCount(toSeconds() * 10000000.0);
}

bool CTimeCodeEx::fromMilliseconds(std::uint64_t ms)
{
    return fromSeconds(static_cast<double>(ms) / 1000.0);
}

bool CTimeCodeEx::fromSeconds(double seconds)
{
    if (!data_ || !(seconds >= 0.0))
        return false;
    double n = seconds * data_->rate;
    if (!(n < kTwoPow64))
        return false;
    return setDuration(static_cast<std::uint64_t>(n), true);
}

wchar_t CTimeCodeEx::getDelim(bool drop)
{
    return drop ? L';' : L':';
}

std::wstring CTimeCodeEx::getZeroTimecode(bool drop)
{
    wchar_t buf[16] = {};
    int d = getDelim(drop);
    StringCchPrintfW(buf, 16, L"%s%c%s%c%s%c%s", "00", d, "00", d, "00", d, "00");
    return buf;
}

std::wstring CTimeCodeEx::getErrorTimecode(bool drop)
{
    wchar_t buf[16] = {};
    int d = getDelim(drop);
    StringCchPrintfW(buf, 16, L"%s%c%s%c%s%c%s", "--", d, "--", d, "--", d, "--");
    return buf;
}

void CTimeCodeEx::checkOperands(const CTimeCodeEx& timecode) const
{
    MORVANE_ASSERT(isValid() && timecode.isValid());
}

bool CTimeCodeEx::operator==(const CTimeCodeEx& timecode) const
{
    checkOperands(timecode);
    return getFrameDuration() == timecode.getFrameDuration();
}

bool CTimeCodeEx::operator!=(const CTimeCodeEx& timecode) const
{
    checkOperands(timecode);
    return getFrameDuration() != timecode.getFrameDuration();
}

bool CTimeCodeEx::operator<(const CTimeCodeEx& timecode) const
{
    checkOperands(timecode);
    return getFrameDuration() < timecode.getFrameDuration();
}

bool CTimeCodeEx::operator>(const CTimeCodeEx& timecode) const
{
    checkOperands(timecode);
    return getFrameDuration() > timecode.getFrameDuration();
}

bool CTimeCodeEx::operator<=(const CTimeCodeEx& timecode) const
{
    checkOperands(timecode);
    return getFrameDuration() <= timecode.getFrameDuration();
}

bool CTimeCodeEx::operator>=(const CTimeCodeEx& timecode) const
{
    checkOperands(timecode);
    return getFrameDuration() >= timecode.getFrameDuration();
}

void CTimeCodeEx::addFrames(std::uint64_t n)
{
    setDuration(data_->frames + n, true);
}

void CTimeCodeEx::subtractFrames(std::uint64_t n)
{
    std::uint64_t max = getMaxFrames();
    if (n <= data_->frames) {
        setDuration(data_->frames - n, true);
    } else if (data_->wrap && max > 0) {
        // Going back past midnight lands in the previous day.
        std::uint64_t back = (n - data_->frames) % max;
        setDuration(back ? max - back : 0, true);
    } else {
        // No day to go back into: let setDuration refuse the count.
        setDuration(kUnset, false);
    }
}

CTimeCodeEx CTimeCodeEx::operator+(const CTimeCodeEx& timecode) const
{
    CTimeCodeEx result(*this);
    result += timecode;
    return result;
}

CTimeCodeEx CTimeCodeEx::operator-(const CTimeCodeEx& timecode) const
{
    CTimeCodeEx result(*this);
    result -= timecode;
    return result;
}

// An invalid operand leaves the target as it was.
CTimeCodeEx& CTimeCodeEx::operator+=(const CTimeCodeEx& timecode)
{
    checkOperands(timecode);
    if (isValid() && timecode.isValid())
        addFrames(timecode.data_->frames);
    return *this;
}

CTimeCodeEx& CTimeCodeEx::operator-=(const CTimeCodeEx& timecode)
{
    checkOperands(timecode);
    if (isValid() && timecode.isValid())
        subtractFrames(timecode.data_->frames);
    return *this;
}

CTimeCodeEx& CTimeCodeEx::operator++()
{
    MORVANE_ASSERT(isValid());
    if (isValid())
        addFrames(1);
    return *this;
}

CTimeCodeEx CTimeCodeEx::operator++(int)
{
    CTimeCodeEx before(*this);
    ++*this;
    return before;
}

CTimeCodeEx& CTimeCodeEx::operator--()
{
    MORVANE_ASSERT(isValid());
    if (isValid())
        subtractFrames(1);
    return *this;
}

CTimeCodeEx CTimeCodeEx::operator--(int)
{
    CTimeCodeEx before(*this);
    --*this;
    return before;
}

} // namespace Morvane
