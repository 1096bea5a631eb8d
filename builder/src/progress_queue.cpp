#include "progress_queue.hpp"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace tarnok {

void ProgressQueue::post(int subSoundIndex, int threadId, TARNOK_STATE state, TARNOK_RESULT code, std::string_view text)
{
    Item item = makeItem(subSoundIndex, threadId, state, code, text);
    const std::lock_guard lock(mMutex);
    mWaiting.push_back(std::move(item));
}

const TARNOK_PROGRESSITEM* ProgressQueue::fetch()
{
    const std::lock_guard lock(mMutex);
    if (mWaiting.empty())
        return nullptr;
    const TARNOK_PROGRESSITEM* item = mWaiting.front().get();
    mHandedOut.emplace(item, nullptr).first->second = std::move(mWaiting.front());
    mWaiting.pop_front();
    return item;
}

bool ProgressQueue::release(const TARNOK_PROGRESSITEM* item)
{
    const std::lock_guard lock(mMutex);
    return mHandedOut.erase(item) == 1;
}

void ProgressQueue::discardUnfetched()
{
    std::deque<Item> unwanted;
    const std::lock_guard lock(mMutex);
    unwanted.swap(mWaiting);
}

// The failed record's text has no size of its own in the public header, so item and record share one allocation that is
// as long as the text needs.
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
        const TARNOK_RESULT storedCode = code;
        std::memcpy(memory + sizeof(TARNOK_PROGRESSITEM), &storedCode, sizeof storedCode);
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

} // namespace tarnok
