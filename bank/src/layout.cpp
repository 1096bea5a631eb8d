// SPDX-License-Identifier: MIT
#include "layout.hpp"

#include "bank/checksum.hpp"
#include "bank/kadpcm.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace bank::layout {

using base::appendLittle;
using base::Error;
using base::ErrorCode;
using base::loadLittle;
using base::Loop;
using base::Result;
using base::storeLittle;
using base::SyncPoint;

static_assert(kadpcm::kMaximumChannels == kMaximumChannels);

namespace {

// The maximum length of a sound. Sums of positions up to it can't overflow.
constexpr uint64_t kMaximumSampleCount = uint64_t{1} << 48;

// Four characters as a number, as loaded from a chunk.
constexpr uint32_t makeTag(const char (&text)[5])
{
    uint32_t tag = 0;
    for (int i = 3; i >= 0; --i)
        tag = tag << 8 | static_cast<uint8_t>(text[i]);
    return tag;
}

constexpr uint32_t kTagLoop = makeTag("LOOP");
constexpr uint32_t kTagPeak = makeTag("PEAK");
constexpr uint32_t kTagSync = makeTag("SYNC");
constexpr uint32_t kTagSeek = makeTag("SEEK");
constexpr uint32_t kTagSeam = makeTag("SEAM");

constexpr size_t kCorrectionHeadBytes = 12;

// A loop has one seam, around which a writer stores two corrections at most. The bound keeps decoding fast: each
// decoded block checks all corrections.
constexpr size_t kMaximumCorrections = 8;

void appendChunk(std::vector<uint8_t>& chunks, uint32_t tag, std::span<const uint8_t> payload)
{
    appendLittle(chunks, tag);
    appendLittle(chunks, static_cast<uint32_t>(payload.size()));
    chunks.insert(chunks.end(), payload.begin(), payload.end());
}

std::vector<uint8_t> packSyncPoints(const std::vector<SyncPoint>& points)
{
    std::vector<uint8_t> payload;
    for (const SyncPoint& point : points) {
        appendLittle(payload, point.frame);
        appendLittle(payload, static_cast<uint32_t>(point.name.size()));
        payload.insert(payload.end(), point.name.begin(), point.name.end());
    }
    return payload;
}

std::vector<uint8_t> packSeekPoints(const std::vector<SeekPoint>& points)
{
    std::vector<uint8_t> payload;
    payload.reserve(points.size() * 16);
    for (const SeekPoint& point : points) {
        appendLittle(payload, point.position);
        appendLittle(payload, point.offset);
    }
    return payload;
}

std::vector<uint8_t> packCorrections(const std::vector<Correction>& corrections)
{
    std::vector<uint8_t> payload;
    for (const Correction& correction : corrections) {
        appendLittle(payload, correction.first);
        appendLittle(payload, correction.frames);
        payload.insert(payload.end(), correction.scales.begin(), correction.scales.end());
        payload.insert(payload.end(), correction.codes.begin(), correction.codes.end());
    }
    return payload;
}

bool unpackLoop(std::span<const uint8_t> payload, Sound* sound)
{
    if (payload.size() < 16)
        return false;
    const Loop loop{loadLittle<uint64_t>(payload.data()), loadLittle<uint64_t>(payload.data() + 8)};
    if (loop.start >= loop.end || loop.end > sound->sampleCount)
        return false;
    sound->loop = loop;
    return true;
}

bool unpackPeak(std::span<const uint8_t> payload, Sound* sound)
{
    if (payload.size() < 4)
        return false;
    const float peak = loadLittle<float>(payload.data());
    if (!(peak >= 0 && peak <= std::numeric_limits<float>::max()))
        return false;
    sound->peak = peak;
    return true;
}

bool unpackSyncPoints(std::span<const uint8_t> payload, Sound* sound)
{
    uint64_t last = 0;
    while (!payload.empty()) {
        if (payload.size() < 12 || sound->syncPoints.size() == kMaximumSyncPoints)
            return false;
        const uint64_t frame = loadLittle<uint64_t>(payload.data());
        const uint32_t nameBytes = loadLittle<uint32_t>(payload.data() + 8);
        payload = payload.subspan(12);
        if (frame < last || frame > sound->sampleCount || nameBytes > payload.size() || nameBytes > kMaximumNameBytes)
            return false;
        std::string name(payload.begin(), payload.begin() + nameBytes);
        if (name.find('\0') != std::string::npos)
            return false;
        sound->syncPoints.push_back({frame, std::move(name)});
        payload = payload.subspan(nameBytes);
        last = frame;
    }
    return true;
}

bool unpackSeekPoints(std::span<const uint8_t> payload, Sound* sound)
{
    if (payload.size() % 16 != 0 || payload.size() / 16 > kMaximumSeekPoints)
        return false;
    sound->seekPoints.reserve(payload.size() / 16);
    SeekPoint last;
    for (; !payload.empty(); payload = payload.subspan(16)) {
        const SeekPoint point{loadLittle<uint64_t>(payload.data()), loadLittle<uint64_t>(payload.data() + 8)};
        if (point.position <= last.position || point.offset <= last.offset || point.offset >= sound->dataBytes
            || point.position > sound->preSkip + sound->sampleCount)
            return false;
        sound->seekPoints.push_back(point);
        last = point;
    }
    return true;
}

bool unpackCorrections(std::span<const uint8_t> payload, Sound* sound)
{
    while (!payload.empty()) {
        if (payload.size() < kCorrectionHeadBytes || sound->corrections.size() == kMaximumCorrections)
            return false;
        Correction correction;
        correction.first = loadLittle<uint64_t>(payload.data());
        correction.frames = loadLittle<uint32_t>(payload.data() + 8);
        payload = payload.subspan(kCorrectionHeadBytes);
        if (correction.frames == 0 || correction.frames > kMaximumCorrectedFrames
            || !base::rangeInside(correction.first, correction.frames, sound->sampleCount))
            return false;
        const size_t scales = sound->channels * correctionScales(correction.frames);
        const size_t codes = sound->channels * correctionCodeBytes(correction.frames);
        if (scales + codes > payload.size())
            return false;
        correction.scales.assign(payload.begin(), payload.begin() + static_cast<ptrdiff_t>(scales));
        correction.codes.assign(payload.begin() + static_cast<ptrdiff_t>(scales),
                                payload.begin() + static_cast<ptrdiff_t>(scales + codes));
        payload = payload.subspan(scales + codes);
        sound->corrections.push_back(std::move(correction));
    }
    return true;
}

struct ChunkKind
{
    uint32_t tag;
    bool (*unpack)(std::span<const uint8_t> payload, Sound* sound);
};

constexpr std::array<ChunkKind, 5> kChunkKinds = {{{kTagLoop, unpackLoop},
                                                   {kTagPeak, unpackPeak},
                                                   {kTagSync, unpackSyncPoints},
                                                   {kTagSeek, unpackSeekPoints},
                                                   {kTagSeam, unpackCorrections}}};

// Each of these functions calls field(offset, member) for every member of a record, to store it or to load it.

template <typename Field>
void eachField(Prefix& prefix, Field field)
{
    field(8, prefix.majorVersion);
    field(10, prefix.minorVersion);
    field(12, prefix.headerBytes);
    field(16, prefix.flags);
    field(32, prefix.fileBytes);
}

template <typename Field>
void eachField(Header& header, Field field)
{
    eachField(header.prefix, field);
    field(20, header.format);
    field(24, header.quality);
    field(28, header.soundCount);
    field(40, header.guid);
    field(56, header.rowsOffset);
    field(64, header.rowBytes);
    field(68, header.setupCount);
    field(72, header.nameIndexOffset);
    field(80, header.nameIndexCount);
    field(88, header.namesOffset);
    field(96, header.namesBytes);
    field(104, header.setupRowsOffset);
    field(112, header.tablesBytes);
    field(120, header.tablesChecksum);
}

constexpr size_t kKeyCheckOffset = 80;

template <typename Field>
void eachField(EncryptedHeader& header, Field field)
{
    eachField(header.prefix, field);
    field(20, header.pieceBytes);
    field(24, header.plainBytes);
    field(40, header.passes);
    field(44, header.memoryKiB);
    field(48, header.contentTag);
    field(kKeyCheckOffset, header.keyCheck);
}

template <typename Field>
void eachField(Row& row, Field field)
{
    field(0, row.codec);
    field(1, row.sampleFormat);
    field(2, row.channels);
    field(4, row.sampleRate);
    field(8, row.sampleCount);
    field(16, row.preSkip);
    field(20, row.quality);
    field(24, row.setup);
    field(28, row.chunksBytes);
    field(32, row.chunksChecksum);
    field(40, row.chunksOffset);
    field(48, row.dataOffset);
    field(56, row.dataBytes);
    field(64, row.dataChecksum);
    field(72, row.nameOffset);
    field(76, row.nameBytes);
}

template <typename Field>
void eachField(SetupRow& row, Field field)
{
    field(0, row.offset);
    field(8, row.checksum);
    field(16, row.bytes);
}

template <typename Field>
void eachField(NameIndexRow& row, Field field)
{
    field(0, row.hash);
    field(8, row.sound);
}

template <typename Record>
void storeFields(Record record, std::span<uint8_t> bytes)
{
    std::fill(bytes.begin(), bytes.end(), uint8_t{0});
    eachField(record, [bytes](size_t offset, const auto& member) { storeLittle(bytes.data() + offset, member); });
}

template <typename Record>
Record loadFields(const uint8_t* bytes)
{
    Record record;
    eachField(record, [bytes](size_t offset, auto& member) {
        member = loadLittle<std::remove_reference_t<decltype(member)>>(bytes + offset);
    });
    return record;
}

template <typename Record>
void storeHeader(const Record& header, std::span<uint8_t> bytes)
{
    storeFields(header, bytes);
    std::copy(kMagic.begin(), kMagic.end(), bytes.begin());
    const std::span covered = bytes.first(bytes.size() - kChecksumBytes);
    storeLittle(bytes.data() + covered.size(), checksum(covered));
}

std::vector<uint8_t> boundPart(std::span<const uint8_t> header)
{
    const std::span before = header.first(kKeyCheckOffset);
    const std::span after = header.subspan(kKeyCheckOffset + std::tuple_size_v<KeyCheck>);
    std::vector<uint8_t> bound(before.begin(), before.end());
    bound.insert(bound.end(), after.begin(), after.end() - kChecksumBytes);
    return bound;
}

} // namespace

