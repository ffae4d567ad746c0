#pragma once
#include <cstdint>
#include <string>

#include "VlExport.h"
#include "VlPtr.h"

// A named stopwatch of the editor's profiler.
class VL_HOST_API TimedTask : public Vl::RefCounted
{
public:
    virtual void start(const char* label) = 0;
    virtual void stop() = 0;
};

class VL_HOST_API TimedTaskManager
{
public:
    // Null when nothing is registered under key.
    static Vl::Ptr<TimedTask> getTimedTask(const char* key);
    static void registerTimedTask(const char* key, const Vl::Ptr<TimedTask>& task);
    static void unregisterTimedTask(const char* key);
};

// Starts a task for a scope; a null task does nothing.
class TimedTaskScope
{
public:
    TimedTaskScope(const Vl::Ptr<TimedTask>& task, const char* label) : task_(task)
    {
        if (task_)
            task_->start(label);
    }
    ~TimedTaskScope()
    {
        if (task_)
            task_->stop();
    }
    TimedTaskScope(const TimedTaskScope&) = delete;
    TimedTaskScope& operator=(const TimedTaskScope&) = delete;

private:
    Vl::Ptr<TimedTask> task_;
};
