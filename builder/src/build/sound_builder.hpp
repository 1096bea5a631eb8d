// One sound of a bank, from its source files to where its encoded data lies.
#pragma once

#include "cache/cache.hpp"
#include "cache/encoded_file.hpp"
#include "encode/encoder.hpp"
#include "encode/sound_settings.hpp"
#include "source/sound_preparation.hpp"
#include "source/source_file.hpp"
#include "source/source_identity.hpp"
#include "support/content_hash.hpp"
#include "support/fault.hpp"
#include "support/remarks.hpp"
#include "tarnok.h"

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace tarnok {

// What the workers of a build have in common. Each part is safe to use by all of them at once.
struct BuildMeans
{
    const KessSystem& engine;
    Cache& cache;
    SourceIdentifier& sources;
    Remarks& remarks;
    std::vector<std::string> spoolFolders; // for what is too long for memory; tried in this order
    std::stop_token stop;
};

// Finds a sound in the cache, or encodes it and stores it there. Each worker has one of its own, for one sound after
// the other, and with it the files for what the cache can't take.
class SoundBuilder
{
public:
    // Hears of each state of a sound that isn't found in the cache.
    using Report = std::function<void(TARNOK_STATE state)>;

    SoundBuilder(const BuildMeans& means, SpillFiles spills);

    // again: the sound was there before and is lost. It is put where nobody else comes: not into the cache, and not
    // left in its source file. Throws std::bad_alloc.
    Result<StoredPlace> build(const BankOrder& order, const TARNOK_SUBSOUND& subsound, bool again,
                              const Report& report);

private:
    struct Job
    {
        SoundSettings settings;
        std::vector<std::string> paths;
        bool again;
        const Report& report;
        std::vector<SourceIdentity> identities; // of the files when they were hashed
        ContentHash key; // of those and the settings
        std::string changed; // the file that was last found to be another one; empty: none was

        std::string shownName() const;
        // Whether the sound may stay in its source file.
        bool mayStay() const { return !again && settings.codec == bank::Codec::Pcm; }
    };

    Status identify(Job* job);
    std::optional<StoredPlace> find(const Job& job);
    std::optional<StoredPlace> findInSource(const Job& job);
    // Empty: the files are no longer those that the key was made from.
    Result<std::optional<StoredPlace>> encode(Job* job);
    Status prepare(const Job& job, SoundPreparation& preparation);
    Result<bool> hasChanged(Job* job, bool staysInSource);
    Status encodeInto(EncodedFile& file, const Job& job, SoundPreparation& preparation, bank::Sound* sound);
    // Leaves the sound where it is, if it stands in its source as the bank wants it. Answers whether that is so, and
    // then fills in sound.
    Result<bool> leaveInSource(const Job& job, SoundPreparation& preparation, bank::Sound* sound);
    StoredPlace keepInSource(const Job& job, const SoundPreparation& preparation, const bank::Sound& sound);
    Encoder& encoderFor(const SoundSettings& settings);

    const BuildMeans& mMeans;
    SpillFiles mSpills;
    std::unique_ptr<Encoder> mEncoder; // none before the first sound
};

} // namespace tarnok
