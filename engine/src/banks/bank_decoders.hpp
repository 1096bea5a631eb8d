// SPDX-License-Identifier: MIT
// The decoders of the sounds in a bank, one for each codec.
#pragma once

#include "banks/encoded_data.hpp"
#include "decode/decoder.hpp"

#include <memory>
#include <span>

namespace engine {

// How long an Opus decoder may still be wrong after a seek point (RFC 7845, 4.6).
inline constexpr uint64_t kOpusPrerollMilliseconds = 80;

// Of the setup of an Opus sound: two counts of streams, and a byte for each channel.
inline constexpr uint32_t kMaximumOpusSetupBytes = 2 + KESS_MAX_CHANNELS;

// A sound to be decoded: the facts that the engine reports, those that the bank stores, and the encoded data.
struct BankSound
{
    SoundFacts facts;
    bank::Sound stored; // without the setup
    EncodedData data;
};

// Vorbis headers, unpacked once for all sounds of a bank that share them.
class VorbisSetup;
using VorbisSetupPointer = std::shared_ptr<const VorbisSetup>;

// ErrorCode::Damaged: the headers are damaged.
base::Result<VorbisSetupPointer> makeVorbisSetup(std::span<const uint8_t> setup);

// ErrorCode::Damaged: setup and sound don't match. ErrorCode::Memory, or std::bad_alloc.
base::Result<DecoderPointer> makePcmDecoder(BankSound sound);
base::Result<DecoderPointer> makeKadpcmDecoder(BankSound sound);
base::Result<DecoderPointer> makeVorbisDecoder(const BankSound& sound, VorbisSetupPointer setup);
base::Result<DecoderPointer> makeOpusDecoder(const BankSound& sound, std::span<const uint8_t> setup);

// The number of frames in an Opus packet; 0 if it is damaged.
[[nodiscard]] uint64_t opusPacketFrames(std::span<const uint8_t> packet, uint32_t sampleRate);

} // namespace engine
