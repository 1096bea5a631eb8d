// SPDX-License-Identifier: MIT
// The settings of one sound, after its overrides.
#pragma once

#include "bank/sound.hpp"
#include "encode/encoder.hpp"
#include "encode/encoder_module.hpp"
#include "support/content_hash.hpp"
#include "tarnok.h"

#include <memory>
#include <span>

namespace builder {

// The settings of the build as a whole.
struct BuildSettings
{
    TARNOK_FORMAT format = TARNOK_FORMAT_PCM;
    unsigned flags = 0;
    unsigned quality = 0; // 0 to 100
    std::shared_ptr<const EncoderModule> module; // for a format that is encoded by a module; null until it is loaded
};

// The settings of one sound, in terms of the pipeline.
struct SoundSettings
{
    bank::Codec codec = bank::Codec::Pcm;
    int quality = 1; // 1 to 100; 1 for codecs without a quality
    bool loop = true;
    bool syncPoints = true;
    bool peak = false;
    bool lowestRate = false; // find the lowest rate that keeps everything audible
    uint32_t desiredRate = 0; // hertz; 0 means that of the source
    unsigned moduleFlags = 0; // the flags that only modules use
    std::shared_ptr<const EncoderModule> module; // null: the codec is our own

    // Applies the overrides of one sound. desiredSampleRate must be valid (see isRate). If it is set, the lowest rate
    // isn't searched for. Flags for XMA have no effect on our own codecs.
    static SoundSettings resolve(const BuildSettings& build, const TARNOK_SUBSOUND& subsound);

    // Whether a desired sample rate is valid: 0, or 1 to bank::kMaximumSampleRate.
    static bool isRate(float desiredSampleRate);

    // The cache key of a sound with these settings that is made of these sources, in this order. It covers everything
    // that determines the sound's bytes.
    ContentHash cacheKey(std::span<const ContentHash> sources) const;

    // Like the functions of the same names in encoder.hpp, for the codec or its module.
    std::unique_ptr<Encoder> makeEncoder() const;
    uint32_t encodingRate(uint32_t sampleRate) const;
    int maximumChannels() const; // of one sound
};

} // namespace builder
