// SPDX-License-Identifier: MIT
#include "parse/declared_length.hpp"

#include "base/bytes.hpp"
#include "parse/ogg_damage.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace engine {

namespace {

// Bytes of encoded samples.
struct Extent
{
    uint64_t declared = 0;
    uint64_t stored = 0;
    uint64_t block = 0; // smallest unit that can be decoded, 0 if the file doesn't say
};

uint64_t bytesFrom(const InputFile& file, uint64_t offset)
{
    return file.size() - std::min(file.size(), offset);
}

Extent withoutStart(Extent extent, uint64_t bytes)
{
    extent.declared -= std::min(extent.declared, bytes);
    extent.stored -= std::min(extent.stored, bytes);
    return extent;
}

// before: bytes of the chunk that precede the samples.
std::optional<Extent> extentOfChunk(const RecognisedFile& file, const char* id, uint64_t before)
{
    const ChunkList& chunks = file.chunks;
    const Chunk* data = chunks.find(id);
    if (!data)
        return std::nullopt;
    Extent extent = withoutStart({data->declared, data->length, 0}, before);
    std::array<uint8_t, 14> format;
    if (file.kind.type == KESS_SOUND_TYPE_WAV && chunks.read("fmt ", format.data(), format.size()))
        extent.block =
            chunks.isBigEndian() ? base::loadBig<uint16_t>(&format[12]) : base::loadLittle<uint16_t>(&format[12]);
    return extent;
}

// Sun's header: the offset of the samples and their size in bytes.
std::optional<Extent> extentOfAu(const InputFile& file, uint64_t begin, bool isBigEndian)
{
    std::array<uint8_t, 12> header;
    if (!file.readAllAt(begin, header.data(), header.size()))
        return std::nullopt;
    const uint32_t offset = isBigEndian ? base::loadBig<uint32_t>(&header[4]) : base::loadLittle<uint32_t>(&header[4]);
    const uint32_t length = isBigEndian ? base::loadBig<uint32_t>(&header[8]) : base::loadLittle<uint32_t>(&header[8]);
    if (isUnknownLength(length))
        return std::nullopt;
    return Extent{length, std::min<uint64_t>(length, bytesFrom(file, begin + offset)), 0};
}

// Chunks with lengths of 64 bits.
std::optional<Extent> extentOfCaf(const InputFile& file, uint64_t begin)
{
    constexpr int kMaximumChunks = 1024;
    std::array<uint8_t, 12> header;
    uint64_t position = begin + 8;
    for (int i = 0; i < kMaximumChunks && file.readAllAt(position, header.data(), header.size()); ++i) {
        const uint64_t length =
            uint64_t{base::loadBig<uint32_t>(&header[4])} << 32 | base::loadBig<uint32_t>(&header[8]);
        const uint64_t stored = bytesFrom(file, position + header.size());
        if (std::equal(header.begin(), header.begin() + 4, "data") && !isUnknownLength(length))
            return withoutStart({length, std::min(length, stored), 0}, 4);
        if (length > stored)
            break;
        position += header.size() + length;
    }
    return std::nullopt;
}

// The number of bytes before the samples of a block, by the kind of the block: rate and packing (1), more of the same
// (9), or nothing in a block that continues the previous one (2). Nothing for a block without samples.
std::optional<uint64_t> bytesBeforeVocSamples(uint8_t kind)
{
    switch (kind) {
    case 1:
        return 2;
    case 2:
        return 0;
    case 9:
        return 12;
    default:
        return std::nullopt;
    }
}

// A header that contains its own length is followed by blocks: a kind, a length of 24 bits, and samples or other data.
std::optional<Extent> extentOfVoc(const InputFile& file, uint64_t begin)
{
    constexpr int kMaximumBlocks = 65536;
    std::array<uint8_t, 2> offset;
    std::array<uint8_t, 4> header;
    if (!file.readAllAt(begin + 20, offset.data(), offset.size()))
        return std::nullopt;
    uint64_t position = begin + base::loadLittle<uint16_t>(offset.data());
    Extent extent;
    for (int i = 0; i < kMaximumBlocks && file.readAllAt(position, header.data(), header.size()) && header[0] != 0;
         ++i) {
        const uint64_t length = base::loadLittle<uint32_t>(header.data()) >> 8;
        const uint64_t stored = bytesFrom(file, position + header.size());
        if (const std::optional<uint64_t> before = bytesBeforeVocSamples(header[0])) {
            const Extent block = withoutStart({length, std::min(length, stored), 0}, *before);
            extent.declared += block.declared;
            extent.stored += block.stored;
        }
        position += header.size() + length;
    }
    return extent;
}

// The objects of an ASF file, each with a GUID and a length that includes both. In the data object, the packets follow
// after 26 bytes.
std::optional<Extent> extentOfAsf(const InputFile& file, uint64_t begin)
{
    constexpr std::array<uint8_t, 16> kData{0x36, 0x26, 0xb2, 0x75, 0x8e, 0x66, 0xcf, 0x11,
                                            0xa6, 0xd9, 0x00, 0xaa, 0x00, 0x62, 0xce, 0x6c};
    constexpr int kMaximumObjects = 64;
    constexpr uint64_t kBeforePackets = 26;
    std::array<uint8_t, 24> header;
    uint64_t position = begin;
    for (int i = 0; i < kMaximumObjects && file.readAllAt(position, header.data(), header.size()); ++i) {
        const uint64_t length = base::loadLittle<uint64_t>(&header[16]);
        if (length < header.size() || isUnknownLength(length))
            break;
        const uint64_t stored = bytesFrom(file, position + header.size());
        if (std::equal(kData.begin(), kData.end(), header.begin()))
            return withoutStart({length - header.size(), std::min(length - header.size(), stored), 0}, kBeforePackets);
        if (length - header.size() > stored)
            break;
        position += length;
    }
    return std::nullopt;
}

std::optional<Extent> findExtent(const RecognisedFile& recognised)
{
    const InputFile& file = *recognised.file;
    const FileKind& kind = recognised.kind;
    if (kind.type == KESS_SOUND_TYPE_WAV)
        return extentOfChunk(recognised, "data", 0);
    if (kind.type == KESS_SOUND_TYPE_AIFF)
        return extentOfChunk(recognised, "SSND", 8);
    if (kind.type == KESS_SOUND_TYPE_ASF)
        return extentOfAsf(file, kind.begin);
    std::array<char, 8> magic;
    if (kind.type != KESS_SOUND_TYPE_OTHER || !file.readAllAt(kind.begin, magic.data(), magic.size()))
        return std::nullopt;
    const std::string_view name(magic.data(), magic.size());
    if (recognised.chunks.isForm())
        return extentOfChunk(recognised, "BODY", 0);
    if (name.starts_with(".snd") || name.starts_with("dns."))
        return extentOfAu(file, kind.begin, name[0] == '.');
    if (name.starts_with("caff"))
        return extentOfCaf(file, kind.begin);
    if (name == "Creative")
        return extentOfVoc(file, kind.begin);
    return std::nullopt;
}

// 0 for a compressed encoding.
uint64_t frameBytes(const Extent& extent, const SoundFacts& facts)
{
    if (extent.stored == 0 || facts.sampleCount == 0)
        return static_cast<uint64_t>(facts.channels) * bytesPerSample(facts.format);
    const uint64_t bytes = extent.stored / facts.sampleCount;
    return extent.stored - bytes * facts.sampleCount < bytes ? bytes : 0;
}

} // namespace

uint64_t declaredSampleCount(const RecognisedFile& file, const SoundFacts& facts)
{
    if (file.kind.type == KESS_SOUND_TYPE_OGG)
        return facts.sampleCount + lostOggSamples(file.cursor());
    const std::optional<Extent> extent = findExtent(file);
    if (!extent || extent->declared <= extent->stored)
        return facts.sampleCount;
    const uint64_t frame = frameBytes(*extent, facts);
    // A compressed encoding needs every byte.
    const uint64_t block = std::max(frame > 0 ? std::max(extent->block, frame) : 0, uint64_t{2});
    if (extent->declared - extent->stored < block)
        return facts.sampleCount;
    if (frame > 0)
        return std::max(facts.sampleCount, extent->declared / frame);
    const double declared = static_cast<double>(extent->declared) / static_cast<double>(extent->stored)
        * static_cast<double>(facts.sampleCount);
    return std::max(facts.sampleCount, static_cast<uint64_t>(std::min(declared, 0x1p62)));
}

} // namespace engine
