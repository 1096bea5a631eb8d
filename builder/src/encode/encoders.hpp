// SPDX-License-Identifier: MIT
// The encoders of this library, for makeEncoder.
#pragma once

#include "encode/encoder.hpp"

#include <memory>
#include <vector>

namespace builder {

// Stores samples unchanged.
class PcmEncoder final : public Encoder
{
public:
    base::Result<> encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                          bank::Sound* encoded) override;
};

// Converts samples to 16 bits and encodes them with bank::kadpcm.
class KadpcmEncoder final : public Encoder
{
public:
    base::Result<> encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                          bank::Sound* encoded) override;
};

// Maps quality 1 to 50 linearly to the library's -0.1 to 0.5, and 50 to 100 to its 0.5 to 1.0.
[[nodiscard]] float vorbisQuality(int quality);

// Produces Vorbis packets with libvorbis, without a container.
class VorbisEncoder final : public Encoder
{
public:
    VorbisEncoder();
    ~VorbisEncoder() override;

    base::Result<> encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                          bank::Sound* encoded) override;

private:
    struct Kind;

    base::Result<> chooseKind(const PreparedFacts& facts, int quality);

    std::vector<std::unique_ptr<Kind>> mKinds; // of recent sounds, the latest first
};

// Bits per second of one channel: 48,000 at quality 50 and 48 kHz, doubled for every 25 steps of quality. Lower rates
// need less; their factor decreases more slowly than the rate itself (24 kHz 0.75, 16 kHz 0.6, 12 kHz 0.5, 8 kHz 0.4).
[[nodiscard]] int opusBitsPerChannel(int quality, uint32_t sampleRate);

// Produces Opus packets with libopus, without a container.
class OpusEncoder final : public Encoder
{
public:
    base::Result<> encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                          bank::Sound* encoded) override;
};

// The result of a call of a codec's library: success, or ErrorCode::Codec.
[[nodiscard]] inline base::Result<> codecResult(bool succeeded)
{
    if (!succeeded)
        return base::Error{base::ErrorCode::Codec};
    return {};
}

// The part of a result that every encoder knows before it starts.
[[nodiscard]] bank::Sound describe(bank::Codec codec, const PreparedFacts& facts);

// Whether the loop includes the first or the last frame, so that the sound continues beyond it.
[[nodiscard]] bool loopsAtStart(const PreparedFacts& facts);
[[nodiscard]] bool loopsAtEnd(const PreparedFacts& facts);

} // namespace builder
