#pragma once
// The essence read-ahead of one open file. Frames of DV-sized or long-GOP
// material are a few hundred KB; one unbuffered read each leaves the disk
// idle between requests. When reads go forward in small steps (playback, a
// GOP read frame by frame), one large sector-aligned read brings the next
// stretch of the file into a window that the following reads are copied
// from. Two windows follow each other, so that requests that the host's
// threads deliver slightly out of order still find their bytes; a GOP that
// comes too late for them is read into a third, aside. Random access
// (scrubbing) keeps one read per frame and no window.
#include <cstdint>

#include "host/iFile.h"
#include "util/bytebuffer.h"

namespace Morvane::Avi {

class ReadAhead
{
public:
    // Reads at most this long are candidates; larger frames are read alone.
    static constexpr std::uint64_t kSmallRead = 1u << 20;
    // How far from the previous read a read still counts as going forward.
    static constexpr std::uint64_t kNear = 8u << 20;
    // The first window of a forward run, doubled by each refill up to kMaxWindow.
    static constexpr std::uint64_t kMinWindow = 1u << 20;
    static constexpr std::uint64_t kMaxWindow = 8u << 20;
    // A known run (a GOP) is read whole up to this size.
    static constexpr std::uint64_t kMaxRun = 16u << 20;

    // Copies the bytes [pos, pos + n) of the file to out from the windows,
    // refilled first when the reads have been going forward; false: read
    // them alone. pos and n are sector-aligned, as unbuffered reads are.
    bool read(iFile& file, std::uint64_t pos, std::uint64_t n, unsigned char* out);

    // A run of reads about to come, [pos, pos + n) (the frames of a GOP):
    // brings all of it into the windows with one read, more when it follows
    // the previous run. False when it is too large or the read failed; the
    // reads then go to the disk one by one.
    bool readRun(iFile& file, std::uint64_t pos, std::uint64_t n);

    // Forgets the windows and the run (another file, or one that may have changed).
    void clear();

private:
    struct Window
    {
        CByteBuffer bytes;
        std::uint64_t start = 0;  // file position of bytes[0]
        std::uint64_t length = 0; // bytes held
        bool whole = false;       // the disk gave all that was asked
        bool holds(std::uint64_t pos, std::uint64_t n) const
        {
            return length && pos >= start && n <= length && pos - start <= length - n;
        }
        std::uint64_t end() const { return start + length; }
    };

    bool near(std::uint64_t pos) const;
    bool note(std::uint64_t pos, std::uint64_t n);
    bool copy(std::uint64_t pos, std::uint64_t n, unsigned char* out) const;
    bool spanned(std::uint64_t pos, std::uint64_t n, const Window** first = nullptr,
                 const Window** second = nullptr) const;
    bool sparse() const;
    bool fill(iFile& file, std::uint64_t pos, std::uint64_t size, bool newest = true);
    std::uint64_t grow();

    // Two windows that follow each other (the newest and the older), and
    // one aside for a group delivered late.
    static constexpr int kAside = 2;
    Window windows_[3];
    int newest_ = 0;
    std::uint64_t lastEnd_ = 0; // end of the previous read
    unsigned streak_ = 0;       // reads in a row near the previous one
    std::uint64_t runLow_ = 0;  // the stretch those reads cover
    std::uint64_t runHigh_ = 0;
    std::uint64_t runBytes_ = 0; // and the bytes they asked for
    std::uint64_t nextWindow_ = kMinWindow;
    std::uint64_t runEnd_ = 0;               // end of the previous run
    std::uint64_t runWindow_ = kMinWindow;   // the next run's window, grown like nextWindow_
};

} // namespace Morvane::Avi
