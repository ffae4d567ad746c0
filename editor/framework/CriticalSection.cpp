#include "host/CriticalSection.h"

void CriticalSection::enter()
{
    std::unique_lock lock(mutex_);
    const std::thread::id me = std::this_thread::get_id();
    if (depth_ && owner_ == me) {
        ++depth_;
        return;
    }
    const std::uint64_t ticket = nextTicket_++;
    slot(ticket).wait(lock, [&] { return depth_ == 0 && serving_ == ticket; });
    owner_ = me;
    depth_ = 1;
}

void CriticalSection::leave()
{
    std::lock_guard lock(mutex_);
    if (depth_ == 0 || owner_ != std::this_thread::get_id())
        return; // not held by this thread
    if (--depth_ == 0) {
        owner_ = std::thread::id();
        ++serving_;
        slot(serving_).notify_all(); // the next ticket, and any that share its slot
    }
}

bool CriticalSection::tryEnter()
{
    std::lock_guard lock(mutex_);
    const std::thread::id me = std::this_thread::get_id();
    if (depth_ && owner_ == me) {
        ++depth_;
        return true;
    }
    if (depth_ || serving_ != nextTicket_)
        return false; // held, or others are waiting their turn
    ++nextTicket_;
    owner_ = me;
    depth_ = 1;
    return true;
}
