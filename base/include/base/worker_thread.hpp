// SPDX-License-Identifier: MIT
// Threads of the libraries, which run inside other programs.
#pragma once

#include <cstddef>
#include <functional>

#include <csignal>
#include <pthread.h>

namespace base {

// The stack of each worker. Codec libraries assume that there is enough, so the limit on the program's own stack
// (ulimit -s) must not apply here.
inline constexpr size_t kWorkerStackBytes = 8 << 20;

// How many threads do a work of many parts: as many as there are processors, but one if the address space is limited
// (ulimit -v), of which each thread reserves some 70 MB for its stack and its allocations.
[[nodiscard]] unsigned usefulThreads();

// A thread with a stack of kWorkerStackBytes. The destructor joins it.
class WorkerThread
{
public:
    // work must not throw.
    explicit WorkerThread(std::function<void()> work);
    ~WorkerThread();
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    // False if the system refused the thread.
    bool start();

private:
    static void* run(void* self) noexcept;

    std::function<void()> mWork;
    pthread_t mThread{};
    bool mIsRunning = false;
};

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

} // namespace base
