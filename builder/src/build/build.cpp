// SPDX-License-Identifier: MIT
#include "build/build.hpp"

#include "build/bank_contents.hpp"
#include "build/recovery.hpp"
#include "build/sound_order.hpp"

#include <new>
#include <optional>
#include <utility>

namespace builder {

Build::Build(const LibrarySettings& library, const BuildRequest& request, ProgressQueue& queue, Remarks& remarks,
             std::stop_token stop)
    : mLibrary(library)
    , mRequest(request)
    , mStop(std::move(stop))
    , mCacheFolder(library.cacheDirectory, remarks)
    , mCache(mCacheFolder, !has(TARNOK_INIT_REBUILD))
    , mRawRecords(mCacheFolder, !has(TARNOK_INIT_REBUILD))
    , mIndex(mCacheFolder.indexPath())
    , mSources(mIndex, !has(TARNOK_INIT_REBUILD))
    , mServices{mEngine,
                mCache,
                mRawRecords,
                mIndex,
                mSources,
                remarks,
                TemporaryFolders::startingWith(library.cacheDirectory),
                mStop}
    , mReports(queue, has(TARNOK_INIT_ALWAYS))
    , mResults(request.subsounds.size())
    , mWorkers(request, mServices, mReports, mResults)
{ }

base::Result<> Build::run()
{
    base::Result<> result;
    try {
        result = runPhases();
    } catch (const std::bad_alloc&) {
        result = base::outOfMemory();
    }
    if (!result && result.error().code != base::ErrorCode::Cancelled)
        mReports.bankFailed(result.error());
    return result;
}

base::Result<> Build::runPhases()
{
    base::Result<BuildOutputs> outputs = BuildOutputs::open(
        mRequest, {.withHeader = has(TARNOK_INIT_CREATE_HEADER), .keepUnchanged = has(TARNOK_INIT_KEEP_UNCHANGED)});
    if (!outputs)
        return outputs.error();
    if (base::Result<> done = encodeSounds(); !done)
        return done;

    mReports.bank(TARNOK_STATE_WRITING);
    if (base::Result<> done = writeContents(outputs->bank()); !done)
        return done;
    if (base::Result<> done = outputs->commit(mRequest, mStop); !done)
        return done;
    mCache.tidy(mStop);
    return {};
}

base::Result<> Build::encodeSounds()
{
    base::Result<KessSystem> engine = startEngine();
    if (!engine)
        return engine.error();
    mEngine = std::move(*engine);
    if (base::Result<> done = mWorkers.start(mLibrary.threadCount); !done)
        return done;
    mWorkers.encode(longestFirst(mRequest.subsounds, mStop));
    mServices.saveTables();
    return verdict();
}

// Repeats until it succeeds. This ends, because each recovery leaves less that somebody else can remove or change.
base::Result<> Build::writeContents(AtomicOutput& bank)
{
    Recovery recovery(mRequest, mServices, mWorkers, mResults);
    for (;;) {
        const std::optional<ContentsError> failed = builder::writeContents(bank, mRequest, mResults, mCache, mStop);
        if (!failed)
            return {};
        if (!failed->staleSound || mStop.stop_requested())
            return failed->error;
        if (base::Result<> done = recovery.encodeStale(*failed->staleSound); !done)
            return done;
        if (base::Result<> done = verdict(); !done)
            return done;
        if (base::Result<> done = bank.restart(); !done)
            return done;
    }
}

base::Result<> Build::verdict() const
{
    if (mStop.stop_requested())
        return base::cancelled();
    return mResults.verdict(has(TARNOK_INIT_IGNORE_ERRORS));
}

} // namespace builder
