#pragma once
#include <cstdint>
#include <string>

namespace Morvane {

// Row numbers of the video standards table. Numbers outside 1..30 are
// accepted everywhere and select the "Invalid Std" row.
enum VideoStandard : int
{
    VS_Invalid = 0,
    VS_Pal = 1,
    VS_Ntsc = 2,
    VS_720p24 = 3,
    VS_720p2398 = 4,
    VS_720p25 = 5,
    VS_720p2997 = 6,
    VS_720p50 = 7,
    VS_720p60 = 8,
    VS_720p5994 = 9,
    VS_1080psf24 = 10,
    VS_1080psf2398 = 11,
    VS_1080i25 = 12,
    VS_1080i30 = 13,
    VS_1080i2997 = 14,
    VS_1080psf25 = 15,
    VS_1080psf30 = 16,
    VS_1080psf2997 = 17,
    VS_1080p50 = 18,
    VS_1080p60 = 19,
    VS_1080p5994 = 20,
    VS_QFHD2398 = 21,
    VS_QFHD25 = 22,
    VS_QFHD2997 = 23,
    VS_QFHD50 = 24,
    VS_QFHD5994 = 25,
    VS_4k2398 = 26,
    VS_4k25 = 27,
    VS_4k2997 = 28,
    VS_4k50 = 29,
    VS_4k5994 = 30,
    VS_Count = 31
};

// One row of the standards table. The kind, format and rate codes belong to
// the editor and are carried as plain data.
struct VideoStandardEx
{
    int number;
    const wchar_t* name;
    unsigned width;
    unsigned height;
    unsigned fps;            // nominal frames per second
    unsigned rateNum;
    unsigned rateDen;
    unsigned periodNum;      // frame period in 100 ns units is periodNum / periodDen
    unsigned periodDen;
    unsigned kind;
    unsigned long aspect;
    bool dropFrame;
    unsigned format;
    unsigned rateCode;
};

// The row of a standard; row 0 for any number outside 1..30.
const VideoStandardEx& getVideoStandard(VideoStandard vs);

// SMPTE-style timecode: a frame count at a frame rate, with drop-frame labels
// at 29.97 and 59.94.
class CTimeCodeEx
{
public:
    static constexpr std::uint64_t kUnset = 0xFFFFFFFFull;

    CTimeCodeEx();
    // Without a count the timecode starts at frame 0; a given count must fit
    // in the day (it is not wrapped).
    explicit CTimeCodeEx(double rate);
    CTimeCodeEx(double rate, std::uint64_t frames);
    explicit CTimeCodeEx(VideoStandard vs);
    CTimeCodeEx(VideoStandard vs, std::uint64_t frames);
    CTimeCodeEx(unsigned h, unsigned m, unsigned s, unsigned f, VideoStandard vs);
    CTimeCodeEx(const wchar_t* text, VideoStandard vs);
    CTimeCodeEx(const wchar_t* text, double rate);
    CTimeCodeEx(const CTimeCodeEx& other);
    CTimeCodeEx& operator=(const CTimeCodeEx& other);
    ~CTimeCodeEx();

    bool assign(const CTimeCodeEx* other);
    bool assign(const CTimeCodeEx& other) { return assign(&other); }

    std::uint64_t getFrameDuration() const;
    float getTimecodeRate() const;
    bool isValid() const;
    bool isDropFrame() const;
    void setDropFrame(bool drop);
    bool getWrap() const;
    void setWrap(bool wrap);
    void clear();

    std::uint64_t getMaxFrames() const;
    bool setDuration(std::uint64_t n, bool allowWrap);

    // dropAware > 0: drop-frame labels only with the drop flag, skipped labels
    // read as the frame before them; 0: drop arithmetic at 29.97 and 59.94
    // whatever the flag; < 0: drop arithmetic with the flag, labels taken as they are.
    std::uint64_t toFrameCount(unsigned h, unsigned m, unsigned s, unsigned f, int dropAware) const;
    bool toHHMMSSFF(unsigned& h, unsigned& m, unsigned& s, unsigned& f, bool dropAware) const;

    wchar_t* toString(wchar_t* buf, unsigned long size, bool dropAware) const;
    std::wstring toStdString(bool dropAware) const;
    bool fromString(const wchar_t* text, bool takeDropFromDelimiter, int dropAware);

    bool formatSony(unsigned char* out, bool markDrop) const;
    bool setFromSony(const unsigned char* in);
    bool setFromSystemTime();

    double toSeconds() const;
    std::uint64_t toMilliseconds() const;
    std::uint64_t toRefTime() const;
    bool fromMilliseconds(std::uint64_t ms);
    bool fromSeconds(double seconds);

    static wchar_t getDelim(bool drop);
    static std::wstring getZeroTimecode(bool drop);
    static std::wstring getErrorTimecode(bool drop);

    bool operator==(const CTimeCodeEx& timecode) const;
    bool operator!=(const CTimeCodeEx& timecode) const;
    bool operator<(const CTimeCodeEx& timecode) const;
    bool operator>(const CTimeCodeEx& timecode) const;
    bool operator<=(const CTimeCodeEx& timecode) const;
    bool operator>=(const CTimeCodeEx& timecode) const;
    CTimeCodeEx operator+(const CTimeCodeEx& timecode) const;
    CTimeCodeEx operator-(const CTimeCodeEx& timecode) const;
    CTimeCodeEx& operator+=(const CTimeCodeEx& timecode);
    CTimeCodeEx& operator-=(const CTimeCodeEx& timecode);
    CTimeCodeEx& operator++();
    CTimeCodeEx operator++(int);
    CTimeCodeEx& operator--();
    CTimeCodeEx operator--(int);

private:
    struct Record
    {
        float rate = 25.0f;
        std::uint64_t frames = kUnset;
        bool wrap = true;
        bool dropFrame = false;
    };

    void setRate(double rate);
    void setStandard(VideoStandard vs);
    void checkOperands(const CTimeCodeEx& timecode) const;
    void addFrames(std::uint64_t n);
    void subtractFrames(std::uint64_t n);
    std::uint64_t framesPerSecond() const;

    // Null only when the record could not be allocated; the timecode is then
    // permanently invalid.
    Record* data_;
};

} // namespace Morvane
