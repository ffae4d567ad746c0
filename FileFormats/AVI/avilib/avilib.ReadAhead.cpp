#include "FileFormats/AVI/avilib/avilib.ReadAhead.h"

#include <algorithm>
#include <cstring>
#include <system_error>

#include "host/iFileSystem.h"

namespace Morvane::Avi {

ReadAhead::ReadAhead()
{
    Vl::ReadAheadBudget::join(*this);
}

ReadAhead::~ReadAhead()
{
    {
        std::lock_guard lock(mutex_);
        clearLocked();
    }
    Vl::ReadAheadBudget::leave(*this);
}

std::uint64_t ReadAhead::held() const
{
    std::lock_guard lock(mutex_);
    std::uint64_t n = 0;
    for (const Window& w : windows_)
        n += w.bytes.capacity();
    return n;
}

// From the budget's thread, once this file has gone idle or another needs
// the room: the windows go, and the next forward run starts afresh.
bool ReadAhead::giveBack()
{
    std::unique_lock lock(mutex_, std::try_to_lock);
    if (!lock.owns_lock())
        return false;
    clearLocked();
    return true;
}

bool ReadAhead::sizeWindows()
{
    const std::uint64_t share = Vl::ReadAheadBudget::share(*this);
    maxWindow_ = std::min(kMaxWindow, share / 4 & ~std::uint64_t(0xFFFF));
    minWindow_ = std::min(kMinWindow, maxWindow_);
    nextWindow_ = std::clamp(nextWindow_, minWindow_, std::max(minWindow_, maxWindow_));
    runWindow_ = std::clamp(runWindow_, minWindow_, std::max(minWindow_, maxWindow_));
    return maxWindow_ >= kLeastWindow;
}

// A window's memory, within this file's share: when the share has shrunk
// since the other windows were taken (more files are being played), they
// go first, so that the file goes on with smaller windows.
bool ReadAhead::reserve(WindowBuffer& bytes, std::uint64_t n)
{
    if (bytes.reserve(*this, n))
        return true;
    for (Window& w : windows_) {
        if (&w.bytes != &bytes && &w != &windows_[newest_] && &w != &windows_[next_]) {
            w.bytes.reset();
            w.length = 0;
        }
    }
    return bytes.reserve(*this, n);
}

bool ReadAhead::near(std::uint64_t pos) const
{
    for (int k : {newest_, older_, oldest_, kAside})
        if (windows_[k].length && pos >= windows_[k].start && pos < windows_[k].end())
            return true;
    // Behind counts too: the audio of a frame is often stored just before
    // it, and the host's threads may deliver requests out of order.
    return lastEnd_ && pos + kNear >= lastEnd_ && pos <= lastEnd_ + kNear;
}

bool ReadAhead::copy(std::uint64_t pos, std::uint64_t n, unsigned char* out) const
{
    const Window* first = nullptr;
    const Window* second = nullptr;
    if (!spanned(pos, n, &first, &second))
        return false;
    const std::uint64_t head = std::min(n, first->end() - pos);
    std::memcpy(out, first->bytes.data() + (pos - first->start), head);
    if (head < n)
        std::memcpy(out + head, second->bytes.data(), n - head);
    return true;
}

// Reads into the older window, which becomes the newest; or, for a group
// delivered late, into the window aside.
bool ReadAhead::fill(iFile& file, std::uint64_t pos, std::uint64_t size, bool newest)
{
    Window& w = windows_[newest ? older_ : kAside];
    w.length = 0;
    // No larger than what is left of the file, in whole 64 KiB (a multiple
    // of every sector size), so that a small file never gets a large window.
    std::uint64_t left = file.getSize();
    if (pos >= left)
        return false;
    size = std::min(size, ((left - pos) + 0xFFFF) & ~std::uint64_t(0xFFFF));
    if (!reserve(w.bytes, size))
        return false;
    if (!file.setPosition(pos))
        return false;
    w.start = pos;
    w.length = file.read(w.bytes.data(), size);
    w.whole = w.length == size;
    if (newest)
        std::swap(newest_, older_);
    return w.length != 0;
}

std::uint64_t ReadAhead::grow()
{
    std::uint64_t size = nextWindow_;
    nextWindow_ = std::min(nextWindow_ * 2, maxWindow_);
    return size;
}

// Counts a read into the forward run, or starts a new run with it; the
// first tells whether it went forward.
bool ReadAhead::note(std::uint64_t pos, std::uint64_t n)
{
    bool forward = near(pos);
    if (forward) {
        ++streak_;
        runLow_ = std::min(runLow_, pos);
        runHigh_ = std::max(runHigh_, pos + n);
        runBytes_ += n;
    } else {
        streak_ = 0;
        nextWindow_ = minWindow_;
        runLow_ = pos;
        runHigh_ = pos + n;
        runBytes_ = n;
    }
    lastEnd_ = pos + n;
    return forward;
}

bool ReadAhead::read(iFile& file, std::uint64_t pos, std::uint64_t n, unsigned char* out)
{
    std::lock_guard lock(mutex_);
    if (windows_[newest_].length)
        Vl::ReadAheadBudget::touch(*this);
    // Large frames are read alone (or copied from a group's window) and
    // take no part in the run: counted in, they would make the audio chunks
    // between them look like a dense run, worth windows that read the
    // frames a second time.
    if (n > kSmallRead) {
        if (pendingHolds(pos, n))
            settle();
        return copy(pos, n, out);
    }
    const bool forward = note(pos, n) && streak_ >= 2 && !sparse();
    if (!copy(pos, n, out) && pendingHolds(pos, n))
        settle();
    if (copy(pos, n, out)) {
        // Only a run that has needed a window of its own reads ahead: the
        // frames of one group, copied from the group's window, are no run.
        if (forward && nextWindow_ > minWindow_)
            readNext(file, pos, n);
        return true;
    }
    if (streak_ < 2 || sparse() || !sizeWindows())
        return false;
    const Window& newest = windows_[newest_];
    // A request delivered late, just before the newest window, is read
    // alone: a window for it would drop the one its neighbours are in.
    if (newest.length && pos < newest.start && pos + kNear >= newest.start)
        return false;
    // Going on from the newest window leaves no gap for the requests still
    // to come between it and this one; a frame across the two is copied
    // from both. A new window takes in the run's first requests when they
    // are close, for those of them still to be delivered.
    std::uint64_t start = pos;
    if (newest.whole && pos >= newest.start && pos + n > newest.end() && pos + n - newest.end() <= maxWindow_)
        start = newest.end();
    else if (pos - runLow_ <= minWindow_ / 2)
        start = runLow_;
    // A window never outgrows the file's share, whatever the request.
    if (pos + n - start > maxWindow_)
        start = pos;
    if (n > maxWindow_)
        return false;
    if (!fill(file, start, std::max(grow(), pos + n - start)) || !copy(pos, n, out))
        return false;
    readNext(file, pos, n);
    return true;
}

// Reads that skip most of what lies between them (one stream of an
// interleaved file read on its own) are cheaper alone than through windows.
bool ReadAhead::sparse() const
{
    return runBytes_ < (runHigh_ - runLow_) / 4;
}

// Whether [pos, pos + n) is in one window (first), or runs from the end of
// one (first) into the next, which begins there (second).
bool ReadAhead::spanned(std::uint64_t pos, std::uint64_t n, const Window** first, const Window** second) const
{
    for (int k : {newest_, older_, oldest_, kAside}) {
        if (windows_[k].holds(pos, n)) {
            if (first)
                *first = &windows_[k];
            return true;
        }
    }
    const int ring[] = {oldest_, older_, newest_};
    for (int k = 0; k < 6; ++k) {
        const Window& a = windows_[ring[k / 2]];
        const Window& b = windows_[ring[(k / 2 + 1 + k % 2) % 3]];
        if (a.length && a.whole && b.length && b.start == a.end() && pos >= a.start && pos < a.end() &&
            b.holds(b.start, pos + n - b.start)) {
            if (first && second) {
                *first = &a;
                *second = &b;
            }
            return true;
        }
    }
    return false;
}

bool ReadAhead::readRun(iFile& file, std::uint64_t pos, std::uint64_t n, bool alone)
{
    std::lock_guard lock(mutex_);
    if (windows_[newest_].length)
        Vl::ReadAheadBudget::touch(*this);
    if (n == 0 || n > kMaxRun)
        return false;
    // Groups follow each other even when other reads come between them: a
    // player's audio, asked for at the picture shown, lies well behind the
    // groups its decoder has in flight.
    const bool followsRun = runEnd_ && pos + kMaxRun >= runEnd_ && pos <= runEnd_ + kMaxRun;
    runEnd_ = pos + n;
    if (!spanned(pos, n) && pendingHolds(pos, n))
        settle();
    // Groups read ahead once their run has grown to whole windows: a scrub
    // over a few seconds of material keeps landing near the last group.
    if (spanned(pos, n)) {
        if (followsRun && windows_[newest_].length >= maxWindow_)
            readNext(file, pos, n);
        return true;
    }
    // A group larger than half the file's share is read frame by frame.
    if (!sizeWindows() || n > 2 * maxWindow_)
        return false;
    const bool onward = (note(pos, n) && !sparse()) || followsRun;
    const Window& newest = windows_[newest_];
    // A group delivered late, before the newest window, is read alone and
    // aside: the two windows keep the groups still to come.
    if (onward && newest.length && pos < newest.start)
        return fill(file, pos, n, false) && spanned(pos, n);
    // Onward, a window grows as the run goes on; once the run is under way
    // (not for a scrub that lands near the last group) it goes on from the
    // end of the newest, so that the groups between it and this one, which
    // the host's threads have yet to deliver, are in it too.
    std::uint64_t start = pos;
    std::uint64_t size = n;
    if (onward) {
        if (runWindow_ > minWindow_ && newest.whole && newest.length && pos + n > newest.end() &&
            pos + n - newest.end() <= 2 * maxWindow_)
            start = newest.end();
        size = std::max(pos + n - start, runWindow_);
        runWindow_ = std::min(runWindow_ * 2, maxWindow_);
    } else {
        runWindow_ = minWindow_;
        if (alone)
            return false;
    }
    return fill(file, start, size) && spanned(pos, n);
}

void ReadAhead::clear()
{
    std::lock_guard lock(mutex_);
    clearLocked();
}

void ReadAhead::clearLocked()
{
    background_.collect();
    second_ = nullptr;
    pendingStart_ = pendingSize_ = 0;
    for (Window& w : windows_) {
        w.bytes.reset();
        w.start = w.length = 0;
        w.whole = false;
    }
    newest_ = 0;
    older_ = 1;
    oldest_ = 4;
    next_ = 3;
    lastEnd_ = runLow_ = runHigh_ = runBytes_ = runEnd_ = 0;
    streak_ = 0;
    nextWindow_ = runWindow_ = minWindow_ = kMinWindow;
    maxWindow_ = kMaxWindow;
}

void ReadAhead::readNextInBackground(const std::wstring& path, iFile::eFlags flags)
{
    std::lock_guard lock(mutex_);
    clearLocked();
    path_ = path;
    flags_ = flags;
}

// Whether [pos, pos + n) reaches into the window being read in the background.
bool ReadAhead::pendingHolds(std::uint64_t pos, std::uint64_t n) const
{
    return background_.pending() && pos + n > pendingStart_ && pos < pendingStart_ + pendingSize_;
}

// Reads the window after a whole newest one in the background, unless one
// is being read already: the disk is kept one window ahead of the copies.
// Each is twice the newest, up to kMaxWindow, as the foreground windows grow.
void ReadAhead::readNext(iFile& file, std::uint64_t pos, std::uint64_t n)
{
    const Window& newest = windows_[newest_];
    if (path_.empty() || !newest.whole || !newest.holds(pos, n))
        return;
    const std::uint64_t start = newest.end();
    if (background_.pending()) {
        if (pendingStart_ == start)
            return;
        settle(); // left behind by a jump: long done, and dropped
    }
    const std::uint64_t left = file.getSize();
    if (start >= left)
        return;
    if (!sizeWindows())
        return;
    const std::uint64_t size = std::min({std::max(2 * newest.length, minWindow_), maxWindow_,
                                         ((left - start) + 0xFFFF) & ~std::uint64_t(0xFFFF)});
    Window& w = windows_[next_];
    w.length = 0;
    if (!reserve(w.bytes, size))
        return;
    if (!second_) {
        second_ = OS().fileSystem().open(path_, iFile::eRead, iFile::eOpenExisting, iFile::eShareReadWrite, flags_);
        if (!second_) {
            path_.clear(); // no second handle: every window is read in the foreground
            return;
        }
    }
    pendingStart_ = start;
    pendingSize_ = size;
    if (!background_.start(*second_, w.bytes.data(), start, size))
        pendingSize_ = 0; // no thread to spare: read in the foreground
}

// Waits for the background read and makes its window the newest, when it
// still goes on from the newest; otherwise its bytes are dropped.
void ReadAhead::settle()
{
    if (!background_.pending())
        return;
    const std::uint64_t got = background_.collect();
    const Window& newest = windows_[newest_];
    Window& w = windows_[next_];
    w.start = pendingStart_;
    w.length = got;
    w.whole = got == pendingSize_;
    pendingSize_ = 0;
    if (!w.length || !newest.whole || newest.end() != w.start) {
        w.length = 0;
        return;
    }
    const int freed = oldest_;
    oldest_ = older_;
    older_ = newest_;
    newest_ = next_;
    next_ = freed;
    windows_[next_].length = 0;
}

} // namespace Morvane::Avi
