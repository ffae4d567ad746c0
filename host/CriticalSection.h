#pragma once
#include <mutex>

#include "VlExport.h"

// Re-entrant lock of the editor.
class VL_HOST_API CriticalSection
{
public:
    CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void enter();
    void leave();
    bool tryEnter();

    class Lock
    {
    public:
        explicit Lock(CriticalSection& cs) : cs_(cs) { cs_.enter(); }
        ~Lock() { cs_.leave(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        CriticalSection& cs_;
    };

private:
    std::recursive_mutex mutex_;
};
