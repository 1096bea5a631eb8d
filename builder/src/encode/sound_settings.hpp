// The settings of one sound, after its overrides.
#pragma once

#include "bank/sound.hpp"
#include "encode/encoder.hpp"
#include "encode/encoder_module.hpp"
#include "support/content_hash.hpp"
#include "tarnok.h"

#include <memory>
#include <span>

namespace tarnok {

// The settings of the build as a whole.
struct BuildSettings
{
    TARNOK_FORMAT format = TARNOK_FORMAT_PCM;
    unsigned flags = 0;
    unsigned quality = 0; // 0 to 100
    std::shared_ptr<const EncoderModule> module; // of a format that is encoded by one, once it is loaded
};

// What the build is told of one sound, in terms of the pipeline.
struct SoundSettings
{
    bank::Codec codec = bank::Codec::Pcm;
    int quality = 1; // 1 to 100; 1 for codecs that have none
    bool loop = true;
    bool syncPoints = true;
    bool peak = false;
    bool lowestRate = false; // find the lowest rate that keeps what is audible
    uint32_t desiredRate = 0; // hertz, 0: that of the source
    unsigned moduleFlags = 0; // the flags that only a module knows
    std::shared_ptr<const EncoderModule> module; // none: the codec is our own

    // Applies the overrides of one sound. desiredSampleRate has been checked (see isRate). A wish for a rate is
    // explicit, so the search for the lowest one doesn't apply then. Flags that only XMA knows have no effect on the
    // codecs of our own.
    static SoundSettings resolve(const BuildSettings& build, const TARNOK_SUBSOUND& subsound);

    // Whether a desired sample rate is one: 0, or 1 to bank::kMaximumSampleRate.
    static bool isRate(float desiredSampleRate);

    // The key in the cache of a sound with these settings made of these sources, in this order: everything that decides
    // about its bytes.
    ContentHash cacheKey(std::span<const ContentHash> sources) const;

    // Those of encoder.hpp, for the codec or its module.
    std::unique_ptr<Encoder> makeEncoder() const;
    uint32_t encodingRate(uint32_t sampleRate) const;
    int maximumChannels() const; // of one sound
};

} // namespace tarnok
