// SPDX-License-Identifier: MIT
// Runs jobs on several threads.
#pragma once

#include <cstddef>
#include <functional>

#include <csignal>

namespace builder {

// The stack of each worker. Codec libraries assume that there is enough, so the limit on the program's own stack
// (ulimit -s) must not apply here.
inline constexpr size_t kWorkerStackBytes = 8 << 20;

// Calls job(index, worker) for each index below count, starting them in this order as workers become free, and returns
// when all have ended. worker is less than threadCount, and each number is used by one thread at a time. job must not
// throw. If the system refuses a thread, the others do its work; if it refuses all, the calling thread does.
void runOnWorkers(unsigned threadCount, size_t count, const std::function<void(size_t index, unsigned worker)>& job);

// While one exists, signals that this thread didn't cause are blocked: handlers belong to the program and run on its
// threads, and reaching a file-size limit makes the write fail instead of ending the process.
class SignalShield
{
public:
    // allSignals: for threads of the library. Otherwise only the file-size signal is blocked, for threads of the
    // program.
    explicit SignalShield(bool allSignals);
    ~SignalShield();
    SignalShield(const SignalShield&) = delete;
    SignalShield& operator=(const SignalShield&) = delete;

private:
    sigset_t mOldMask;
};

} // namespace builder
