// SPDX-License-Identifier: MIT
#include "stop_signals.hpp"

#include <atomic>

namespace TARNOK {

namespace {

std::atomic<int> firstSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free, "it is written by a signal handler");

extern "C" void noteSignal(int number)
{
    int none = 0;
    if (firstSignal.compare_exchange_strong(none, number))
        return;
    // Delivered when this handler returns.
    std::signal(number, SIG_DFL);
    std::raise(number);
}

} // namespace

StopSignals::StopSignals()
{
    struct sigaction action
    { };
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    for (size_t i = 0; i < std::size(SIGNALS); ++i) {
        sigaction(SIGNALS[i], nullptr, &mFormer[i]);
        if (mFormer[i].sa_handler != SIG_IGN)
            sigaction(SIGNALS[i], &action, nullptr);
    }
}

StopSignals::~StopSignals()
{
    for (size_t i = 0; i < std::size(SIGNALS); ++i)
        sigaction(SIGNALS[i], &mFormer[i], nullptr);
}

int StopSignals::noted()
{
    return firstSignal.load();
}

} // namespace TARNOK
