// SPDX-License-Identifier: MIT
// Encodes one prepared sound into a stream of bytes, and a bank::Sound that describes them.
//
// Memory doesn't grow with the length of a sound, since everything is streamed. The same sound and quality give the
// same bytes on every run, whatever the encoder object has encoded before. An encoder object is used by one thread and
// encodes one sound after the other; any number of objects may work in parallel.
#pragma once

#include "bank/sound.hpp"
#include "base/bytes.hpp"
#include "base/markers.hpp"
#include "base/result.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

namespace builder {

// The properties of a sound that is ready to be encoded, that is, resampled and interleaved, with its final loop.
struct PreparedFacts
{
    int channels = 1; // 1 to bank::kMaximumChannels
    uint32_t sampleRate = 44'100; // hertz: encodingRate() of the codec
    bank::SampleFormat sampleFormat = bank::SampleFormat::Pcm16; // of readSamples()
    uint64_t sampleCount = 0; // frames, at least 1
    std::optional<base::Loop> loop; // none: the sound never loops
};

// How far an encoder may read before the first and after the last frame of a sound, in frames.
inline constexpr int64_t kMaximumLookaround = 65'536;

// The samples of a sound that is ready to be encoded.
//
// To leave no seam at a loop, an encoder reads the end of the loop before the sound's start and the start of the loop
// after its end. So positions range from -kMaximumLookaround to sampleCount + kMaximumLookaround. Those outside the
// sound repeat frames of the loop as described at frameAt(), or are silent.
//
// An encoder seeks once to a position at or before the start, and reads without a gap to a position at or after the
// end. It may do all of that a second time (two passes). It uses either readFloat or readSamples.
class PreparedSound
{
public:
    virtual ~PreparedSound() = default;

    [[nodiscard]] virtual const PreparedFacts& facts() const = 0;

    // The next read starts at position.
    virtual base::Result<> seek(int64_t position) = 0;

    // Delivers exactly count interleaved frames. Full scale is -1 to 1; samples beyond it are delivered unchanged, NaN
    // as 0. An error ends the encoding and is returned by encode().
    virtual base::Result<> readFloat(float* frames, size_t count) = 0;

    // The same in facts().sampleFormat, bit-exact: count * channels * bank::bytesPerSample(sampleFormat) bytes.
    virtual base::Result<> readSamples(void* frames, size_t count) = 0;
};

// The frame of the sound that is heard at a position; nullopt for silence. Inside the sound it is the position itself.
// Before the start of a sound whose loop starts at its first frame, the end of the loop is repeated. After the end of a
// sound whose loop ends at its last frame, the start of the loop is repeated. Everywhere else there is silence: an
// inner loop needs nothing from outside the sound, since the frames before and after it are encoded as well.
[[nodiscard]] std::optional<uint64_t> frameAt(int64_t position, const PreparedFacts& facts);

// The interface between a codec and the pipeline.
class Encoder
{
public:
    virtual ~Encoder() = default;

    // Encodes all of sound, writes the encoded data to sink in order, and fills in all members of *encoded except
    // syncPoints and peak, which the caller adds. quality is 1 to 100 (ignored by PCM and KADPCM). Checks stop at least
    // every 50 ms. ErrorCode::Cancelled; the errors of sound and sink; ErrorCode::Unsupported: the codec doesn't
    // support this number of channels or this rate; ErrorCode::Codec: the codec's library failed.
    virtual base::Result<> encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                                  bank::Sound* encoded) = 0;
};

// Null for the codecs that need an external module (XMA, AT9); see encoder_module.hpp.
[[nodiscard]] std::unique_ptr<Encoder> makeEncoder(bank::Codec codec);

// The name for messages, for example "Vorbis".
[[nodiscard]] const char* codecName(bank::Codec codec);

// The rate at which codec encodes a sound of sampleRate, both in hertz: the same rate if the codec supports it,
// otherwise the lowest supported rate that keeps the whole spectrum, or the highest one. Opus: 8, 12, 16, 24 and 48
// kHz.
[[nodiscard]] uint32_t encodingRate(bank::Codec codec, uint32_t sampleRate);

// Identifies everything besides sound and quality that determines the bytes of this codec: our own revision and the
// version of the codec's library. Part of the cache key. Empty for the codecs of modules.
[[nodiscard]] std::string encoderVersion(bank::Codec codec);

} // namespace builder
