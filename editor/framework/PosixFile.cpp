#include "PosixFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>

#include "DriveInfo.h"
#include "vlhost/HostStats.h"

namespace vlhost {

namespace {

std::atomic<std::uint64_t> g_readCalls{0};
std::atomic<std::uint64_t> g_writeCalls{0};
std::atomic<std::uint64_t> g_syncCalls{0};

int openRetrying(const char* path, int flags, mode_t mode)
{
    int fd;
    do {
        fd = ::open(path, flags, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

} // namespace

std::uint64_t fileReadCalls()
{
    return g_readCalls.load(std::memory_order_relaxed);
}

std::uint64_t fileWriteCalls()
{
    return g_writeCalls.load(std::memory_order_relaxed);
}

std::uint64_t fileSyncCalls()
{
    return g_syncCalls.load(std::memory_order_relaxed);
}

Vl::Ptr<iFile> PosixFile::open(const std::string& path, eAccess access, eOpenBehaviour behaviour, eFlags flags,
                               const FileFaults& faults)
{
    int openFlags = O_CLOEXEC | (access == eRead ? O_RDONLY : O_RDWR);
    int createFlags = behaviour == eCreateAlways ? (O_CREAT | O_TRUNC) : 0;
    bool direct = (flags & eUnbuffered) != 0;
    int fd = -1;
    if (direct) {
        fd = openRetrying(path.c_str(), openFlags | createFlags | O_DIRECT, 0644);
        if (fd < 0 && errno == EINVAL)
            direct = false; // the file system refuses direct I/O
        else if (fd < 0)
            return nullptr;
    }
    if (fd < 0) {
        fd = openRetrying(path.c_str(), openFlags | createFlags, 0644);
        if (fd < 0)
            return nullptr;
    }
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        errno = EISDIR;
        return nullptr;
    }
    return Vl::Ptr<iFile>(new PosixFile(path, fd, openFlags, direct, faults));
}

PosixFile::PosixFile(std::string path, int fd, int openFlags, bool direct, const FileFaults& faults)
    : path_(std::move(path)), fd_(fd), openFlags_(openFlags), direct_(direct), faults_(faults)
{
    if (!direct_)
        return;
    struct statx sx;
    if (::statx(fd_, "", AT_EMPTY_PATH, STATX_DIOALIGN, &sx) == 0 && (sx.stx_mask & STATX_DIOALIGN) &&
        sx.stx_dio_offset_align != 0) {
        memAlign_ = std::max<std::uint32_t>(sx.stx_dio_mem_align, 1);
        offsetAlign_ = sx.stx_dio_offset_align;
    } else if (auto block = logicalBlockSize(path_)) {
        memAlign_ = offsetAlign_ = block;
    } else {
        memAlign_ = offsetAlign_ = 4096;
    }
}

PosixFile::~PosixFile()
{
    if (bufferedFd_ >= 0)
        ::close(bufferedFd_);
    ::close(fd_);
}

bool PosixFile::aligned(const void* buf, std::uint64_t pos, std::uint64_t n) const
{
    return reinterpret_cast<std::uintptr_t>(buf) % memAlign_ == 0 && pos % offsetAlign_ == 0 && n % offsetAlign_ == 0;
}

int PosixFile::fdFor(const void* buf, std::uint64_t pos, std::uint64_t n)
{
    if (!direct_ || aligned(buf, pos, n))
        return fd_;
    if (bufferedFd_ < 0)
        bufferedFd_ = openRetrying(path_.c_str(), openFlags_, 0);
    return bufferedFd_;
}

std::uint64_t PosixFile::read(void* buf, std::uint64_t n)
{
    g_readCalls.fetch_add(1, std::memory_order_relaxed);
    auto* out = static_cast<unsigned char*>(buf);
    std::uint64_t done = 0;
    while (done < n) {
        std::uint64_t pos = pos_ + done;
        std::uint64_t want = std::min<std::uint64_t>(n - done, 1u << 30);
        if (faults_.readFailFromOffset >= 0 && pos + want > static_cast<std::uint64_t>(faults_.readFailFromOffset)) {
            errno = EIO;
            break;
        }
        int fd = fdFor(out + done, pos, want);
        if (fd < 0)
            break;
        ssize_t got = ::pread(fd, out + done, want, static_cast<off_t>(pos));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            break;
        if (got == 0) {
            errno = 0; // a clean end of file, not a stale error
            break;
        }
        done += static_cast<std::uint64_t>(got);
    }
    pos_ += done;
    return done;
}

bool PosixFile::write(const void* buf, std::uint64_t n)
{
    const auto* in = static_cast<const unsigned char*>(buf);
    std::uint64_t allowed = n;
    if (faults_.writeLimit >= 0)
        allowed = std::min<std::uint64_t>(n, static_cast<std::uint64_t>(std::max<std::int64_t>(faults_.writeLimit - written_, 0)));
    ++writeCalls_;
    g_writeCalls.fetch_add(1, std::memory_order_relaxed);
    int failure = 0; // errno of an injected failure of this call
    if (faults_.diskFullFromWriteCall > 0 && writeCalls_ >= faults_.diskFullFromWriteCall) {
        if (fullSize_ < 0)
            fullSize_ = static_cast<std::int64_t>(getSize());
        std::uint64_t room = pos_ < static_cast<std::uint64_t>(fullSize_) ? fullSize_ - pos_ : 0;
        if (room < allowed) {
            allowed = room;
            failure = ENOSPC;
        }
    }
    if (faults_.failWriteCall > 0 && writeCalls_ == faults_.failWriteCall) {
        std::uint64_t stores = static_cast<std::uint64_t>(std::max<std::int64_t>(faults_.failWriteStores, 0));
        allowed = std::min(allowed, n ? std::min(stores, n - 1) : 0);
        failure = faults_.failWriteErrno;
    }
    bool kill = faults_.killAtWriteCall > 0 && writeCalls_ == faults_.killAtWriteCall;
    if (kill)
        allowed = std::min(allowed, static_cast<std::uint64_t>(std::max<std::int64_t>(faults_.killWriteStores, 0)));
    if (faults_.killAtSize >= 0 && pos_ + n > static_cast<std::uint64_t>(faults_.killAtSize)) {
        kill = true;
        const std::uint64_t limit = static_cast<std::uint64_t>(faults_.killAtSize);
        allowed = std::min(allowed, pos_ < limit ? limit - pos_ : 0);
    }
    std::uint64_t done = 0;
    while (done < allowed) {
        std::uint64_t want = std::min<std::uint64_t>(allowed - done, 1u << 30);
        if (faults_.maxBytesPerWriteCall > 0)
            want = std::min<std::uint64_t>(want, static_cast<std::uint64_t>(faults_.maxBytesPerWriteCall));
        int fd = fdFor(in + done, pos_ + done, want);
        if (fd < 0)
            break;
        ssize_t put = ::pwrite(fd, in + done, want, static_cast<off_t>(pos_ + done));
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0) {
            if (put == 0)
                errno = ENOSPC;
            break;
        }
        done += static_cast<std::uint64_t>(put);
    }
    if (kill)
        ::raise(SIGKILL);
    pos_ += done;
    written_ += static_cast<std::int64_t>(done);
    if (done == n && failure == 0)
        return true;
    if (done == allowed)
        errno = failure ? failure : ENOSPC;
    return false;
}

bool PosixFile::setPosition(std::uint64_t pos)
{
    if (pos > static_cast<std::uint64_t>(INT64_MAX)) {
        errno = EINVAL;
        return false;
    }
    pos_ = pos;
    return true;
}

std::uint64_t PosixFile::getPosition() const
{
    return pos_;
}

std::uint64_t PosixFile::getSize() const
{
    struct stat st;
    if (::fstat(fd_, &st) != 0)
        return 0;
    return static_cast<std::uint64_t>(st.st_size);
}

bool PosixFile::sync()
{
    ++syncCalls_;
    g_syncCalls.fetch_add(1, std::memory_order_relaxed);
    if (faults_.failSyncCall > 0 && syncCalls_ == faults_.failSyncCall) {
        errno = faults_.failSyncErrno;
        return false;
    }
    // The buffered descriptor is of the same file: one call covers both.
    int result;
    do {
        result = ::fdatasync(fd_);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

} // namespace vlhost
