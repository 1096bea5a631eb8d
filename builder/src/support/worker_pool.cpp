// SPDX-License-Identifier: MIT
#include "support/worker_pool.hpp"

#include "bank/vector_state.hpp"

#include <algorithm>
#include <atomic>
#include <list>
#include <utility>

#include <csignal>
#include <ctime>
#include <pthread.h>

namespace builder {

namespace {

// A thread with a stack of kWorkerStackBytes. The destructor joins it.
class WorkerThread
{
public:
    explicit WorkerThread(std::function<void()> work)
        : mWork(std::move(work))
    { }
    ~WorkerThread()
    {
        if (mIsRunning)
            pthread_join(mThread, nullptr);
    }
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    // False if the system refused the thread.
    bool start()
    {
        pthread_attr_t attributes;
        if (pthread_attr_init(&attributes) != 0)
            return false;
        mIsRunning = pthread_attr_setstacksize(&attributes, kWorkerStackBytes) == 0
            && pthread_create(&mThread, &attributes, run, this) == 0;
        pthread_attr_destroy(&attributes);
        return mIsRunning;
    }

private:
    static void* run(void* self) noexcept
    {
        static_cast<WorkerThread*>(self)->mWork();
        return nullptr;
    }

    std::function<void()> mWork;
    pthread_t mThread{};
    bool mIsRunning = false;
};

} // namespace

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

void runOnWorkers(unsigned threadCount, size_t count, const std::function<void(size_t index, unsigned worker)>& job)
{
    std::atomic<size_t> next{0};
    const auto work = [&](unsigned worker) {
        const SignalShield shield(true);
        bank::clearVectorState();
        for (size_t index = next.fetch_add(1); index < count; index = next.fetch_add(1))
            job(index, worker);
    };

    std::list<WorkerThread> threads; // a list, because running threads must not be moved
    const auto wanted = unsigned(std::min<size_t>(threadCount, count));
    for (unsigned worker = 0; worker < wanted; ++worker) {
        if (threads.emplace_back([&work, worker] { work(worker); }).start())
            continue;
        if (worker == 0)
            work(0);
        break;
    }
}

} // namespace builder
