// Encodes one prepared sound into a stream of bytes and a bank::Sound that tells how to read it.
//
// Everything streams: memory doesn't grow with the length of a sound. The same sound and quality give the same bytes
// on every run, whatever the same object has encoded before. An encoder object is used by one thread, for one sound
// after the other; any number may work side by side.
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

namespace tarnok {

// Facts of a sound that is ready to be encoded: resampled, interleaved, its loop decided.
struct PreparedFacts
{
    int channels = 1; // 1 to bank::kMaximumChannels
    uint32_t sampleRate = 44'100; // hertz: encodingRate() of the codec
    bank::SampleFormat sampleFormat = bank::SampleFormat::Pcm16; // of readSamples()
    uint64_t sampleCount = 0; // frames, at least 1
    std::optional<base::Loop> loop; // none: the sound never loops
};

// How far before the first and behind the last frame of a sound an encoder reads, in frames.
inline constexpr int64_t kMaximumLookaround = 65'536;

// The samples of a sound that is ready to be encoded.
//
// An encoder that is to leave no seam at a loop hears the end of the loop before the sound's start and the start of the
// loop after its end. So frames are addressed by positions from -kMaximumLookaround to sampleCount +
// kMaximumLookaround, of which those outside the sound repeat frames of the loop as frameAt() tells, or are silent.
//
// An encoder seeks once to a position at or before the start, reads on without a gap to one at or behind the end, and
// may do all of that once more (two passes). It uses either readFloat or readSamples.
class PreparedSound
{
public:
    virtual ~PreparedSound() = default;

    [[nodiscard]] virtual const PreparedFacts& facts() const = 0;

    // The next read begins at position.
    virtual base::Result<> seek(int64_t position) = 0;

    // Delivers exactly count interleaved frames. Full scale is -1 to 1; samples beyond are delivered as they are,
    // samples that are no numbers as 0. An error ends the encoding and is what encode() answers; the source knows more.
    virtual base::Result<> readFloat(float* frames, size_t count) = 0;

    // The same in facts().sampleFormat, to the bit: count * channels * bank::bytesPerSample(sampleFormat) bytes.
    virtual base::Result<> readSamples(void* frames, size_t count) = 0;
};

// The frame of the sound that is heard at a position, none for silence. Inside the sound the position itself. Before
// the start, of a sound whose loop begins at its first frame: the end of the loop, again and again. Behind the end, of
// a sound whose loop ends at its last frame: the start of the loop, again and again. Everywhere else silence: an inner
// loop needs nothing from outside the sound, since what lies before and behind it is encoded as well.
[[nodiscard]] std::optional<uint64_t> frameAt(int64_t position, const PreparedFacts& facts);

// One codec as the pipeline uses it.
class Encoder
{
public:
    virtual ~Encoder() = default;

    // Encodes all of sound, writes the encoded data to sink in order, and fills every member of *encoded that is known
    // here: all but syncPoints and peak, which the caller adds. quality is 1 to 100 (PCM and KADPCM have none). Looks
    // at stop at least every 50 ms of work. ErrorCode::Cancelled; what sound or sink answered; ErrorCode::Unsupported:
    // the codec doesn't take these channels or this rate; ErrorCode::Codec: the codec's library failed.
    virtual base::Result<> encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                                  bank::Sound* encoded) = 0;
};

// Null for the codecs that need an external module (XMA, AT9); see encoder_module.hpp.
[[nodiscard]] std::unique_ptr<Encoder> makeEncoder(bank::Codec codec);

// As people write it: "Vorbis".
[[nodiscard]] const char* codecName(bank::Codec codec);

// The rate at which codec encodes a sound of sampleRate, both in hertz: the same where the codec takes it, otherwise
// the lowest it takes that keeps the whole spectrum, or its highest. Opus: 8, 12, 16, 24 and 48 kHz.
[[nodiscard]] uint32_t encodingRate(bank::Codec codec, uint32_t sampleRate);

// Names everything that decides about the bytes of this codec beside sound and quality: our own revision and the
// version of the codec's library. Part of the cache's key. Empty for the codecs of modules.
[[nodiscard]] std::string encoderVersion(bank::Codec codec);

} // namespace tarnok
