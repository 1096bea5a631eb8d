// SPDX-License-Identifier: MIT
// Runs jobs on several threads.
#pragma once

#include <cstddef>
#include <functional>

namespace builder {

// Calls job(index, worker) for each index below count, starting them in this order as workers become free, and returns
// when all have ended. worker is less than threadCount, and each number is used by one thread at a time. job must not
// throw. If the system refuses a thread, the others do its work; if it refuses all, the calling thread does.
void runOnWorkers(unsigned threadCount, size_t count, const std::function<void(size_t index, unsigned worker)>& job);

} // namespace builder
