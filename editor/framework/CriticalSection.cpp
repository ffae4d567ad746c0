#include "host/CriticalSection.h"

void CriticalSection::enter()
{
    mutex_.lock();
}

void CriticalSection::leave()
{
    mutex_.unlock();
}

bool CriticalSection::tryEnter()
{
    return mutex_.try_lock();
}
