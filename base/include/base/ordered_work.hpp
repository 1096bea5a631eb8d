// SPDX-License-Identifier: MIT
// Independent pieces of work on all processors, with the results in order.
#pragma once

#include "base/worker_thread.hpp"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <utility>

namespace base {

// Calls a function once for each number below a count, on several threads at once, and returns its results one after
// the other. At most kAhead results wait to be fetched. Without a second thread, next() does the work itself.
template <typename T>
class OrderedWork
{
public:
    // work must not throw, and may be called by several threads at once.
    OrderedWork(size_t count, std::function<T(size_t)> work, unsigned threads = usefulThreads())
        : mCount(count)
        , mWork(std::move(work))
    {
        const size_t wanted = std::min<size_t>({threads, count, kAhead});
        if (wanted < 2)
            return;
        while (mThreads.size() < wanted) {
            if (!mThreads.emplace_back([this] { run(); }).start()) {
                mThreads.pop_back();
                break;
            }
        }
    }

    // Waits for what was begun; the rest is left out.
    ~OrderedWork()
    {
        {
            const std::lock_guard lock(mMutex);
            mBegun = mCount;
        }
        mFetched.notify_all();
    }

    OrderedWork(const OrderedWork&) = delete;
    OrderedWork& operator=(const OrderedWork&) = delete;

    // The result for the next number. To be called at most count times, by one thread.
    T next()
    {
        if (mThreads.empty())
            return mWork(mNext++);
        std::unique_lock lock(mMutex);
        std::optional<T>& slot = mResults[mNext % kAhead];
        mFinished.wait(lock, [&slot] { return slot.has_value(); });
        T result = *std::exchange(slot, std::nullopt);
        ++mNext;
        lock.unlock();
        mFetched.notify_one();
        return result;
    }

private:
    static constexpr size_t kAhead = 256;

    void run()
    {
        const SignalShield shield(true);
        std::unique_lock lock(mMutex);
        for (;;) {
            mFetched.wait(lock, [this] { return mBegun >= mCount || mBegun < mNext + kAhead; });
            if (mBegun >= mCount)
                return;
            const size_t number = mBegun++;
            lock.unlock();
            T result = mWork(number);
            lock.lock();
            mResults[number % kAhead] = std::move(result);
            if (number == mNext)
                mFinished.notify_one();
        }
    }

    const size_t mCount;
    const std::function<T(size_t)> mWork;
    std::mutex mMutex;
    std::condition_variable mFinished; // the next result is there
    std::condition_variable mFetched; // there is room for another result
    size_t mNext = 0;
    size_t mBegun = 0;
    std::array<std::optional<T>, kAhead> mResults;
    std::list<WorkerThread> mThreads; // ends first, and is a list because running threads must not be moved
};

} // namespace base
