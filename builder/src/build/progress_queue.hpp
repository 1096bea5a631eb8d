// SPDX-License-Identifier: MIT
// The queue of reports between a build and its watcher.
#pragma once

#include "tarnok.h"

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>

namespace builder {

// The clock of a queue. Tests replace it.
struct QueueTime
{
    using Clock = std::chrono::steady_clock;

    std::function<Clock::time_point()> now = Clock::now;
    std::function<void(Clock::duration)> pause = [](Clock::duration time) {
        std::this_thread::sleep_for(time);
    };
};

// Stores reports in the order in which they were posted, and owns those that a watcher has fetched. A fetched report
// stays readable until it is released, even if the library was released and initialised again in between: a watcher
// keeps the last report of each worker until its next build starts.
//
// While a build runs, reports are delivered in batches: a watcher that fetches without a pause gets null after some
// milliseconds, so that it can do other work.
class ProgressQueue
{
public:
    using Clock = QueueTime::Clock;

    explicit ProgressQueue(QueueTime time = {})
        : mTime(std::move(time))
    { }

    // Appends a report. Only that of a failure has a text.
    void post(int subSoundIndex, int threadId, TARNOK_STATE state, TARNOK_RESULT code = TARNOK_OK,
              std::string_view text = {});

    // The oldest report that was not fetched yet. Null if there is none, or if the current batch is complete.
    const TARNOK_PROGRESSITEM* fetch();

    // Frees a fetched report. False if item isn't a fetched report, or was released before.
    bool release(const TARNOK_PROGRESSITEM* item);

    // Discards reports that were not fetched, so that the watcher of this build doesn't get reports of the previous
    // one.
    void beginBuild();

    // Gives a watcher that lags behind a moment to catch up, because afterwards it gets all remaining reports in one
    // batch.
    void endBuild(const std::stop_token& stop);

private:
    struct ItemDeleter
    {
        void operator()(TARNOK_PROGRESSITEM* item) const;
    };
    using Item = std::unique_ptr<TARNOK_PROGRESSITEM, ItemDeleter>;

    static Item makeItem(int subSoundIndex, int threadId, TARNOK_STATE state, TARNOK_RESULT code,
                         std::string_view text);

    bool batchIsComplete();
    bool isCaughtUp();

    const QueueTime mTime;

    // The reports that workers have posted. The lock is held only briefly: if a worker lost the processor while holding
    // it, the other workers and the watcher would wait.
    std::mutex mPostedMutex;
    std::deque<Item> mPosted;

    // The watcher's side. This mutex is locked before mPostedMutex.
    std::mutex mMutex;
    std::deque<Item> mWaiting; // older than everything in mPosted
    std::unordered_map<const TARNOK_PROGRESSITEM*, Item> mFetched;
    bool mInBatches = false;
    size_t mBatchSize = 0; // reports fetched since fetch() last returned null
    Clock::time_point mBatchBegan;
    Clock::time_point mLastFetch;
};

} // namespace builder
