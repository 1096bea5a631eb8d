// The encoders of this library, for makeEncoder.
#pragma once

#include "encode/encoder.hpp"

#include <memory>
#include <vector>

namespace tarnok {

// Stores samples as they are.
class PcmEncoder final : public Encoder
{
public:
    base::Result<> encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                          bank::Sound* encoded) override;
};

// Brings samples to 16 bits and has them encoded by bank::kadpcm.
class KadpcmEncoder final : public Encoder
{
public:
    base::Result<> encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                          bank::Sound* encoded) override;
};

// Quality 1 to 50 is the library's -0.1 to 0.5, 50 to 100 its 0.5 to 1.0, both in even steps.
[[nodiscard]] float vorbisQuality(int quality);

// Vorbis packets by libvorbis, without a container around them.
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

    std::vector<std::unique_ptr<Kind>> mKinds; // of recent sounds, the last one's first
};

// Bits a second of one channel: 48,000 at quality 50 and 48 kHz, doubled for every 25 of quality more. A lower rate
// has less to tell and gets a share that falls slower than the rate itself (24 kHz 0.75, 16 kHz 0.6, 12 kHz 0.5,
// 8 kHz 0.4).
[[nodiscard]] int opusBitsPerChannel(int quality, uint32_t sampleRate);

// Opus packets by libopus, without a container around them.
class OpusEncoder final : public Encoder
{
public:
    base::Result<> encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                          bank::Sound* encoded) override;
};

// What a call of a codec's library gave: success, or ErrorCode::Codec.
[[nodiscard]] inline base::Result<> codecResult(bool succeeded)
{
    if (!succeeded)
        return base::Error{base::ErrorCode::Codec};
    return {};
}

// What every encoder knows of its result before it begins.
[[nodiscard]] bank::Sound describe(bank::Codec codec, const PreparedFacts& facts);

// Whether the loop reaches the first or the last frame, so that the sound goes on beyond it.
[[nodiscard]] bool loopsAtStart(const PreparedFacts& facts);
[[nodiscard]] bool loopsAtEnd(const PreparedFacts& facts);

} // namespace tarnok