Prefix loadPrefix(const uint8_t* bytes)
{
    return loadFields<Prefix>(bytes);
}

void store(const Header& header, uint8_t* bytes)
{
    storeHeader(header, {bytes, kHeaderBytes});
}

Header loadHeader(const uint8_t* bytes)
{
    return loadFields<Header>(bytes);
}

std::vector<uint8_t> pack(const EncryptedHeader& header)
{
    std::vector<uint8_t> bytes(kEncryptedHeaderBytes);
    storeHeader(header, bytes);
    return bytes;
}

EncryptedHeader loadEncryptedHeader(std::span<const uint8_t> bytes)
{
    auto header = loadFields<EncryptedHeader>(bytes.data());
    header.bound = boundPart(bytes);
    return header;
}

void store(const Row& row, uint8_t* bytes)
{
    storeFields(row, {bytes, kSoundRecordBytes});
}

Row loadRow(const uint8_t* bytes)
{
    return loadFields<Row>(bytes);
}

void store(const SetupRow& row, uint8_t* bytes)
{
    storeFields(row, {bytes, kSetupRowBytes});
}

SetupRow loadSetupRow(const uint8_t* bytes)
{
    return loadFields<SetupRow>(bytes);
}

void store(const NameIndexRow& row, uint8_t* bytes)
{
    storeFields(row, {bytes, kNameIndexBytes});
}

