#include "parse/header_checks.hpp"

#include "bank/sound.hpp"
#include "parse/bytes.hpp"
#include "parse/chunks.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace kess {

KESS_RESULT checkLimits(int channels, double sampleRate)
{
    if (channels > KESS_MAX_CHANNELS)
        return KESS_ERR_TOOMANYCHANNELS;
    if (channels < 1 || !(sampleRate >= 1) || sampleRate > bank::kMaximumSampleRate)
        return KESS_ERR_FILE_BAD;
    return KESS_OK;
}

KESS_RESULT checkHeader(const SourceFile& file, const FileKind& kind)
{
    if (kind.type == KESS_SOUND_TYPE_WAV) {
        const ChunkList chunks(file, kind.begin, kind.end);
        std::array<uint8_t, 16> format;
        if (!chunks.read("fmt ", format.data(), format.size()))
            return KESS_ERR_FILE_BAD;
        if (chunks.isBigEndian())
            return checkLimits(be16(&format[2]), be32(&format[4]));
        return checkLimits(le16(&format[2]), le32(&format[4]));
    }
    if (kind.type == KESS_SOUND_TYPE_AIFF) {
        const ChunkList chunks(file, kind.begin, kind.end);
        std::array<uint8_t, 18> common;
        if (!chunks.read("COMM", common.data(), common.size()))
            return KESS_ERR_FILE_BAD;
        // An 80-bit float: sign and exponent with a bias of 16383, then a mantissa with its integer bit.
        const int exponent = be16(&common[8]) - 16383;
        const double mantissa = be32(&common[10]) * 0x1p-31 + be32(&common[14]) * 0x1p-63;
        return checkLimits(be16(&common[0]), std::ldexp(mantissa, exponent));
    }
    return KESS_OK;
}

std::optional<FileKind> streamInWav(const SourceFile& file, const FileKind& kind)
{
    if (kind.type != KESS_SOUND_TYPE_WAV)
        return std::nullopt;
    const ChunkList chunks(file, kind.begin, kind.end);
    std::array<uint8_t, 2> tag;
    const Chunk* data = chunks.find("data");
    if (!data || chunks.isBigEndian() || !chunks.read("fmt ", tag.data(), tag.size()))
        return std::nullopt;
    FileKind stream = kind;
    switch (le16(tag.data())) {
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

// Frames in the data of a WAV file of ADPCM whose last block is cut: a decoder makes up the rest of it. For all other
// files decodable.
uint64_t framesInCutBlocks(const ChunkList& chunks, uint64_t decodable)
{
    constexpr uint16_t kMicrosoft = 2;
    constexpr uint16_t kIma = 0x11;
    std::array<uint8_t, 14> format;
    const Chunk* data = chunks.find("data");
    if (!data || !chunks.read("fmt ", format.data(), format.size()))
        return decodable;
    const uint16_t encoding = le16(&format[0]);
    const uint64_t channels = le16(&format[2]);
    const uint64_t blockBytes = le16(&format[12]);
    if ((encoding != kMicrosoft && encoding != kIma) || channels == 0 || blockBytes == 0
        || data->length % blockBytes == 0)
        return decodable;
    // A block begins with one sample of each channel, or two, as they are. All others have four bits, in IMA's by eight
    // of a channel in a row.
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

uint64_t lengthInHeader(const SourceFile& file, const FileKind& kind, uint64_t decodable)
{
    const ChunkList chunks(file, kind.begin, kind.end);
    uint64_t told = decodable;
    uint64_t block = 1; // how many samples the last piece of data may hold too many
    if (kind.type == KESS_SOUND_TYPE_AIFF) {
        std::array<uint8_t, 6> common;
        if (chunks.read("COMM", common.data(), common.size()))
            told = be32(&common[2]);
    } else if (kind.type == KESS_SOUND_TYPE_WAV && !chunks.isBigEndian()) {
        decodable = framesInCutBlocks(chunks, decodable);
        told = decodable;
        // Some writers count something else here. A length that leaves whole blocks over can't be right, but for one
        // that a writer may have added for good measure.
        std::array<uint8_t, 20> format;
        std::array<uint8_t, 4> fact;
        if (chunks.read("fact", fact.data(), fact.size()) && chunks.read("fmt ", format.data(), format.size())) {
            told = le32(fact.data());
            block = 2 * uint64_t{le16(&format[18])};
        }
    }
    return told < decodable && decodable - told <= block ? told : decodable;
}

KESS_RESULT reasonForRefusal(const SourceFile& file, const FileKind& kind)
{
    const char* samples = kind.type == KESS_SOUND_TYPE_WAV ? "data"
        : kind.type == KESS_SOUND_TYPE_AIFF                ? "SSND"
                                                           : nullptr;
    if (!samples)
        return KESS_ERR_FILE_BAD;
    const ChunkList chunks(file, kind.begin, kind.end);
    const Chunk* chunk = chunks.find(samples);
    return chunk && chunk->length > 0 ? KESS_ERR_FORMAT : KESS_ERR_FILE_BAD;
}

} // namespace kess
