#include "header_checks.hpp"

#include "bytes.hpp"
#include "chunks.hpp"
#include "decoders.hpp"

#include <array>
#include <cmath>

namespace kess {

KESS_RESULT checkLimits(int channels, double sampleRate)
{
    constexpr double kHighestRate = 768000;
    if (channels > KESS_MAX_CHANNELS)
        return KESS_ERR_TOOMANYCHANNELS;
    if (channels < 1 || !(sampleRate >= 1) || sampleRate > kHighestRate)
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

std::optional<FileKind> mpegInWav(const SourceFile& file, const FileKind& kind)
{
    constexpr uint16_t kMpeg = 0x0050;
    constexpr uint16_t kMpegLayerIII = 0x0055;
    if (kind.type != KESS_SOUND_TYPE_WAV)
        return std::nullopt;
    const ChunkList chunks(file, kind.begin, kind.end);
    std::array<uint8_t, 2> tag;
    const Chunk* data = chunks.find("data");
    if (!data || chunks.isBigEndian() || !chunks.read("fmt ", tag.data(), tag.size()))
        return std::nullopt;
    if (le16(tag.data()) != kMpeg && le16(tag.data()) != kMpegLayerIII)
        return std::nullopt;
    FileKind mpeg = kind;
    mpeg.reader = Reader::Mpeg;
    mpeg.begin = data->offset;
    mpeg.end = data->offset + data->length;
    return mpeg;
}

uint64_t lengthFromFact(const SourceFile& file, const FileKind& kind, uint64_t blockSamples)
{
    constexpr uint64_t kLongestBlock = 65536;
    const ChunkList chunks(file, kind.begin, kind.end);
    std::array<uint8_t, 4> fact;
    if (kind.type != KESS_SOUND_TYPE_WAV || !chunks.read("fact", fact.data(), fact.size()))
        return blockSamples;
    const uint64_t samples = chunks.isBigEndian() ? be32(fact.data()) : le32(fact.data());
    return samples < blockSamples && blockSamples - samples < kLongestBlock ? samples : blockSamples;
}

} // namespace kess
