#include "worker_pool.hpp"

#include "bank/vector_state.hpp"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

#include <csignal>
#include <ctime>
#include <pthread.h>

namespace tarnok {

SignalShield::SignalShield(bool allSignals)
{
    sigset_t blocked;
    if (allSignals)
        sigfillset(&blocked);
    else
        sigemptyset(&blocked);
    sigaddset(&blocked, SIGXFSZ);
    // Faults of the thread itself must still reach the program's crash handler.
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_BLOCK, &blocked, &mFormer);
}

SignalShield::~SignalShield()
{
    if (!sigismember(&mFormer, SIGXFSZ)) {
        sigset_t fileSize;
        sigemptyset(&fileSize);
        sigaddset(&fileSize, SIGXFSZ);
        const timespec atOnce{};
        while (sigtimedwait(&fileSize, nullptr, &atOnce) > 0) { }
    }
    pthread_sigmask(SIG_SETMASK, &mFormer, nullptr);
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

    std::vector<std::jthread> threads;
    const auto wanted = unsigned(std::min<size_t>(threadCount, count));
    threads.reserve(wanted);
    try {
        for (unsigned worker = 0; worker < wanted; ++worker)
            threads.emplace_back(work, worker);
    } catch (const std::system_error&) {
        if (threads.empty())
            work(0);
    }
}

} // namespace tarnok
