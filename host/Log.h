#pragma once

// The editor's log, and both of its logs (the log and the user's message list).
void Log(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
void LogBoth(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
