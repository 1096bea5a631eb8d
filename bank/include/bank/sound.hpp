// SPDX-License-Identifier: MIT
// One encoded sound: its properties, without the encoded data, and their serialised form.
//
// Banks and the entries of the builder's cache contain the same serialised form, so a cached sound is copied into a
// bank unchanged. The form consists of
//
//     record      codec, channels, rate, lengths, sizes and checksums; kSoundRecordBytes long, laid out like
//                 a row of a bank's sound table
//     setup size  u32, followed by a u32 of zero
//     setup       what the decoder needs first (Vorbis headers, Opus channel mapping); a bank stores equal ones once
//     chunks      everything optional: loop, sync points, peak, seek table, corrections around the loop's seam
//
// The encoded data is stored separately. docs/tnb-format.md describes every field.
#pragma once

#include "bank/correction.hpp"
#include "base/bytes.hpp"
#include "base/markers.hpp"
#include "base/result.hpp"

#include <optional>
#include <string>
#include <vector>

namespace bank {

inline constexpr int kMaximumChannels = 32;
inline constexpr uint32_t kMaximumSampleRate = 768'000; // hertz
inline constexpr uint32_t kMaximumQuality = 100;
inline constexpr uint32_t kMaximumPreSkip = 131'072;
inline constexpr size_t kMaximumNameBytes = 65'535; // of a sound or a sync point
inline constexpr size_t kMaximumSetupBytes = 1 << 20;
inline constexpr size_t kMaximumSyncPoints = 65'536;
inline constexpr size_t kMaximumSeekPoints = 131'072;
inline constexpr size_t kMaximumChunksBytes = 8 << 20; // of all chunks of a sound
inline constexpr size_t kMaximumPacketBytes = (1 << 21) - 1; // of a Vorbis or Opus packet
// No codec decodes one byte to more samples of a channel: a Vorbis packet has at least one byte and at most 8,192
// samples.
inline constexpr uint64_t kMaximumSamplesPerByte = 8192;
inline constexpr size_t kSoundRecordBytes = 96;

// How the data of a sound is encoded. The numbers are those of TARNOK_FORMAT and are stored in banks.
enum class Codec : uint8_t
{
    Pcm = 0,
    Xma = 1,
    At9 = 2,
    Vorbis = 3,
    Kadpcm = 4,
    Opus = 5,
};
inline constexpr size_t kCodecCount = 6;

// The format of samples: interleaved, little-endian; 8 bits are signed, 24 bits are packed in 3 bytes, and floats have
// a full scale of -1 to 1. The numbers are those of KESS_SOUND_FORMAT and are stored in banks.
enum class SampleFormat : uint8_t
{
    None = 0,
    Pcm8 = 1,
    Pcm16 = 2,
    Pcm24 = 3,
    Pcm32 = 4,
    Float = 5,
};

// Whether the codec has a quality setting.
[[nodiscard]] constexpr bool hasQuality(Codec codec)
{
    return codec != Codec::Pcm && codec != Codec::Kadpcm;
}

// Bytes of one sample of one channel; 0 for None and for unknown numbers.
[[nodiscard]] size_t bytesPerSample(SampleFormat format);

// A position from which decoding can begin: after a reset, a decoder that is given the packets from offset on first
// delivers the sample at position. Positions count decoded samples from the start of the stream, so the first sample of
// the sound is at position preSkip. Both members rise strictly from point to point. The start of the stream (0, 0) is
// always a seek point and isn't listed.
struct SeekPoint
{
    uint64_t position = 0;
    uint64_t offset = 0;

    bool operator==(const SeekPoint&) const = default;
};

// What a row of the sound table says about the encoded data. All positions and lengths count frames: one sample of
// every channel.
struct EncodedFacts
{
    Codec codec = Codec::Pcm;
    SampleFormat sampleFormat = SampleFormat::Pcm16; // of PCM data; Pcm16 for other codecs, since they decode to it
    uint16_t channels = 1; // 1 to kMaximumChannels
    uint32_t sampleRate = 44'100; // hertz, 1 to kMaximumSampleRate
    uint64_t sampleCount = 0; // length of the sound; 0 if it couldn't be encoded
    uint32_t preSkip = 0; // decoded frames to drop before the first one of the sound, at most kMaximumPreSkip
    uint8_t quality = 0; // 1 to 100 for codecs that have one, otherwise 0
    uint64_t dataBytes = 0; // size of the encoded data
    uint64_t dataChecksum = 0; // XXH3-64 of the encoded data

    bool operator==(const EncodedFacts&) const = default;
};

// All properties of one encoded sound.
struct Sound : EncodedFacts
{
    std::vector<uint8_t> setup;

    std::optional<base::Loop> loop;
    // In order of their frames, at most kMaximumSyncPoints. Names contain no NUL and have at most kMaximumNameBytes.
    std::vector<base::SyncPoint> syncPoints;
    std::optional<float> peak; // largest absolute sample of the source, 1 is full scale
    std::vector<SeekPoint> seekPoints; // at most kMaximumSeekPoints
    std::vector<Correction> corrections; // only with codecs that decode to float

    bool operator==(const Sound&) const = default;
};

// The placeholder for a sound that couldn't be encoded: PCM without samples or data.
[[nodiscard]] Sound emptySound();

// Returns the serialised form of sound, whose members must be in the ranges above (asserted).
[[nodiscard]] std::vector<uint8_t> serialise(const Sound& sound);

// Reads the serialised form, which must fill bytes exactly. Skips chunks with unknown tags. ErrorCode::Damaged: a value
// is outside the ranges above, or the chunks don't match their checksum.
base::Result<Sound> deserialise(std::span<const uint8_t> bytes);

} // namespace bank
