// Signals that ask the process to stop, for work that has to be wound up first.
#pragma once

#include <csignal>
#include <iterator>

namespace TARNOK {

// While one lives, an interrupt, a termination or a hang-up doesn't end the process: the first one is noted, for the
// owner to wind up what it is doing, and any other ends the process at once. Signals that were ignored stay ignored.
// There is one at a time.
class StopSignals
{
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // The signal that was noted since the process began; 0 if there is none.
    static int noted();

private:
    static constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

    struct sigaction mFormer[std::size(SIGNALS)];
};

} // namespace TARNOK
