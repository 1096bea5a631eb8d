// One sound of a bank, from its source files to its encoded data.
#pragma once

#include "base/result.hpp"
#include "build/build_services.hpp"
#include "cache/encoded_file.hpp"
#include "cache/encoded_location.hpp"
#include "encode/encoder.hpp"
#include "encode/sound_settings.hpp"
#include "source/sound_preparation.hpp"
#include "source/source_identity.hpp"
#include "support/content_hash.hpp"
#include "tarnok.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnok {

// Finds a sound in the cache, or encodes it and stores it there. Each worker has one of its own, for one sound after
// the other, and with it the files for what the cache can't take.
class SoundBuilder
{
public:
    // Called with each state of a sound that isn't found in the cache.
    using Report = std::function<void(TARNOK_STATE state)>;

    SoundBuilder(const BuildServices& services, SpillFiles spills);

    // again: the sound was finished before and is lost. It goes neither into the cache nor is it left in its source
    // file, so that nobody else can remove or change it. Throws std::bad_alloc.
    base::Result<EncodedLocation> build(const BuildSettings& settings, const TARNOK_SUBSOUND& subsound, bool again,
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

    base::Result<> identify(Job* job);
    std::optional<EncodedLocation> find(const Job& job);
    std::optional<EncodedLocation> findInSource(const Job& job);
    // Empty: the files are no longer those that the key was made from.
    base::Result<std::optional<EncodedLocation>> encode(Job* job);
    base::Result<> prepare(const Job& job, SoundPreparation& preparation);
    base::Result<bool> hasChanged(Job* job, bool staysInSource);
    base::Result<> encodeInto(EncodedFile& file, const Job& job, SoundPreparation& preparation, bank::Sound* sound);
    // Leaves the sound where it is, if it is in its source as the bank wants it. Returns whether that is so, and then
    // fills in sound.
    base::Result<bool> leaveInSource(const Job& job, SoundPreparation& preparation, bank::Sound* sound);
    EncodedLocation keepInSource(const Job& job, const SoundPreparation& preparation, const bank::Sound& sound);
    Encoder& encoderFor(const SoundSettings& settings);

    const BuildServices& mServices;
    SpillFiles mSpills;
    std::unique_ptr<Encoder> mEncoder; // none before the first sound
};

} // namespace tarnok
