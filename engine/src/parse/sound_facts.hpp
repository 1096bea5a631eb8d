// What the engine knows of one sound.
#pragma once

#include "kess.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kess {

// The stretch that is repeated.
struct Loop
{
    uint64_t start = 0; // first sample of the loop
    uint64_t end = 0; // the sample behind its last one
};

// A marked place.
struct SyncPoint
{
    uint64_t sample = 0;
    std::string name; // UTF-8, may be empty
};

// How a bank keeps a sound.
struct Encoding
{
    KESS_CODEC codec = KESS_CODEC_UNKNOWN;
    int quality = 0; // 1 to 100, 0 for none
    uint64_t dataBytes = 0;
    uint64_t extraBytes = 0;
};

// A stretch of a file that holds nothing but the samples of a sound, as Decoder::read delivers them.
struct RawSamples
{
    uint64_t offset = 0;
    uint64_t bytes = 0;
};

// All that the engine tells of a sound.
struct SoundFacts
{
    KESS_SOUND_TYPE type = KESS_SOUND_TYPE_UNKNOWN;
    KESS_SOUND_FORMAT format = KESS_SOUND_FORMAT_NONE; // what Decoder::read delivers
    int channels = 0; // 1 to KESS_MAX_CHANNELS
    double sampleRate = 0; // hertz
    uint64_t sampleCount = 0; // samples of one channel
    uint64_t declaredCount = 0; // more than sampleCount: the file was cut short; decoders that don't know leave it
    std::optional<RawSamples> raw; // none also where that isn't certain
    std::optional<Loop> loop;
    std::vector<SyncPoint> syncPoints; // by position
    uint64_t droppedSyncPoints = 0; // those inside the sound that are too many
    uint64_t droppedNames = 0; // of the sync points that are there
    std::optional<float> peak;
    std::string name;
    std::optional<Encoding> encoding; // of a sound in a bank
};

// Of the formats that Decoder::read delivers.
inline size_t bytesPerSample(KESS_SOUND_FORMAT format)
{
    return format == KESS_SOUND_FORMAT_PCMFLOAT ? 4 : static_cast<size_t>(format);
}

} // namespace kess
