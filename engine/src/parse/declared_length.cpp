#include "parse/declared_length.hpp"

#include "parse/bytes.hpp"
#include "parse/chunks.hpp"
#include "parse/ogg_damage.hpp"
#include "parse/sound_facts.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace kess {

namespace {

// Bytes of encoded samples.
struct Extent
{
    uint64_t declared = 0;
    uint64_t there = 0;
    uint64_t block = 0; // smallest piece that can be decoded, 0 if the file doesn't tell
};

uint64_t behind(const SourceFile& file, uint64_t offset)
{
    return file.size() - std::min(file.size(), offset);
}

Extent withoutStart(Extent extent, uint64_t bytes)
{
    extent.declared -= std::min(extent.declared, bytes);
    extent.there -= std::min(extent.there, bytes);
    return extent;
}

std::optional<Extent> extentOfChunk(const SourceFile& file, const FileKind& kind, const char* id, uint64_t before)
{
    const ChunkList chunks(file, kind.begin, kind.end);
    const Chunk* data = chunks.find(id);
    if (!data)
        return std::nullopt;
    Extent extent = withoutStart({data->declared, data->length, 0}, before);
    std::array<uint8_t, 14> format;
    if (kind.type == KESS_SOUND_TYPE_WAV && chunks.read("fmt ", format.data(), format.size()))
        extent.block = chunks.isBigEndian() ? be16(&format[12]) : le16(&format[12]);
    return extent;
}

// Sun's header: where the samples begin and how many bytes they are.
std::optional<Extent> extentOfAu(const SourceFile& file, uint64_t begin, bool isBigEndian)
{
    std::array<uint8_t, 12> header;
    if (!file.readAllAt(begin, header.data(), header.size()))
        return std::nullopt;
    const uint32_t offset = isBigEndian ? be32(&header[4]) : le32(&header[4]);
    const uint32_t length = isBigEndian ? be32(&header[8]) : le32(&header[8]);
    if (standsForUnknown(length))
        return std::nullopt;
    return Extent{length, std::min<uint64_t>(length, behind(file, begin + offset)), 0};
}

// Chunks with lengths of 64 bits.
std::optional<Extent> extentOfCaf(const SourceFile& file, uint64_t begin)
{
    constexpr int kMostChunks = 1024;
    std::array<uint8_t, 12> header;
    uint64_t position = begin + 8;
    for (int i = 0; i < kMostChunks && file.readAllAt(position, header.data(), header.size()); ++i) {
        const uint64_t length = uint64_t{be32(&header[4])} << 32 | be32(&header[8]);
        const uint64_t there = behind(file, position + header.size());
        if (std::equal(header.begin(), header.begin() + 4, "data") && !standsForUnknown(length))
            return withoutStart({length, std::min(length, there), 0}, 4);
        if (length > there)
            break;
        position += header.size() + length;
    }
    return std::nullopt;
}

// How a block of samples begins: with rate and packing, with more of that, or, in one that goes on, with nothing.
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

// Blocks behind a header that tells its own length: a kind, a length of 24 bits, and the samples or something else.
std::optional<Extent> extentOfVoc(const SourceFile& file, uint64_t begin)
{
    constexpr int kMostBlocks = 65536;
    std::array<uint8_t, 2> offset;
    std::array<uint8_t, 4> header;
    if (!file.readAllAt(begin + 20, offset.data(), offset.size()))
        return std::nullopt;
    uint64_t position = begin + le16(offset.data());
    Extent extent;
    for (int i = 0; i < kMostBlocks && file.readAllAt(position, header.data(), header.size()) && header[0] != 0; ++i) {
        const uint64_t length = le32(header.data()) >> 8;
        const uint64_t there = behind(file, position + header.size());
        if (const std::optional<uint64_t> before = bytesBeforeVocSamples(header[0])) {
            const Extent block = withoutStart({length, std::min(length, there), 0}, *before);
            extent.declared += block.declared;
            extent.there += block.there;
        }
        position += header.size() + length;
    }
    return extent;
}

// The objects of an ASF file, each a GUID and a length that counts both. The packets of sound follow 26 bytes in
// theirs.
std::optional<Extent> extentOfAsf(const SourceFile& file, uint64_t begin)
{
    constexpr std::array<uint8_t, 16> kData{0x36, 0x26, 0xb2, 0x75, 0x8e, 0x66, 0xcf, 0x11,
                                            0xa6, 0xd9, 0x00, 0xaa, 0x00, 0x62, 0xce, 0x6c};
    constexpr int kMostObjects = 64;
    constexpr uint64_t kBeforePackets = 26;
    std::array<uint8_t, 24> header;
    uint64_t position = begin;
    for (int i = 0; i < kMostObjects && file.readAllAt(position, header.data(), header.size()); ++i) {
        const uint64_t length = le64(&header[16]);
        if (length < header.size() || standsForUnknown(length))
            break;
        const uint64_t there = behind(file, position + header.size());
        if (std::equal(kData.begin(), kData.end(), header.begin()))
            return withoutStart({length - header.size(), std::min(length - header.size(), there), 0}, kBeforePackets);
        if (length - header.size() > there)
            break;
        position += length;
    }
    return std::nullopt;
}

std::optional<Extent> findExtent(const SourceFile& file, const FileKind& kind)
{
    if (kind.type == KESS_SOUND_TYPE_WAV)
        return extentOfChunk(file, kind, "data", 0);
    if (kind.type == KESS_SOUND_TYPE_AIFF)
        return extentOfChunk(file, kind, "SSND", 8);
    if (kind.type == KESS_SOUND_TYPE_ASF)
        return extentOfAsf(file, kind.begin);
    std::array<char, 8> magic;
    if (kind.type != KESS_SOUND_TYPE_OTHER || !file.readAllAt(kind.begin, magic.data(), magic.size()))
        return std::nullopt;
    const std::string_view name(magic.data(), magic.size());
    if (name.starts_with("FORM"))
        return extentOfChunk(file, kind, "BODY", 0);
    if (name.starts_with(".snd") || name.starts_with("dns."))
        return extentOfAu(file, kind.begin, name[0] == '.');
    if (name.starts_with("caff"))
        return extentOfCaf(file, kind.begin);
    if (name == "Creative")
        return extentOfVoc(file, kind.begin);
    return std::nullopt;
}

// 0 for an encoding that packs samples.
uint64_t bytesOfFrame(const Extent& extent, const SoundFacts& facts)
{
    if (extent.there == 0 || facts.sampleCount == 0)
        return static_cast<uint64_t>(facts.channels) * bytesPerSample(facts.format);
    const uint64_t bytes = extent.there / facts.sampleCount;
    return extent.there - bytes * facts.sampleCount < bytes ? bytes : 0;
}

} // namespace

uint64_t declaredSampleCount(const std::shared_ptr<const SourceFile>& file, const FileKind& kind,
                             const SoundFacts& facts)
{
    if (kind.type == KESS_SOUND_TYPE_OGG)
        return facts.sampleCount + lostOggSamples(Cursor(file, kind.begin, kind.end));
    const std::optional<Extent> extent = findExtent(*file, kind);
    if (!extent || extent->declared <= extent->there)
        return facts.sampleCount;
    const uint64_t frame = bytesOfFrame(*extent, facts);
    // Of an encoding that packs samples, every byte is needed.
    const uint64_t block = std::max(frame > 0 ? std::max(extent->block, frame) : 0, uint64_t{2});
    if (extent->declared - extent->there < block)
        return facts.sampleCount;
    if (frame > 0)
        return std::max(facts.sampleCount, extent->declared / frame);
    const double declared = static_cast<double>(extent->declared) / static_cast<double>(extent->there)
        * static_cast<double>(facts.sampleCount);
    return std::max(facts.sampleCount, static_cast<uint64_t>(std::min(declared, 0x1p62)));
}

} // namespace kess
