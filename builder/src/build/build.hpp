// One build, from the list of sounds to the finished bank.
#pragma once

#include "build/build_request.hpp"
#include "build/progress_queue.hpp"
#include "build/sound_builder.hpp"
#include "cache/cache.hpp"
#include "cache/encoded_file.hpp"
#include "source/source_file.hpp"
#include "source/source_identity.hpp"
#include "source/source_index.hpp"
#include "support/fault.hpp"
#include "support/remarks.hpp"
#include "tarnok.h"

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

namespace tarnok {

// What the library was initialised with.
struct LibrarySettings
{
    unsigned flags = 0;
    unsigned threadCount = 1;
    std::string cacheDirectory;
};

// Encodes the sounds on the workers, then writes the bank. All sounds are tried even when some fail, so that the log of
// one night tells all that is to be mended; the result is that of the first failed sound in the order of the list.
// Failures that concern no single sound are reported for the bank as a whole, and so is a summary of those that do.
//
// Stops soon after `stop` was requested: within one block of samples, one packet, one piece of a file of 8 MiB or one
// call of the system, of which those that flush the finished bank to a slow disk are the longest.
class Build
{
public:
    Build(const LibrarySettings& library, const BuildRequest& request, ProgressQueue& queue, Remarks& remarks,
          std::stop_token stop);

    Status run();

private:
    class Stored;
    struct Outputs;

    // Which worker is on which sound.
    struct Task
    {
        size_t index;
        unsigned worker;
        bool again = false; // it was finished and is lost: nothing is reported, and it is put where it stays
    };

    Status runPhases();
    Status openOutputs(Outputs* outputs) const;
    Status countWorkers();
    void loadModule();
    Status refuseSource(const std::string& outputFile) const;
    std::vector<size_t> longestFirst() const;

    void buildSound(const Task& task) noexcept;
    Result<StoredPlace> tryToBuild(const Task& task);
    // Encodes the sounds from first on that are no longer in the cache.
    Status encodeLost(size_t first);
    // Encodes the sounds whose source files are no longer those that were read: `found`, and any other; or all that are
    // left in their source files.
    Status encodeChanged(size_t found, bool all);
    // Hands each sound to take, on the workers.
    void encodeAgain(std::span<const size_t> sounds,
                     const std::function<void(const Task& task, Result<StoredPlace> place)>& take);
    void soundFailed(const Task& task, const Fault& fault);
    void keepUsedEntries();

    Status verdict() const;
    std::string failedSounds() const;
    Status writeBank(Outputs* outputs);
    Status writeSounds(Outputs* outputs, Stored& stored);
    Status writeHeader(Outputs* outputs) const;

    void report(const Task& task, TARNOK_STATE state);
    void reportBank(TARNOK_STATE state, const Fault& fault = {});
    bool has(unsigned initFlag) const { return mLibrary.flags & initFlag; }

    const LibrarySettings& mLibrary;
    const BuildRequest& mRequest;
    BankOrder mOrder; // that of the request, with the module loaded
    std::optional<Fault> mModuleFault;
    ProgressQueue& mQueue;
    Remarks& mRemarks;
    std::stop_token mStop;

    Cache mCache;
    SourceIndex mIndex;
    SourceIdentifier mSources;
    KessSystem mEngine;
    BuildMeans mMeans;
    std::vector<SoundBuilder> mBuilders; // one a worker
    unsigned mWorkers = 1; // that the memory can carry

    std::vector<std::optional<StoredPlace>> mPlaces; // by sound; none: failed, or not there yet
    std::mutex mMutex;
    size_t mFailedCount = 0;
    std::map<size_t, Fault> mFirstFaults; // of the first failed sounds in the list
    std::atomic<int64_t> mKeptAt; // when the entries in use were last marked, seconds
    std::vector<std::atomic<bool>> mDone;
};

} // namespace tarnok
