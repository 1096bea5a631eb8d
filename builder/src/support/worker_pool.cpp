// SPDX-License-Identifier: MIT
#include "support/worker_pool.hpp"

#include "bank/vector_state.hpp"

#include "base/worker_thread.hpp"

#include <algorithm>
#include <atomic>
#include <list>

namespace builder {

void runOnWorkers(unsigned threadCount, size_t count, const std::function<void(size_t index, unsigned worker)>& job)
{
    std::atomic<size_t> next{0};
    const auto work = [&](unsigned worker) {
        const base::SignalShield shield(true);
        bank::clearVectorState();
        for (size_t index = next.fetch_add(1); index < count; index = next.fetch_add(1))
            job(index, worker);
    };

    std::list<base::WorkerThread> threads; // a list, because running threads must not be moved
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
