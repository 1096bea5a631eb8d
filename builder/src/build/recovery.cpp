// SPDX-License-Identifier: MIT
#include "build/recovery.hpp"

#include "base/file.hpp"

namespace builder {

base::Result<> Recovery::encodeStale(size_t found)
{
    constexpr int kAttemptsForSome = 2;
    const bool all = ++mAttempts > kAttemptsForSome;
    const EncodedLocation previous = *mResults.find(found);
    mWorkers.encodeAgain(staleSounds(found, all));
    if (mServices.stop.stop_requested())
        return base::cancelled();

    const EncodedLocation* location = mResults.find(found);
    if (location && !location->spilled)
        return base::outOfMemory();
    // The file has the same content but another checksum, so the record was wrong.
    if (location && previous.inSource && location->key == previous.key)
        mServices.rawRecords.forget(previous.key);
    mServices.saveTables();
    return {};
}

std::vector<size_t> Recovery::staleSounds(size_t found, bool all) const
{
    std::vector<size_t> stale;
    for (size_t index = 0; index < mResults.count() && !mServices.stop.stop_requested(); ++index) {
        const EncodedLocation* location = mResults.find(index);
        if (location && !location->spilled && (all || index == found || isStale(index, *location)))
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
