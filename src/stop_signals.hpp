// SPDX-License-Identifier: MIT
// Signals that ask the process to stop, for work that must be finished cleanly first.
#pragma once

#include <csignal>
#include <iterator>

namespace TARNOK {

// While one exists, an interrupt, a termination or a hang-up doesn't end the process: the first one is recorded, so
// that the owner can finish, and a second one ends the process at once. Signals that were ignored stay ignored. At most
// one exists at a time.
class StopSignals
{
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // The signal that was recorded since the process started; 0 if there is none.
    static int noted();

private:
    static constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

    struct sigaction mFormer[std::size(SIGNALS)];
};

} // namespace TARNOK
