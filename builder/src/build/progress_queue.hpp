// The reports of a build on their way to whoever watches it.
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

namespace tarnok {

// Where a queue takes the time from. Tests bring their own.
struct QueueTime
{
    using Clock = std::chrono::steady_clock;

    std::function<Clock::time_point()> now = Clock::now;
    std::function<void(Clock::duration)> pause = [](Clock::duration time) {
        std::this_thread::sleep_for(time);
    };
};

// Keeps reports in the order in which they were posted, and remembers which of them somebody still reads. A report
// that was handed out stays readable until it comes back, even when the library has been released and initialised
// again in between: a watcher holds the last report of each worker until its next build begins.
class ProgressQueue
{
public:
    using Clock = QueueTime::Clock;

    explicit ProgressQueue(QueueTime time = {})
        : mTime(std::move(time))
    { }

    // Appends a report. A failed one carries text, the others leave it empty.
    void post(int subSoundIndex, int threadId, TARNOK_STATE state, TARNOK_RESULT code = TARNOK_OK,
              std::string_view text = {});

    // The oldest report that was not fetched yet, or null: there is none, or the watcher has its portion.
    const TARNOK_PROGRESSITEM* fetch();

    // Frees a fetched report. False when it is none, or came back before.
    bool release(const TARNOK_PROGRESSITEM* item);

    // Forgets what nobody fetched, so that a watcher of this build doesn't meet sounds of the last.
    void beginBuild();

    // Gives a watcher that is at work a moment to catch up, for what is left is then to be had in one piece.
    void endBuild(const std::stop_token& stop);

private:
    struct ItemDeleter
    {
        void operator()(TARNOK_PROGRESSITEM* item) const;
    };
    using Item = std::unique_ptr<TARNOK_PROGRESSITEM, ItemDeleter>;

    static Item makeItem(int subSoundIndex, int threadId, TARNOK_STATE state, TARNOK_RESULT code,
                         std::string_view text);

    bool portionIsComplete();
    bool isCaughtUp();

    const QueueTime mTime;

    // What the workers post. Its lock is held for moments only: a worker that loses the processor with it would keep
    // the others and the watcher waiting.
    std::mutex mPostedMutex;
    std::deque<Item> mPosted;

    // The watcher's side. Locked before the other.
    std::mutex mMutex;
    std::deque<Item> mWaiting; // older than all that is in mPosted
    std::unordered_map<const TARNOK_PROGRESSITEM*, Item> mHandedOut;
    bool mInPortions = false;
    size_t mPortion = 0; // reports handed out since there was none
    Clock::time_point mPortionBegan;
    Clock::time_point mLastFetch;
};

} // namespace tarnok
