#pragma once
// One read at a time on a thread of its own, for the read-ahead's next
// window. The thread stays for the next window while a file is being played
// and leaves after a second without one: a thread made per window costs
// more than the copies of a small frame, and an idle file keeps none.
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "host/iFile.h"

namespace Morvane::Avi {

class BackgroundRead
{
public:
    static constexpr std::chrono::milliseconds kIdle{1000};

    BackgroundRead() = default;
    ~BackgroundRead();
    BackgroundRead(const BackgroundRead&) = delete;
    BackgroundRead& operator=(const BackgroundRead&) = delete;

    // Reads [pos, pos + n) of file into into, in the background. False when
    // no thread can be had (then nothing was started) or one is pending.
    bool start(iFile& file, unsigned char* into, std::uint64_t pos, std::uint64_t n);
    // A read started and not yet collected.
    bool pending() const { return pending_; }
    // Waits for the pending read; the bytes it got (0 when none is pending).
    std::uint64_t collect();

private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::thread thread_;
    bool running_ = false; // the thread takes jobs
    bool stopping_ = false;
    bool queued_ = false; // a job the thread has yet to take
    bool done_ = false;
    iFile* file_ = nullptr;
    unsigned char* into_ = nullptr;
    std::uint64_t pos_ = 0;
    std::uint64_t size_ = 0;
    std::uint64_t got_ = 0;
    bool pending_ = false; // the caller's side only
};

} // namespace Morvane::Avi
