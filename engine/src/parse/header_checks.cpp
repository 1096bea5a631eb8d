// SPDX-License-Identifier: MIT
#include "parse/header_checks.hpp"

#include "bank/sound.hpp"
#include "base/bytes.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

namespace engine {

namespace {

// The rate in a header of AIFF, an 80-bit float: sign and exponent with a bias of 16383, then a mantissa with its
// integer bit.
double extendedFloat(const uint8_t* bytes)
{
    const int exponent = base::loadBig<uint16_t>(bytes) - 16383;
    const double mantissa = base::loadBig<uint32_t>(bytes + 2) * 0x1p-31 + base::loadBig<uint32_t>(bytes + 6) * 0x1p-63;
    return std::ldexp(mantissa, exponent);
}

} // namespace

base::Result<> checkLimits(int channels, double sampleRate)
{
    if (channels > KESS_MAX_CHANNELS)
        return base::Error{base::ErrorCode::TooManyChannels, "it has " + std::to_string(channels) + " channels"};
    if (channels < 1)
        return base::Error{base::ErrorCode::Damaged, "it has no channels"};
    if (!(sampleRate >= 1) || sampleRate > bank::kMaximumSampleRate)
        return base::Error{base::ErrorCode::Damaged, "its sample rate is impossible"};
    return {};
}

base::Result<> checkHeader(const RecognisedFile& file)
{
    const ChunkList& chunks = file.chunks;
    if (file.kind.type == KESS_SOUND_TYPE_WAV) {
        std::array<uint8_t, 16> format;
        if (!chunks.read("fmt ", format.data(), format.size()))
            return base::Error{base::ErrorCode::Damaged, "its format chunk is missing or too short"};
        if (chunks.isBigEndian())
            return checkLimits(base::loadBig<uint16_t>(&format[2]), base::loadBig<uint32_t>(&format[4]));
        return checkLimits(base::loadLittle<uint16_t>(&format[2]), base::loadLittle<uint32_t>(&format[4]));
    }
    if (file.kind.type == KESS_SOUND_TYPE_AIFF) {
        std::array<uint8_t, 18> common;
        if (!chunks.read("COMM", common.data(), common.size()))
            return base::Error{base::ErrorCode::Damaged, "its COMM chunk is missing or too short"};
        return checkLimits(base::loadBig<uint16_t>(&common[0]), extendedFloat(&common[8]));
    }
    return {};
}

std::optional<FileKind> streamInWav(const RecognisedFile& file)
{
    if (file.kind.type != KESS_SOUND_TYPE_WAV)
        return std::nullopt;
    const ChunkList& chunks = file.chunks;
    std::array<uint8_t, 2> tag;
    const Chunk* data = chunks.find("data");
    if (!data || chunks.isBigEndian() || !chunks.read("fmt ", tag.data(), tag.size()))
        return std::nullopt;
    FileKind stream = file.kind;
    switch (base::loadLittle<uint16_t>(tag.data())) {
    case 0x0050: // MPEG audio
    case 0x0055: // layer III of it
        stream.reader = Reader::Mpeg;
        break;
    case 0x674f: // Ogg Vorbis, in three modes and two kinds of header, all of them a whole Ogg stream
    case 0x6750:
    case 0x6751:
    case 0x676f:
    case 0x6770:
    case 0x6771:
        stream.reader = Reader::Vorbis;
        break;
    default:
        return std::nullopt;
    }
    stream.begin = data->offset;
    stream.end = data->offset + data->length;
    return stream;
}

namespace {

// The number of frames in a WAV file of ADPCM whose last block is incomplete: a decoder makes up the rest of that
// block. Returns decodable for all other files.
uint64_t framesInCutBlocks(const ChunkList& chunks, uint64_t decodable)
{
    constexpr uint16_t kMicrosoft = 2;
    constexpr uint16_t kIma = 0x11;
    std::array<uint8_t, 14> format;
    const Chunk* data = chunks.find("data");
    if (!data || !chunks.read("fmt ", format.data(), format.size()))
        return decodable;
    const uint16_t encoding = base::loadLittle<uint16_t>(&format[0]);
    const uint64_t channels = base::loadLittle<uint16_t>(&format[2]);
    const uint64_t blockBytes = base::loadLittle<uint16_t>(&format[12]);
    if ((encoding != kMicrosoft && encoding != kIma) || channels == 0 || blockBytes == 0
        || data->length % blockBytes == 0)
        return decodable;
    // A block begins with one unpacked sample per channel (IMA) or two. All others have four bits; IMA stores eight
    // samples of a channel in a row.
    const auto framesIn = [&](uint64_t bytes) -> uint64_t {
        const uint64_t head = channels * (encoding == kIma ? 4 : 7);
        if (bytes < head)
            return 0;
        return encoding == kIma ? 1 + (bytes - head) / (4 * channels) * 8 : 2 + (bytes - head) * 2 / channels;
    };
    const uint64_t whole = data->length / blockBytes;
    return std::min(decodable, whole * framesIn(blockBytes) + framesIn(data->length % blockBytes));
}

} // namespace

uint64_t lengthInHeader(const RecognisedFile& file, uint64_t decodable)
{
    const ChunkList& chunks = file.chunks;
    uint64_t declared = decodable;
    uint64_t block = 1; // how many samples more than declared the last block may hold
    if (file.kind.type == KESS_SOUND_TYPE_AIFF) {
        std::array<uint8_t, 6> common;
        if (chunks.read("COMM", common.data(), common.size()))
            declared = base::loadBig<uint32_t>(&common[2]);
    } else if (file.kind.type == KESS_SOUND_TYPE_WAV && !chunks.isBigEndian()) {
        decodable = framesInCutBlocks(chunks, decodable);
        declared = decodable;
        // Some programs write another number here. A length that leaves whole blocks unused can't be right, except for
        // one block that a program may have added as a reserve.
        std::array<uint8_t, 20> format;
        std::array<uint8_t, 4> fact;
        if (chunks.read("fact", fact.data(), fact.size()) && chunks.read("fmt ", format.data(), format.size())) {
            declared = base::loadLittle<uint32_t>(fact.data());
            block = 2 * uint64_t{base::loadLittle<uint16_t>(&format[18])};
        }
    }
    return declared < decodable && decodable - declared <= block ? declared : decodable;
}

base::Error refusal(const RecognisedFile& file)
{
    const Chunk* samples = nullptr;
    if (file.kind.type == KESS_SOUND_TYPE_WAV)
        samples = file.chunks.find("data");
    else if (file.kind.type == KESS_SOUND_TYPE_AIFF)
        samples = file.chunks.find("SSND");
    if (samples && samples->length > 0)
        return {base::ErrorCode::Format, "the encoding of its samples is unknown"};
    return {base::ErrorCode::Damaged, "it can't be decoded"};
}

} // namespace engine