NameIndexRow loadNameIndexRow(const uint8_t* bytes)
{
    return loadFields<NameIndexRow>(bytes);
}

Error damaged(std::string_view what)
{
    return {ErrorCode::Damaged, std::string(what)};
}

Error unreadable(const Error& error, std::string_view what)
{
    // Inside the source, reading returns Damaged only if decryption fails.
    if (error.code == ErrorCode::Damaged)
        return damaged(std::string(what) + " can't be decrypted: the bank was changed");
    return error;
}

Result<Prefix> readPrefix(const base::ByteSource& source)
{
    std::array<uint8_t, kPrefixBytes> bytes{};
    const size_t length = static_cast<size_t>(std::min<uint64_t>(source.size(), bytes.size()));
    if (const Result<> result = source.readAt(0, std::span(bytes).first(length)); !result)
        return unreadable(result.error(), "the first bytes");
    if (length < kMagic.size() || !std::equal(kMagic.begin(), kMagic.end(), bytes.begin()))
        return Error{ErrorCode::Format};
    if (length < kPrefixBytes)
        return damaged("the file ends within its header");
    const Prefix prefix = loadPrefix(bytes.data());
    if (prefix.majorVersion != kMajorVersion)
        return Error{ErrorCode::Version};
    return prefix;
}

Result<std::vector<uint8_t>> readHeader(const base::ByteSource& source, const Prefix& prefix, size_t minimum)
{
    if (prefix.headerBytes < minimum || prefix.headerBytes > kMaximumHeaderBytes || prefix.headerBytes % 8 != 0)
        return damaged("the size of the header is wrong");
    if (prefix.headerBytes > source.size())
        return damaged("the file ends within its header");
    std::vector<uint8_t> bytes(prefix.headerBytes);
    if (const Result<> result = source.readAt(0, bytes); !result)
        return unreadable(result.error(), "the first bytes");
    const std::span covered = std::span(bytes).first(bytes.size() - kChecksumBytes);
    if (checksum(covered) != loadLittle<uint64_t>(bytes.data() + covered.size()))
        return damaged("the header doesn't match its checksum");
    if (prefix.fileBytes != source.size())
        return damaged("the file was cut or lengthened: it has " + std::to_string(source.size()) + " bytes instead of "
                       + std::to_string(prefix.fileBytes));
    return bytes;
}

