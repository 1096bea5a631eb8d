// One encoded sound: what is known of it beside its encoded bytes, and the one form in which that is stored.
//
// The same serialised form stands in a bank and in an entry of the builder's cache, so that a cached sound goes into a
// bank by copying. It is
//
//     record     kSoundRecordBytes   codec, shape, sizes and checksums; the row of a bank's sound table
//     setup size u32, then u32 zero
//     setup      the decoder's setup, shared between the sounds of a bank (Vorbis headers, Opus channel mapping)
//     chunks     everything optional: loop, sync points, peak, seek table, corrections around the loop's seam
//
// and the encoded data is stored apart from it. docs/tnb-format.md tells every field.
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
inline constexpr uint32_t kMaximumLeadIn = 131'072;
inline constexpr size_t kMaximumNameBytes = 65'535; // of a sound or a sync point
inline constexpr size_t kMaximumSetupBytes = 1 << 20;
inline constexpr size_t kMaximumSyncPoints = 65'536;
inline constexpr size_t kMaximumSeekPoints = 131'072;
inline constexpr size_t kMaximumChunksBytes = 8 << 20; // of all that is optional in a sound
inline constexpr size_t kMaximumPacketBytes = (1 << 21) - 1; // of a Vorbis or Opus packet
inline constexpr size_t kSoundRecordBytes = 96;

// How the data of a sound is encoded. The numbers are those of TARNOK_FORMAT and are stored.
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

// Kind of a sample: interleaved, little-endian, 8-bit signed, 24-bit packed in 3 bytes, float at full scale -1 to 1.
// The numbers are those of KESS_SOUND_FORMAT and are stored.
enum class SampleFormat : uint8_t
{
    None = 0,
    Pcm8 = 1,
    Pcm16 = 2,
    Pcm24 = 3,
    Pcm32 = 4,
    Float = 5,
};

// Whether a quality has a meaning for the codec.
[[nodiscard]] constexpr bool hasQuality(Codec codec)
{
    return codec != Codec::Pcm && codec != Codec::Kadpcm;
}

// Bytes of one sample of one channel; 0 for None and for a number that is none of the above.
[[nodiscard]] size_t bytesPerSample(SampleFormat format);

// A place from which decoding can begin: a decoder that is reset and fed from the packet at offset delivers the sample
// at position first. Positions count decoded samples from the first that a decoder delivers for the whole stream, so
// that the sound's own first sample is at position leadIn. Both members rise strictly from point to point; the start
// of the stream (0, 0) is a seek point without being listed.
struct SeekPoint
{
    uint64_t position = 0;
    uint64_t offset = 0;

    bool operator==(const SeekPoint&) const = default;
};

// What the row of a sound table holds of the encoded data. All positions and lengths are frames: samples of one
// channel.
struct EncodedFacts
{
    Codec codec = Codec::Pcm;
    SampleFormat sampleFormat = SampleFormat::Pcm16; // PCM: of the data. Others: what decoding to integers gives, Pcm16
    uint16_t channels = 1; // 1 to kMaximumChannels
    uint32_t sampleRate = 44'100; // hertz, 1 to kMaximumSampleRate
    uint64_t sampleCount = 0; // length of the sound; 0 for one that couldn't be encoded
    uint32_t leadIn = 0; // decoded samples to drop before the first of the sound, at most kMaximumLeadIn
    uint8_t quality = 0; // 1 to 100 for the codecs that have one, otherwise 0
    uint64_t dataBytes = 0; // size of the encoded data
    uint64_t dataChecksum = 0; // XXH3-64 of the encoded data

    bool operator==(const EncodedFacts&) const = default;
};

// All that is known of one encoded sound.
struct Sound : EncodedFacts
{
    std::vector<uint8_t> setup;

    std::optional<base::Loop> loop;
    // By rising frame, at most kMaximumSyncPoints. Their names have no NUL, and at most kMaximumNameBytes.
    std::vector<base::SyncPoint> syncPoints;
    std::optional<float> peak; // largest absolute sample of the source, 1 is full scale
    std::vector<SeekPoint> seekPoints; // at most kMaximumSeekPoints
    std::vector<Correction> corrections; // of the codecs that decode to float

    bool operator==(const Sound&) const = default;
};

// The place-holder of a sound that couldn't be encoded: PCM without samples or data.
[[nodiscard]] Sound emptySound();

// Puts sound into its stored form. sound is valid by the ranges above (asserted).
[[nodiscard]] std::vector<uint8_t> serialise(const Sound& sound);

// Reads the stored form, which must fill bytes exactly. Chunks of an unknown tag are skipped. Every value is checked
// against the ranges above and the checksum of the chunks is verified. ErrorCode::Damaged: any of it fails.
base::Result<Sound> deserialise(std::span<const uint8_t> bytes);

} // namespace bank
