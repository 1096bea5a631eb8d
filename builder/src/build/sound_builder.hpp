// SPDX-License-Identifier: MIT
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

namespace builder {

// Finds a sound in the cache, or encodes it and stores it there. Each worker has its own builder for all its sounds,
// with its own files for sounds that the cache can't store.
class SoundBuilder
{
public:
    // Called with each state of a sound that wasn't found in the cache.
    using Report = std::function<void(TARNOK_STATE state)>;

    SoundBuilder(const BuildServices& services, SpillFiles spills);

    // again: the sound was finished before and was lost. It is then neither stored in the cache nor left in its source
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
        std::vector<SourceIdentity> identities; // of the files, when they were hashed
        ContentHash key; // of those and the settings
        std::string changed; // the last file that was found to have changed; empty if none has

        std::string shownName() const;
        // Whether the sound may stay in its source file.
        bool mayStayInSource() const { return !again && settings.codec == bank::Codec::Pcm; }
    };

    base::Result<> identify(Job* job);
    std::optional<EncodedLocation> find(const Job& job);
    std::optional<EncodedLocation> findInSource(const Job& job);
    // nullopt: the files have changed since the key was computed.
    base::Result<std::optional<EncodedLocation>> encode(Job* job);
    base::Result<> prepare(const Job& job, SoundPreparation& preparation);
    base::Result<bool> hasChanged(Job* job, bool staysInSource);
    base::Result<> encodeInto(EncodedFile& file, const Job& job, SoundPreparation& preparation, bank::Sound* sound);
    // Fills in sound and returns true if the source contains the data exactly as the bank will, so that the sound can
    // stay there.
    base::Result<bool> leaveInSource(const Job& job, SoundPreparation& preparation, bank::Sound* sound);
    EncodedLocation keepInSource(const Job& job, const SoundPreparation& preparation, const bank::Sound& sound);
    Encoder& encoderFor(const SoundSettings& settings);

    const BuildServices& mServices;
    SpillFiles mSpills;
    std::unique_ptr<Encoder> mEncoder; // null before the first sound
};

} // namespace builder
