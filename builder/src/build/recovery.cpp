// SPDX-License-Identifier: MIT
#include "build/recovery.hpp"

#include "base/file.hpp"

namespace builder {

base::Result<> Recovery::encodeStale(size_t failedSound)
{
    constexpr int kAttemptsForSome = 2;
    const bool all = ++mAttempts > kAttemptsForSome;
    const EncodedLocation previous = *mResults.find(failedSound);
    mWorkers.encodeAgain(staleSounds(failedSound, all));
    if (mServices.stop.stop_requested())
        return base::cancelled();

    const EncodedLocation* location = mResults.find(failedSound);
    // The result is still the previous one: the worker had no memory to store another.
    if (location && !location->spilled)
        return base::outOfMemory();
    // The file's content is unchanged, but its samples didn't match the record. So the record is wrong.
    if (location && previous.inSource && location->key == previous.key)
        mServices.rawRecords.forget(previous.key);
    mServices.saveTables();
    return {};
}

std::vector<size_t> Recovery::staleSounds(size_t failedSound, bool all) const
{
    std::vector<size_t> stale;
    for (size_t index = 0; index < mResults.count() && !mServices.stop.stop_requested(); ++index) {
        const EncodedLocation* location = mResults.find(index);
        if (location && !location->spilled && (all || index == failedSound || isStale(index, *location)))
            stale.push_back(index);
    }
    return stale;
}

bool Recovery::isStale(size_t index, const EncodedLocation& location) const
{
    if (location.inCache())
        return !mServices.cache.reopen(location.key);
    const base::Result<base::FileStamp> stamp = base::readStamp(sourcePaths(mRequest.subsounds[index]).front());
    return !stamp || *stamp != location.inSource->stamp;
}

} // namespace builder
