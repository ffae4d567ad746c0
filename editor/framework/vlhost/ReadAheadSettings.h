#pragma once
#include <chrono>
#include <cstdint>

// The stand-in's settings of the read-ahead budget that every open file's
// reader draws from (host/ReadAheadBudget.h).
namespace vlhost {

// In bytes: 64 MiB, or VELLORO_READ_AHEAD_MB MiB when the environment sets it.
void setReadAheadBudget(std::uint64_t bytes);
std::uint64_t readAheadBudget();
// What the readers hold of it now.
std::uint64_t readAheadInUse();
// How long a reader goes without reading before its memory is taken back
// (500 ms unless set).
void setReadAheadIdleAfter(std::chrono::milliseconds idle);

} // namespace vlhost
