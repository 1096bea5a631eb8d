// SPDX-License-Identifier: MIT
// What the engine knows about one sound.
#pragma once

#include "kess.h"

#include "base/markers.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace engine {

// How a bank stores a sound.
struct Encoding
{
    KESS_CODEC codec = KESS_CODEC_UNKNOWN;
    int quality = 0; // 1 to 100, 0 for none
    uint64_t dataBytes = 0;
    uint64_t extraBytes = 0;
    uint64_t dataChecksum = 0;
};

// A range of a file that consists of the samples of a sound, as Decoder::read delivers them.
struct RawSamples
{
    uint64_t offset = 0;
    uint64_t bytes = 0;
};

// Everything that the engine reports about a sound.
struct SoundFacts
{
    KESS_SOUND_TYPE type = KESS_SOUND_TYPE_UNKNOWN;
    KESS_SOUND_FORMAT format = KESS_SOUND_FORMAT_NONE; // what Decoder::read delivers
    int channels = 0; // 1 to KESS_MAX_CHANNELS
    double sampleRate = 0; // hertz
    uint64_t sampleCount = 0; // samples of one channel
    uint64_t declaredCount = 0; // more than sampleCount: the file was cut short; decoders that don't know leave it 0
    std::optional<RawSamples> raw; // none where that isn't certain, too
    std::optional<base::Loop> loop;
    std::vector<base::SyncPoint> syncPoints; // by position
    std::vector<std::string> remarks; // what of the file is left out, in words
    std::optional<float> peak;
    std::string name;
    std::optional<Encoding> encoding; // of a sound in a bank
};

// Of the formats that Decoder::read delivers.
inline size_t bytesPerSample(KESS_SOUND_FORMAT format)
{
    return format == KESS_SOUND_FORMAT_PCMFLOAT ? 4 : static_cast<size_t>(format);
}

} // namespace engine
