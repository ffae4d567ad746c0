#include "host/Log.h"

#include <cstdarg>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>

#include "vlhost/HostStats.h"

namespace {

constexpr std::size_t kKeptLines = 1000;

std::mutex g_mutex;
std::deque<std::string> g_logs[2];
bool g_echo = true;

std::string vformat(const char* fmt, va_list ap)
{
    va_list copy;
    va_copy(copy, ap);
    int n = std::vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    if (n <= 0)
        return {};
    std::string s(static_cast<std::size_t>(n), '\0');
    std::vsnprintf(s.data(), s.size() + 1, fmt, ap);
    return s;
}

void keep(int log, const std::string& line)
{
    auto& lines = g_logs[log];
    lines.push_back(line);
    if (lines.size() > kKeptLines)
        lines.pop_front();
}

void emit(const std::string& text, bool both)
{
    std::lock_guard lock(g_mutex);
    if (g_echo)
        std::fprintf(stderr, "velloro: %s%s", text.c_str(), (!text.empty() && text.back() == '\n') ? "" : "\n");
    keep(0, text);
    if (both)
        keep(1, text);
}

} // namespace

void Log(const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    std::string text = vformat(fmt, ap);
    va_end(ap);
    emit(text, false);
}

void LogBoth(const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    std::string text = vformat(fmt, ap);
    va_end(ap);
    emit(text, true);
}

namespace vlhost {

std::vector<std::string> logLines(int log)
{
    std::lock_guard lock(g_mutex);
    const auto& lines = g_logs[log == 0 ? 0 : 1];
    return {lines.begin(), lines.end()};
}

void setLogEcho(bool on)
{
    std::lock_guard lock(g_mutex);
    g_echo = on;
}

void clearLogs()
{
    std::lock_guard lock(g_mutex);
    g_logs[0].clear();
    g_logs[1].clear();
}

} // namespace vlhost
