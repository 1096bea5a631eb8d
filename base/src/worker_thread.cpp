// SPDX-License-Identifier: MIT
#include "base/worker_thread.hpp"

#include <ctime>
#include <thread>
#include <utility>

#include <sys/resource.h>

namespace base {

unsigned usefulThreads()
{
    rlimit addresses{};
    const bool isLimited = getrlimit(RLIMIT_AS, &addresses) == 0 && addresses.rlim_cur != RLIM_INFINITY;
    return isLimited ? 1 : std::thread::hardware_concurrency();
}

WorkerThread::WorkerThread(std::function<void()> work)
    : mWork(std::move(work))
{ }

WorkerThread::~WorkerThread()
{
    if (mIsRunning)
        pthread_join(mThread, nullptr);
}

bool WorkerThread::start()
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    mIsRunning = pthread_attr_setstacksize(&attributes, kWorkerStackBytes) == 0
        && pthread_create(&mThread, &attributes, run, this) == 0;
    pthread_attr_destroy(&attributes);
    return mIsRunning;
}

void* WorkerThread::run(void* self) noexcept
{
    static_cast<WorkerThread*>(self)->mWork();
    return nullptr;
}

SignalShield::SignalShield(bool allSignals)
{
    sigset_t blocked;
    if (allSignals)
        sigfillset(&blocked);
    else
        sigemptyset(&blocked);
    sigaddset(&blocked, SIGXFSZ);
    // Faults caused by the thread itself must still reach the program's crash handler.
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_BLOCK, &blocked, &mOldMask);
}

SignalShield::~SignalShield()
{
    if (!sigismember(&mOldMask, SIGXFSZ)) {
        sigset_t fileSize;
        sigemptyset(&fileSize);
        sigaddset(&fileSize, SIGXFSZ);
        const timespec atOnce{};
        while (sigtimedwait(&fileSize, nullptr, &atOnce) > 0) { }
    }
    pthread_sigmask(SIG_SETMASK, &mOldMask, nullptr);
}

} // namespace base
