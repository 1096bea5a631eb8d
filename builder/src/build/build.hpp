// One build, from the list of sounds to the finished bank.
#pragma once

#include "base/result.hpp"
#include "build/build_outputs.hpp"
#include "build/build_reports.hpp"
#include "build/build_request.hpp"
#include "build/build_services.hpp"
#include "build/progress_queue.hpp"
#include "build/sound_results.hpp"
#include "build/sound_workers.hpp"
#include "support/remarks.hpp"

#include <stop_token>
#include <string>

namespace tarnok {

// What the library was initialised with.
struct LibrarySettings
{
    unsigned flags = 0;
    unsigned threadCount = 1;
    std::string cacheDirectory;
};

// Encodes the sounds on the workers, then writes the bank. All sounds are tried even when some fail, so that the log of
// one night lists all that must be mended; the result is that of the first failed sound in the order of the list.
// Failures that concern no single sound are reported for the bank as a whole, and so is a summary of those that do.
//
// Stops soon after `stop` was requested: within one block of samples, one packet, one piece of a file of 8 MiB or one
// call of the system, of which those that flush the finished bank to a slow disk are the longest.
class Build
{
public:
    Build(const LibrarySettings& library, const BuildRequest& request, ProgressQueue& queue, Remarks& remarks,
          std::stop_token stop);

    base::Result<> run();

private:
    base::Result<> runPhases();
    base::Result<> encodeSounds();
    base::Result<> writeContents(AtomicOutput& bank);
    base::Result<> verdict() const;
    bool has(unsigned initFlag) const { return mLibrary.flags & initFlag; }

    const LibrarySettings& mLibrary;
    const BuildRequest& mRequest;
    std::stop_token mStop;

    CacheFolder mCacheFolder;
    Cache mCache;
    RawRecords mRawRecords;
    SourceIndex mIndex;
    SourceIdentifier mSources;
    KessSystem mEngine;
    BuildServices mServices;
    BuildReports mReports;
    SoundResults mResults;
    SoundWorkers mWorkers;
};

} // namespace tarnok
