// SPDX-License-Identifier: MIT
// The decoders of the sounds in a bank, one for each codec.
#pragma once

#include "banks/encoded_data.hpp"
#include "decode/decoder.hpp"

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace engine {

// How long an Opus decoder may still be wrong after a seek point (RFC 7845, 4.6).
inline constexpr uint64_t kOpusPrerollMilliseconds = 80;

// Of the setup of an Opus sound: two counts of streams, and a byte for each channel.
inline constexpr uint32_t kMaximumOpusSetupBytes = 2 + KESS_MAX_CHANNELS;

// Vorbis headers, unpacked once for all sounds of a bank that share them.
class VorbisSetup;
using VorbisSetupPointer = std::shared_ptr<const VorbisSetup>;

// ErrorCode::Damaged: the headers are damaged.
base::Result<VorbisSetupPointer> makeVorbisSetup(std::span<const uint8_t> setup);

// Values to be added to the decoded frames from position on.
struct CorrectedRange
{
    uint64_t position = 0;
    std::vector<float> values;
};

// What all decoders of a sound share: the facts that the engine reports, those that the bank stores, and the location
// of the encoded data.
struct BankSound
{
    int index = 0;
    SoundFacts facts;
    bank::Sound stored; // without the setup
    EncodedData data;
    bool isEncrypted = false;
    std::optional<uint32_t> setup; // its index

    // For decoding. BankFile::decoder() fills these before it makes the first decoder.
    bool isPrepared = false;
    std::vector<CorrectedRange> corrections;
    VorbisSetupPointer vorbisSetup;
    std::vector<uint8_t> opusSetup;
};
using BankSoundPointer = std::shared_ptr<const BankSound>;

// ErrorCode::Damaged: setup and sound don't match. ErrorCode::Memory, or std::bad_alloc.
base::Result<DecoderPointer> makePcmDecoder(BankSoundPointer sound);
base::Result<DecoderPointer> makeKadpcmDecoder(BankSoundPointer sound);
base::Result<DecoderPointer> makeVorbisDecoder(const BankSoundPointer& sound);
base::Result<DecoderPointer> makeOpusDecoder(const BankSoundPointer& sound);

// The number of frames in an Opus packet; 0 if it is damaged.
[[nodiscard]] uint64_t opusPacketFrames(std::span<const uint8_t> packet, uint32_t sampleRate);

} // namespace engine