const char* findFault(const Row& row)
{
    if (row.channels == 0 || row.channels > kMaximumChannels)
        return "its number of channels is impossible";
    if (row.sampleRate == 0 || row.sampleRate > kMaximumSampleRate)
        return "its sample rate is impossible";
    if (row.sampleCount > kMaximumSampleCount || row.preSkip > kMaximumPreSkip)
        return "its length is impossible";
    if (row.quality > kMaximumQuality)
        return "its quality is impossible";
    if (row.chunksBytes > kMaximumChunksBytes)
        return "its chunks are too large";
    if (row.nameBytes > kMaximumNameBytes)
        return "its name is too long";
    constexpr const char* kNoFit = "its length doesn't match the size of its data";
    if (row.codec == Codec::Pcm) {
        const uint64_t frameBytes = bytesPerSample(row.sampleFormat) * row.channels;
        if (frameBytes == 0)
            return "its sample format is unknown";
        const bool fits =
            row.preSkip == 0 && row.dataBytes / frameBytes == row.sampleCount && row.dataBytes % frameBytes == 0;
        return fits ? nullptr : kNoFit;
    }
    if (row.sampleFormat != SampleFormat::Pcm16)
        return "its sample format is unknown";
    if (row.codec == Codec::Kadpcm && row.preSkip != 0)
        return kNoFit;
    return (row.sampleCount + row.preSkip) / kMaximumSamplesPerByte <= row.dataBytes ? nullptr : kNoFit;
}

std::vector<uint8_t> packChunks(const Sound& sound)
{
    std::vector<uint8_t> chunks;
    if (sound.loop) {
        std::vector<uint8_t> payload;
        appendLittle(payload, sound.loop->start);
        appendLittle(payload, sound.loop->end);
        appendChunk(chunks, kTagLoop, payload);
    }
    if (sound.peak) {
        std::vector<uint8_t> payload;
        appendLittle(payload, *sound.peak);
        appendChunk(chunks, kTagPeak, payload);
    }
    if (!sound.syncPoints.empty())
        appendChunk(chunks, kTagSync, packSyncPoints(sound.syncPoints));
    if (!sound.seekPoints.empty())
        appendChunk(chunks, kTagSeek, packSeekPoints(sound.seekPoints));
    if (!sound.corrections.empty())
        appendChunk(chunks, kTagSeam, packCorrections(sound.corrections));
    return chunks;
}

Result<> unpackChunks(std::span<const uint8_t> chunks, Sound* sound)
{
    std::array<bool, kChunkKinds.size()> seen{};
    while (!chunks.empty()) {
        if (chunks.size() < 8)
            return damaged("its last chunk is incomplete");
        const uint32_t tag = loadLittle<uint32_t>(chunks.data());
        const uint32_t bytes = loadLittle<uint32_t>(chunks.data() + 4);
        if (bytes > chunks.size() - 8)
            return damaged("its last chunk is incomplete");
        for (size_t i = 0; i < kChunkKinds.size(); ++i) {
            if (kChunkKinds[i].tag != tag)
                continue;
            const std::string name(chunks.begin(), chunks.begin() + 4);
            if (std::exchange(seen[i], true))
                return damaged("it has more than one chunk " + name);
            if (!kChunkKinds[i].unpack(chunks.subspan(8, bytes), sound))
                return damaged("its chunk " + name + " holds impossible values");
        }
        chunks = chunks.subspan(8 + static_cast<size_t>(bytes));
    }
    return {};
}

Row makeRow(const Sound& sound, std::span<const uint8_t> chunks)
{
    Row row{sound};
    row.chunksBytes = static_cast<uint32_t>(chunks.size());
    row.chunksChecksum = checksum(chunks);
    return row;
}

Sound makeSound(const Row& row)
{
    Sound sound;
    static_cast<EncodedFacts&>(sound) = row;
    return sound;
}

uint64_t nameHash(std::span<const uint8_t> name)
{
    // Offset basis and prime of FNV-1a, 64 bits (Fowler, Noll, Vo).
    uint64_t hash = 0xcbf29ce484222325u;
    for (const uint8_t byte : name)
        hash = (hash ^ byte) * 0x100000001b3u;
    return hash;
}

} // namespace bank::layout
