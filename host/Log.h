#pragma once
#include "VlExport.h"

// The editor's log, and both of its logs (the log and the user's message list).
VL_HOST_API void Log(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
VL_HOST_API void LogBoth(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
