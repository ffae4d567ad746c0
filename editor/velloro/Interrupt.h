#pragma once
// Ctrl-C (SIGINT) and SIGTERM while velloro writes a file: the first one
// asks the render and export loops to stop after the frame being written,
// so the file is closed as at a normal end; any further one is ignored
// until the guard goes and the default handlers are back.
namespace velloro {

class InterruptGuard
{
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;
};

// The first signal caught while a guard was up, or 0.
int interruptSignal();

} // namespace velloro
