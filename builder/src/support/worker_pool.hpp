// Runs jobs on several threads.
#pragma once

#include <cstddef>
#include <functional>

#include <csignal>

namespace tarnok {

// Of each worker. Codec libraries take what they need for granted, so that a limit on the program's own stack
// (ulimit -s) must not count here.
inline constexpr size_t kWorkerStackBytes = 8 << 20;

// Calls job(index, worker) for each index below count, in this order as far as workers are free, and returns when all
// have ended. worker is below the number of threads and belongs to one thread at a time. job must not throw. When the
// system refuses a thread, the others do its work; when it refuses all, the caller's thread does.
void runOnWorkers(unsigned threadCount, size_t count, const std::function<void(size_t index, unsigned worker)>& job);

// While it lives, signals that are not this thread's own fault are held back: handlers are the program's and run on its
// threads, and a file-size limit that is reached comes as an error of the write instead of ending the process.
class SignalShield
{
public:
    // allSignals: for the library's own threads. Otherwise, for a thread of the program, only the file-size signal.
    explicit SignalShield(bool allSignals);
    ~SignalShield();
    SignalShield(const SignalShield&) = delete;
    SignalShield& operator=(const SignalShield&) = delete;

private:
    sigset_t mFormer;
};

} // namespace tarnok
