// One build, from the list of sounds to the finished bank.
#pragma once

#include "cache.hpp"
#include "encoded_file.hpp"
#include "encoder.hpp"
#include "fault.hpp"
#include "progress_queue.hpp"
#include "sound_preparation.hpp"
#include "sound_settings.hpp"
#include "source_file.hpp"
#include "source_identity.hpp"
#include "source_index.hpp"
#include "tarnok.h"

#include <atomic>
#include <functional>
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

// The arguments of one build, checked (see checkRequest).
struct BuildRequest
{
    std::span<const TARNOK_SUBSOUND> subsounds;
    BankOrder order;
    std::optional<std::string> encryptionKey;
    std::string outputFile;
};

// Puts the arguments of Tarnok_Build together. TARNOK_ERR_INVALID_PARAM, with a text that tells which, for what no
// build can be made of.
Result<BuildRequest> checkRequest(const TARNOK_SUBSOUND* subsounds, unsigned numSubsounds, TARNOK_FORMAT format,
                                  unsigned buildFlags, unsigned quality, const char* encryptionKey,
                                  const char* outputFileName);

// Encodes the sounds on the workers, then writes the bank. All sounds are tried even when some fail, so that the log of
// one night tells all that is to be mended; the result is that of the first failed sound in the order of the list.
// Failures that concern no single sound are reported for the bank as a whole.
//
// Stops soon after `stop` was requested: within one block of samples, one packet, one piece of a file of 4 MiB or one
// call of the system; what can take longer is the system's own flushing of the finished bank to a slow disk.
class Build
{
public:
    Build(const LibrarySettings& library, const BuildRequest& request, ProgressQueue& queue, std::stop_token stop);

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
    void loadModule();
    Status refuseSource(const std::string& outputFile) const;
    std::vector<size_t> longestFirst() const;
    std::vector<std::string> pathsOf(size_t index) const;

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
    std::optional<StoredPlace> findInSource(const Task& task, const SoundSettings& settings,
                                            const SourceIdentity& identity, const ContentHash& key);
    Result<StoredPlace> findOrEncode(const Task& task);
    // Empty: the files are no longer those that the key was made from.
    Result<std::optional<StoredPlace>> encode(const Task& task, const SoundSettings& settings,
                                              std::span<const std::string> paths,
                                              std::span<const SourceIdentity> identities, const ContentHash& key);
    Status encodeInto(EncodedFile& file, SoundPreparation& preparation, const SoundSettings& settings, const Task& task,
                      bank::Sound* sound);
    // Leaves the sound where it is, if it stands in its source as the bank wants it. Answers whether that is so, and
    // then fills in sound.
    Result<bool> leaveInSource(const Task& task, SoundPreparation& preparation, const SoundSettings& settings,
                               const std::string& path, const SourceIdentity& identity, bank::Sound* sound);
    StoredPlace keepInSource(const SoundPreparation& preparation, const SourceIdentity& identity,
                             const ContentHash& key, const bank::Sound& sound);
    Encoder& encoderOf(const Task& task, const SoundSettings& settings);
    void soundFailed(const Task& task, const Fault& fault);
    void keepUsedEntries();

    Status verdict() const;
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
    std::stop_token mStop;

    Cache mCache;
    SourceIndex mIndex;
    SourceIdentifier mSources;
    std::vector<std::string> mSpoolFolders;
    std::vector<SpillFiles> mSpills; // one a worker
    std::vector<std::unique_ptr<Encoder>> mEncoders; // one a worker, none before its first sound
    KessSystem mEngine;

    std::vector<std::optional<StoredPlace>> mPlaces; // by sound; none: failed, or not there yet
    std::mutex mMutex;
    size_t mFailedCount = 0;
    size_t mFirstFailed = 0;
    Fault mFirstFault;
    std::atomic<int64_t> mKeptAt; // when the entries in use were last marked, seconds
    std::vector<std::atomic<bool>> mDone;
};

} // namespace tarnok
