// SPDX-License-Identifier: MIT
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

namespace builder {

// The arguments with which the library was initialised.
struct LibrarySettings
{
    unsigned flags = 0;
    unsigned threadCount = 1;
    std::string cacheDirectory;
};

// Encodes the sounds on the workers, then writes the bank. All sounds are tried even if some fail, so that the log of
// a nightly build lists everything that must be fixed. The result is that of the first failed sound in the list.
// Failures that don't concern a single sound are reported for the bank as a whole, and so is a summary of the failed
// sounds.
//
// Stops soon after `stop` was requested: within one block of samples, one packet, 8 MiB of a file or one system call.
// The longest calls are those that flush the finished bank to a slow disk.
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

} // namespace builder
