// SPDX-License-Identifier: MIT
#include "encode/encoder.hpp"

#include "encode/encoders.hpp"

#include <opus/opus.h>
#include <vorbis/codec.h>

#include <algorithm>
#include <array>

namespace builder {

using bank::Codec;

namespace {

constexpr std::array<uint32_t, 5> kOpusRates = {8'000, 12'000, 16'000, 24'000, 48'000};

// The limit of libvorbis's tuning tables.
constexpr uint32_t kVorbisHighestRate = 200'000;

template <typename Made>
std::unique_ptr<Encoder> make()
{
    return std::make_unique<Made>();
}

// The properties of one codec.
struct CodecEntry
{
    const char* name;
    int revision; // raised whenever our encoder produces other bytes from the same sound
    const char* (*libraryVersion)(); // null: no library
    std::unique_ptr<Encoder> (*make)(); // null: encoded by an external module
};

// Indexed by Codec.
constexpr std::array<CodecEntry, bank::kCodecCount> kCodecs = {{
    {"PCM", 1, nullptr, make<PcmEncoder>},
    {"XMA", 0, nullptr, nullptr},
    {"AT9", 0, nullptr, nullptr},
    {"Vorbis", 4, vorbis_version_string, make<VorbisEncoder>},
    {"KADPCM", 2, nullptr, make<KadpcmEncoder>},
    {"Opus", 4, opus_get_version_string, make<OpusEncoder>},
}};

const CodecEntry& codecEntry(Codec codec)
{
    return kCodecs[size_t(codec)];
}

} // namespace

std::optional<uint64_t> frameAt(int64_t position, const PreparedFacts& facts)
{
    if (position >= 0 && uint64_t(position) < facts.sampleCount)
        return uint64_t(position);
    if (position < 0 && loopsAtStart(facts)) {
        const int64_t length = int64_t(facts.loop->end);
        return uint64_t((position % length + length) % length);
    }
    if (position >= 0 && loopsAtEnd(facts)) {
        const uint64_t length = facts.loop->end - facts.loop->start;
        return facts.loop->start + (uint64_t(position) - facts.sampleCount) % length;
    }
    return std::nullopt;
}

bool loopsAtStart(const PreparedFacts& facts)
{
    return facts.loop && facts.loop->start == 0;
}

bool loopsAtEnd(const PreparedFacts& facts)
{
    return facts.loop && facts.loop->end == facts.sampleCount;
}

bank::Sound describe(Codec codec, const PreparedFacts& facts)
{
    bank::Sound sound;
    sound.codec = codec;
    sound.sampleFormat = codec == Codec::Pcm ? facts.sampleFormat : bank::SampleFormat::Pcm16;
    sound.channels = uint16_t(facts.channels);
    sound.sampleRate = facts.sampleRate;
    sound.sampleCount = facts.sampleCount;
    sound.loop = facts.loop;
    return sound;
}

std::unique_ptr<Encoder> makeEncoder(Codec codec)
{
    const CodecEntry& entry = codecEntry(codec);
    return entry.make ? entry.make() : nullptr;
}

const char* codecName(Codec codec)
{
    return codecEntry(codec).name;
}

uint32_t encodingRate(Codec codec, uint32_t sampleRate)
{
    if (codec == Codec::Opus) {
        const auto* rate = std::lower_bound(kOpusRates.begin(), kOpusRates.end(), sampleRate);
        return rate == kOpusRates.end() ? kOpusRates.back() : *rate;
    }
    if (codec == Codec::Vorbis)
        return std::min(sampleRate, kVorbisHighestRate);
    return sampleRate;
}

std::string encoderVersion(Codec codec)
{
    const CodecEntry& entry = codecEntry(codec);
    if (!entry.make)
        return {};
    const std::string own = std::string(entry.name) + ' ' + std::to_string(entry.revision);
    return entry.libraryVersion ? own + ", " + entry.libraryVersion() : own;
}

} // namespace builder
