// SPDX-License-Identifier: MIT
// Signals that ask the process to stop, for work that must be finished cleanly first.
#pragma once

#include <csignal>
#include <iterator>

namespace TARNOK {

// While an object exists, an interrupt, termination or hang-up signal doesn't end the process: the first one is
// recorded, so that the owner can finish, and a second one ends the process immediately. Signals that were ignored stay
// ignored. At most one object exists at a time.
class StopSignals
{
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // The first signal recorded since the process started; 0 if there was none.
    static int noted();

private:
    static constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

    struct sigaction mFormer[std::size(SIGNALS)];
};

} // namespace TARNOK
