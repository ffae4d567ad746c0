#pragma once
// The essence read-ahead of one open file. Frames of DV-sized or long-GOP
// material are a few hundred KB; one unbuffered read each leaves the disk
// idle between requests. When reads go forward in small steps (playback, a
// GOP read frame by frame), one large sector-aligned read brings the next
// stretch of the file into a window that the following reads are copied
// from. Two windows follow each other, so that requests that the host's
// threads deliver slightly out of order still find their bytes; a GOP that
// comes too late for them is read into a third, aside. Once a run is under
// way, the window after the newest is read in the background while
// the newest is copied out, so that the disk does not wait for the copies.
// Random access (scrubbing) keeps one read per frame and no window.
//
// The windows' memory comes from the editor's read-ahead budget, shared by
// every open file: each window is at most a quarter of this file's share,
// and the budget takes the windows back (giveBack, from its own thread)
// once the file has gone idle, so that an idle file holds none.
#include <cstdint>
#include <mutex>
#include <string>

#include "FileFormats/AVI/avilib/avilib.BackgroundRead.h"
#include "FileFormats/AVI/avilib/avilib.WindowBuffer.h"
#include "host/ReadAheadBudget.h"
#include "host/iFile.h"

namespace Morvane::Avi {

class ReadAhead : private Vl::ReadAheadClient
{
public:
    ReadAhead();
    ~ReadAhead();
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // Reads at most this long are candidates; larger frames are read alone.
    static constexpr std::uint64_t kSmallRead = 1u << 20;
    // How far from the previous read a read still counts as going forward.
    static constexpr std::uint64_t kNear = 8u << 20;
    // The first window of a forward run, doubled by each refill up to
    // kMaxWindow, or to a quarter of the file's share of the budget when
    // that is less; below kLeastWindow there are no windows.
    static constexpr std::uint64_t kMinWindow = 1u << 20;
    static constexpr std::uint64_t kMaxWindow = 8u << 20;
    static constexpr std::uint64_t kLeastWindow = 256u << 10;
    // A known run (a GOP) is read whole up to this size.
    static constexpr std::uint64_t kMaxRun = 16u << 20;

    // Copies the bytes [pos, pos + n) of the file to out from the windows,
    // refilled first when the reads have been going forward; false: read
    // them alone. pos and n are sector-aligned, as unbuffered reads are.
    bool read(iFile& file, std::uint64_t pos, std::uint64_t n, unsigned char* out);

    // A run of reads about to come, [pos, pos + n) (the frames of a GOP):
    // brings all of it into the windows with one read, more when it follows
    // the previous run. False when it is too large or the read failed; the
    // reads then go to the disk one by one. alone: a run that the windows
    // do not hold and that does not follow the previous one is not read
    // (false), for the caller to read straight to its place.
    bool readRun(iFile& file, std::uint64_t pos, std::uint64_t n, bool alone = false);

    // Forgets the windows and the run (another file, or one that may have changed).
    void clear();

    // Lets runs read their next window in the background, through a handle
    // of their own on path (a file's handle keeps one position).
    void readNextInBackground(const std::wstring& path, iFile::eFlags flags);

    // Bytes of the budget that the windows hold.
    std::uint64_t held() const;

private:
    bool giveBack() override;
    void clearLocked();
    // The sizes that this file's share allows now; false: no windows.
    bool sizeWindows();
    bool reserve(WindowBuffer& bytes, std::uint64_t n);

    struct Window
    {
        WindowBuffer bytes;
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
    void readNext(iFile& file, std::uint64_t pos, std::uint64_t n);
    bool pendingHolds(std::uint64_t pos, std::uint64_t n) const;
    void settle();

    // Two windows that follow each other (the newest and the older), one
    // aside for a group delivered late, and the next one, being read in the
    // background. When the next becomes the newest, the older is kept as
    // the oldest: the newest then runs a whole window ahead of the groups
    // still in flight behind it.
    static constexpr int kAside = 2;
    Window windows_[5];
    int newest_ = 0;
    int older_ = 1;
    int oldest_ = 4;
    int next_ = 3;
    std::uint64_t lastEnd_ = 0; // end of the previous read
    unsigned streak_ = 0;       // reads in a row near the previous one
    std::uint64_t runLow_ = 0;  // the stretch those reads cover
    std::uint64_t runHigh_ = 0;
    std::uint64_t runBytes_ = 0; // and the bytes they asked for
    std::uint64_t nextWindow_ = kMinWindow;
    std::uint64_t runEnd_ = 0;               // end of the previous run
    std::uint64_t runWindow_ = kMinWindow;   // the next run's window, grown like nextWindow_
    std::uint64_t minWindow_ = kMinWindow;   // kMinWindow and kMaxWindow as the share allows
    std::uint64_t maxWindow_ = kMaxWindow;

    // Taken by every operation, and tried by giveBack: the budget's thread
    // takes the windows only from a reader that is not in the middle of one.
    mutable std::mutex mutex_;

    // The background read of the next window and what it asks for. The
    // second handle outlives it: the reader goes before the handle.
    std::wstring path_;
    iFile::eFlags flags_ = iFile::eNone;
    Vl::Ptr<iFile> second_;
    std::uint64_t pendingStart_ = 0;
    std::uint64_t pendingSize_ = 0;
    BackgroundRead background_;
};

} // namespace Morvane::Avi
