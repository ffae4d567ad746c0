#include "host/TimedTaskManager.h"

#include <map>
#include <mutex>
#include <string>

namespace {

std::mutex g_mutex;

std::map<std::string, Vl::Ptr<TimedTask>>& tasks()
{
    static std::map<std::string, Vl::Ptr<TimedTask>> registered;
    return registered;
}

} // namespace

Vl::Ptr<TimedTask> TimedTaskManager::getTimedTask(const char* key)
{
    std::lock_guard lock(g_mutex);
    auto it = tasks().find(key ? key : "");
    return it == tasks().end() ? Vl::Ptr<TimedTask>() : it->second;
}

void TimedTaskManager::registerTimedTask(const char* key, const Vl::Ptr<TimedTask>& task)
{
    std::lock_guard lock(g_mutex);
    tasks()[key ? key : ""] = task;
}

void TimedTaskManager::unregisterTimedTask(const char* key)
{
    std::lock_guard lock(g_mutex);
    tasks().erase(key ? key : "");
}
