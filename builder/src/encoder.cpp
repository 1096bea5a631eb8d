#include "encoder.hpp"

#include "encoders.hpp"

#include <opus/opus.h>
#include <vorbis/codec.h>

#include <algorithm>
#include <array>

namespace tarnok {

using bank::Codec;

namespace {

constexpr std::array<uint32_t, 5> kOpusRates = {8'000, 12'000, 16'000, 24'000, 48'000};

// What the library's tables of tunings cover.
constexpr uint32_t kVorbisHighestRate = 200'000;

// To be raised whenever an encoder of ours makes other bytes from the same sound.
constexpr int kPcmRevision = 1;
constexpr int kKadpcmRevision = 1;
constexpr int kVorbisRevision = 3;
constexpr int kOpusRevision = 3;

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
    switch (codec) {
    case Codec::Pcm:
        return std::make_unique<PcmEncoder>();
    case Codec::Kadpcm:
        return std::make_unique<KadpcmEncoder>();
    case Codec::Vorbis:
        return std::make_unique<VorbisEncoder>();
    case Codec::Opus:
        return std::make_unique<OpusEncoder>();
    case Codec::Xma:
    case Codec::At9:
        break;
    }
    return nullptr;
}

bool hasQuality(Codec codec)
{
    return codec != Codec::Pcm && codec != Codec::Kadpcm;
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

int maximumChannels(Codec)
{
    return bank::kMaximumChannels;
}

std::string encoderVersion(Codec codec)
{
    switch (codec) {
    case Codec::Pcm:
        return "PCM " + std::to_string(kPcmRevision);
    case Codec::Kadpcm:
        return "KADPCM " + std::to_string(kKadpcmRevision);
    case Codec::Vorbis:
        return "Vorbis " + std::to_string(kVorbisRevision) + ", " + vorbis_version_string();
    case Codec::Opus:
        return "Opus " + std::to_string(kOpusRevision) + ", " + opus_get_version_string();
    case Codec::Xma:
    case Codec::At9:
        break;
    }
    return {};
}

} // namespace tarnok
