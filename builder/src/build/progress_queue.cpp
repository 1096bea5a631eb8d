// SPDX-License-Identifier: MIT
#include "build/progress_queue.hpp"

#include "support/moments.hpp"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace builder {

namespace {

using namespace std::chrono_literals;

// A batch ends after kBatchTime, but not before it has kSmallBatch reports: a watcher that fetches only now and then
// needs no pause.
constexpr auto kBatchTime = 5ms;
constexpr size_t kSmallBatch = 64;

// At the end of a build: the number of reports that a watcher processes without delay, the longest interval at which
// watchers poll, and the maximum time that a build waits for a watcher.
constexpr size_t kRemainder = 500;
constexpr auto kPollInterval = 50ms;
constexpr auto kMaximumWait = 500ms;

} // namespace

void ProgressQueue::post(int subSoundIndex, int threadId, TARNOK_STATE state, TARNOK_RESULT code, std::string_view text)
{
    Item item = makeItem(subSoundIndex, threadId, state, code, text);
    {
        const std::lock_guard lock(mPostedMutex);
        mPosted.push_back(std::move(item));
    }
    if (onReport)
        onReport(subSoundIndex, state);
}

const TARNOK_PROGRESSITEM* ProgressQueue::fetch()
{
    const std::lock_guard lock(mMutex);
    mLastFetch = mTime.now();
    if (mWaiting.empty()) {
        const std::lock_guard postedLock(mPostedMutex);
        mWaiting.swap(mPosted);
    }
    if (mWaiting.empty() || batchIsComplete()) {
        mBatchSize = 0;
        return nullptr;
    }

    if (mBatchSize++ == 0)
        mBatchBegan = mLastFetch;
    const TARNOK_PROGRESSITEM* item = mWaiting.front().get();
    mFetched.emplace(item, nullptr).first->second = std::move(mWaiting.front());
    mWaiting.pop_front();
    return item;
}

bool ProgressQueue::batchIsComplete()
{
    return mInBatches && mBatchSize >= kSmallBatch && mLastFetch - mBatchBegan >= kBatchTime;
}

bool ProgressQueue::release(const TARNOK_PROGRESSITEM* item)
{
    const std::lock_guard lock(mMutex);
    return mFetched.erase(item) == 1;
}

void ProgressQueue::beginBuild()
{
    std::deque<Item> unwanted, unwantedPosted;
    const std::scoped_lock lock(mMutex, mPostedMutex);
    unwanted.swap(mWaiting);
    unwantedPosted.swap(mPosted);
    mInBatches = true;
}

void ProgressQueue::endBuild(const std::stop_token& stop)
{
    const auto deadline = mTime.now() + kMaximumWait;
    while (!stop.stop_requested() && mTime.now() < deadline && !isCaughtUp())
        mTime.pause(1ms);
    const std::lock_guard lock(mMutex);
    mInBatches = false;
}

bool ProgressQueue::isCaughtUp()
{
    const std::scoped_lock lock(mMutex, mPostedMutex);
    return mWaiting.size() + mPosted.size() <= kRemainder || mTime.now() - mLastFetch > kPollInterval;
}

// The text in TARNOK_STATE_DATA_FAILED has a variable length, so item, record and text share one allocation.
ProgressQueue::Item ProgressQueue::makeItem(int subSoundIndex, int threadId, TARNOK_STATE state, TARNOK_RESULT code,
                                            std::string_view text)
{
    const bool failed = state == TARNOK_STATE_FAILED;
    const size_t textOffset = sizeof(TARNOK_PROGRESSITEM) + offsetof(TARNOK_STATE_DATA_FAILED, errorString);
    const size_t size = failed ? textOffset + text.size() + 1 : sizeof(TARNOK_PROGRESSITEM);
    auto* memory = static_cast<char*>(std::malloc(size));
    if (!memory)
        throw std::bad_alloc();

    Item item(new (memory) TARNOK_PROGRESSITEM{subSoundIndex, threadId, state, 0, nullptr});
    if (failed) {
        std::memcpy(memory + sizeof(TARNOK_PROGRESSITEM), &code, sizeof code);
        std::memcpy(memory + textOffset, text.data(), text.size());
        memory[textOffset + text.size()] = '\0';
        item->stateData = memory + sizeof(TARNOK_PROGRESSITEM);
    }
    return item;
}

void ProgressQueue::ItemDeleter::operator()(TARNOK_PROGRESSITEM* item) const
{
    std::free(item);
}

} // namespace builder
