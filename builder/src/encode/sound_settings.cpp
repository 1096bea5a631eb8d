// SPDX-License-Identifier: MIT
#include "encode/sound_settings.hpp"

#include <soxr.h>

#include <algorithm>
#include <cmath>

namespace builder {

// The formats of the interface and the codecs of the container have the same numbers.
static_assert(int(bank::Codec::Pcm) == TARNOK_FORMAT_PCM && int(bank::Codec::Xma) == TARNOK_FORMAT_XMA
              && int(bank::Codec::At9) == TARNOK_FORMAT_AT9 && int(bank::Codec::Vorbis) == TARNOK_FORMAT_VORBIS
              && int(bank::Codec::Kadpcm) == TARNOK_FORMAT_KADPCM && int(bank::Codec::Opus) == TARNOK_FORMAT_OPUS
              && bank::kCodecCount == TARNOK_FORMAT_OPUS + 1);

namespace {

// Must be raised whenever the code between source and encoder (decoding, interleaving, loop handling, resampling,
// dither) produces something else from the same source and settings. Encoders have versions of their own.
constexpr uint64_t kPipelineRevision = 6;

} // namespace

SoundSettings SoundSettings::resolve(const BuildSettings& build, const TARNOK_SUBSOUND& subsound)
{
    const unsigned flags = build.flags ^ (subsound.overrideFlags & TARNOK_BUILD_OVERRIDE_MASK);
    const unsigned quality = subsound.overrideQuality != 0 ? subsound.overrideQuality : build.quality;

    SoundSettings settings;
    settings.codec = bank::Codec(build.format);
    settings.quality = bank::hasQuality(settings.codec) ? int(std::clamp(quality, 1u, 100u)) : 1;
    settings.loop = !(flags & TARNOK_BUILD_DONTLOOP);
    settings.syncPoints = !(flags & TARNOK_BUILD_DISABLESYNCPOINTS);
    settings.peak = flags & TARNOK_BUILD_WRITEPEAKVOLUME;
    settings.desiredRate = uint32_t(std::lround(subsound.desiredSampleRate));
    settings.module = build.module;
    if (settings.module)
        settings.moduleFlags = flags & (TARNOK_BUILD_FILTERHIGHFREQ | TARNOK_BUILD_DISABLESEEKING);
    settings.lowestRate = (flags & TARNOK_BUILD_OPTIMIZESAMPLERATE) && settings.desiredRate == 0;
    return settings;
}

bool SoundSettings::isRate(float desiredSampleRate)
{
    return desiredSampleRate == 0 || (desiredSampleRate >= 1 && desiredSampleRate <= float(bank::kMaximumSampleRate));
}

ContentHash SoundSettings::cacheKey(std::span<const ContentHash> sources) const
{
    ContentHasher hasher;
    hasher.addNumber(kPipelineRevision);
    hasher.addText(soxr_version());
    hasher.addNumber(uint64_t(codec));
    hasher.addText(module ? module->version() : encoderVersion(codec));
    for (const uint64_t setting : {uint64_t(quality), uint64_t(loop), uint64_t(syncPoints), uint64_t(peak),
                                   uint64_t(lowestRate), uint64_t(desiredRate), uint64_t(moduleFlags)})
        hasher.addNumber(setting);
    hasher.addNumber(sources.size());
    for (const ContentHash& source : sources)
        hasher.add(std::as_bytes(std::span(source.bytes)));
    return hasher.digest();
}

std::unique_ptr<Encoder> SoundSettings::makeEncoder() const
{
    return module ? module->makeEncoder(moduleFlags) : builder::makeEncoder(codec);
}

uint32_t SoundSettings::encodingRate(uint32_t sampleRate) const
{
    return module ? module->encodingRate(sampleRate) : builder::encodingRate(codec, sampleRate);
}

int SoundSettings::maximumChannels() const
{
    return module ? module->maximumChannels() : bank::kMaximumChannels;
}

} // namespace builder
