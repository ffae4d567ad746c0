#include "FileFormats/AVI/avilib/avilib.BackgroundRead.h"

#include <system_error>

namespace Morvane::Avi {

BackgroundRead::~BackgroundRead()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

bool BackgroundRead::start(iFile& file, unsigned char* into, std::uint64_t pos, std::uint64_t n)
{
    if (pending_)
        return false;
    std::unique_lock lock(mutex_);
    if (!running_) {
        // The last thread left when it found no work; it is gone or going.
        lock.unlock();
        if (thread_.joinable())
            thread_.join();
        try {
            thread_ = std::thread([this] { run(); });
        } catch (const std::system_error&) {
            return false;
        }
        lock.lock();
        running_ = true;
    }
    file_ = &file;
    into_ = into;
    pos_ = pos;
    size_ = n;
    got_ = 0;
    done_ = false;
    queued_ = true;
    pending_ = true;
    changed_.notify_all();
    return true;
}

std::uint64_t BackgroundRead::collect()
{
    if (!pending_)
        return 0;
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return done_; });
    pending_ = false;
    return got_;
}

void BackgroundRead::run()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        // A start() after this thread gave up finds running_ false and
        // makes another.
        if (!changed_.wait_for(lock, kIdle, [this] { return queued_ || stopping_; }) || !queued_) {
            running_ = false;
            return;
        }
        queued_ = false;
        iFile* file = file_;
        unsigned char* into = into_;
        const std::uint64_t pos = pos_;
        const std::uint64_t size = size_;
        lock.unlock();
        const std::uint64_t got = file->setPosition(pos) ? file->read(into, size) : 0;
        lock.lock();
        got_ = got;
        done_ = true;
        changed_.notify_all();
    }
}

} // namespace Morvane::Avi
