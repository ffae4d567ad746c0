#pragma once
#include <cstdint>
#include <string>
#include <vector>

// What the editor stand-in can tell its tests about its own services.
namespace vlhost {

struct MemoryStats
{
    std::uint64_t allocations = 0;
    std::uint64_t frees = 0;
};
MemoryStats memoryStats();

// Read and write calls made on files the stand-in opened, since the process started.
std::uint64_t fileReadCalls();
std::uint64_t fileWriteCalls();
// Sync calls made on those files, since the process started.
std::uint64_t fileSyncCalls();

// Lines written by Log (log 0) and LogBoth (log 1), oldest first.
std::vector<std::string> logLines(int log);
void clearLogs();
// Whether log lines are also written to standard error (the default).
void setLogEcho(bool on);

// UTF-8 form of a wide path, as the stand-in hands it to the system.
std::string toSystemPath(const std::wstring& path);

} // namespace vlhost
