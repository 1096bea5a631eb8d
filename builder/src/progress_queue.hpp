// The reports of a build on their way to whoever watches it.
#pragma once

#include "tarnok.h"

#include <deque>
#include <memory>
#include <mutex>
#include <string_view>
#include <unordered_map>

namespace tarnok {

// Keeps reports in the order in which they were posted, and remembers which of them somebody still reads. A report
// that was handed out stays readable until it comes back, even when the library has been released and initialised
// again in between: a watcher holds the last report of each worker until its next build begins.
class ProgressQueue
{
public:
    // Appends a report. A failed one carries text, the others leave it empty.
    void post(int subSoundIndex, int threadId, TARNOK_STATE state, TARNOK_RESULT code = TARNOK_OK,
              std::string_view text = {});

    // The oldest report that was not fetched yet, or null.
    const TARNOK_PROGRESSITEM* fetch();

    // Frees a fetched report. False when it is none, or came back before.
    bool release(const TARNOK_PROGRESSITEM* item);

    // Forgets what nobody fetched, so that a watcher of the next build doesn't meet sounds of the last.
    void discardUnfetched();

private:
    struct ItemDeleter
    {
        void operator()(TARNOK_PROGRESSITEM* item) const;
    };
    using Item = std::unique_ptr<TARNOK_PROGRESSITEM, ItemDeleter>;

    static Item makeItem(int subSoundIndex, int threadId, TARNOK_STATE state, TARNOK_RESULT code,
                         std::string_view text);

    std::mutex mMutex;
    std::deque<Item> mWaiting;
    std::unordered_map<const TARNOK_PROGRESSITEM*, Item> mHandedOut;
};

} // namespace tarnok
