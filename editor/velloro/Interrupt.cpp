#include "Interrupt.h"

#include <atomic>
#include <csignal>
#include <iterator>

namespace velloro {

namespace {

std::atomic<int> g_caught{0};
static_assert(std::atomic<int>::is_always_lock_free, "set from a signal handler");

constexpr int kSignals[] = {SIGINT, SIGTERM};
struct sigaction g_previous[std::size(kSignals)];

extern "C" void onSignal(int signal)
{
    int none = 0;
    g_caught.compare_exchange_strong(none, signal);
}

} // namespace

InterruptGuard::InterruptGuard()
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    // The writer's and reader's system calls carry on as if nothing happened.
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < std::size(kSignals); ++i)
        sigaction(kSignals[i], &action, &g_previous[i]);
}

InterruptGuard::~InterruptGuard()
{
    for (std::size_t i = 0; i < std::size(kSignals); ++i)
        sigaction(kSignals[i], &g_previous[i], nullptr);
}

int interruptSignal()
{
    return g_caught.load();
}

} // namespace velloro
