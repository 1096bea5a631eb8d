#include "layout.hpp"

#include "bank/checksum.hpp"
#include "bank/kadpcm.hpp"

#include <algorithm>
#include <limits>
#include <utility>

namespace bank::layout {

static_assert(kadpcm::kMaximumChannels == kMaximumChannels);

namespace {

// No codec of ours gives more samples than this for one byte: a Vorbis block of 8,192 samples needs a packet.
constexpr uint64_t kMaximumSamplesPerByte = 8192;

// A length that no sound reaches, below which sums of positions can't overflow.
constexpr uint64_t kMaximumSampleCount = uint64_t{1} << 48;

// Four characters as they are read from a chunk.
constexpr uint32_t tagOf(const char (&text)[5])
{
    uint32_t tag = 0;
    for (int i = 3; i >= 0; --i)
        tag = tag << 8 | static_cast<uint8_t>(text[i]);
    return tag;
}

constexpr uint32_t kTagLoop = tagOf("LOOP");
constexpr uint32_t kTagPeak = tagOf("PEAK");
constexpr uint32_t kTagSync = tagOf("SYNC");
constexpr uint32_t kTagSeek = tagOf("SEEK");
constexpr uint32_t kTagSeam = tagOf("SEAM");

constexpr size_t kCorrectionHeadBytes = 12;

// A loop has one seam, hence two corrections at most; every block that is decoded looks at all of them.
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
        appendLittle(payload, point.sample);
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
        const uint64_t sample = loadLittle<uint64_t>(payload.data());
        const uint32_t nameBytes = loadLittle<uint32_t>(payload.data() + 8);
        payload = payload.subspan(12);
        if (sample < last || sample > sound->sampleCount || nameBytes > payload.size() || nameBytes > kMaximumNameBytes)
            return false;
        std::string name(payload.begin(), payload.begin() + nameBytes);
        if (name.find('\0') != std::string::npos)
            return false;
        sound->syncPoints.push_back({sample, std::move(name)});
        payload = payload.subspan(nameBytes);
        last = sample;
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
            || point.position > sound->leadIn + sound->sampleCount)
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
        if (correction.frames == 0 || correction.frames > kMostCorrectedFrames
            || !rangeInside(correction.first, correction.frames, sound->sampleCount))
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

} // namespace

void store(const Prefix& prefix, uint8_t* place)
{
    std::copy(kMagic.begin(), kMagic.end(), place);
    storeLittle(place + 8, prefix.majorVersion);
    storeLittle(place + 10, prefix.minorVersion);
    storeLittle(place + 12, prefix.headerBytes);
    storeLittle(place + 16, prefix.flags);
    storeLittle(place + 32, prefix.fileBytes);
}

Prefix loadPrefix(const uint8_t* place)
{
    return {loadLittle<uint16_t>(place + 8), loadLittle<uint16_t>(place + 10), loadLittle<uint32_t>(place + 12),
            loadLittle<uint32_t>(place + 16), loadLittle<uint64_t>(place + 32)};
}

void store(const Header& header, uint8_t* place)
{
    std::fill_n(place, kHeaderBytes, uint8_t{0});
    store(header.prefix, place);
    storeLittle(place + 20, header.format);
    storeLittle(place + 24, header.quality);
    storeLittle(place + 28, header.soundCount);
    std::copy(header.guid.begin(), header.guid.end(), place + 40);
    storeLittle(place + 56, header.rowsOffset);
    storeLittle(place + 64, header.rowBytes);
    storeLittle(place + 68, header.setupCount);
    storeLittle(place + 72, header.nameIndexOffset);
    storeLittle(place + 80, header.nameIndexCount);
    storeLittle(place + 88, header.namesOffset);
    storeLittle(place + 96, header.namesBytes);
    storeLittle(place + 104, header.setupRowsOffset);
    storeLittle(place + 112, header.tablesBytes);
    storeLittle(place + 120, header.tablesChecksum);
    storeLittle(place + kHeaderBytes - 8, checksum({place, kHeaderBytes - 8}));
}

Header loadHeader(const uint8_t* place)
{
    Header header;
    header.prefix = loadPrefix(place);
    header.format = loadLittle<uint32_t>(place + 20);
    header.quality = loadLittle<uint32_t>(place + 24);
    header.soundCount = loadLittle<uint32_t>(place + 28);
    std::copy_n(place + 40, header.guid.size(), header.guid.begin());
    header.rowsOffset = loadLittle<uint64_t>(place + 56);
    header.rowBytes = loadLittle<uint32_t>(place + 64);
    header.setupCount = loadLittle<uint32_t>(place + 68);
    header.nameIndexOffset = loadLittle<uint64_t>(place + 72);
    header.nameIndexCount = loadLittle<uint32_t>(place + 80);
    header.namesOffset = loadLittle<uint64_t>(place + 88);
    header.namesBytes = loadLittle<uint64_t>(place + 96);
    header.setupRowsOffset = loadLittle<uint64_t>(place + 104);
    header.tablesBytes = loadLittle<uint64_t>(place + 112);
    header.tablesChecksum = loadLittle<uint64_t>(place + 120);
    return header;
}

void store(const Row& row, uint8_t* place)
{
    std::fill_n(place, kSoundRecordBytes, uint8_t{0});
    storeLittle(place, row.codec);
    storeLittle(place + 1, row.sampleFormat);
    storeLittle(place + 2, row.channels);
    storeLittle(place + 4, row.sampleRate);
    storeLittle(place + 8, row.sampleCount);
    storeLittle(place + 16, row.leadIn);
    storeLittle(place + 20, row.quality);
    storeLittle(place + 24, row.setup);
    storeLittle(place + 28, row.chunksBytes);
    storeLittle(place + 32, row.chunksChecksum);
    storeLittle(place + 40, row.chunksOffset);
    storeLittle(place + 48, row.dataOffset);
    storeLittle(place + 56, row.dataBytes);
    storeLittle(place + 64, row.dataChecksum);
    storeLittle(place + 72, row.nameOffset);
    storeLittle(place + 76, row.nameBytes);
}

Row loadRow(const uint8_t* place)
{
    Row row;
    row.codec = loadLittle<uint8_t>(place);
    row.sampleFormat = loadLittle<uint8_t>(place + 1);
    row.channels = loadLittle<uint16_t>(place + 2);
    row.sampleRate = loadLittle<uint32_t>(place + 4);
    row.sampleCount = loadLittle<uint64_t>(place + 8);
    row.leadIn = loadLittle<uint32_t>(place + 16);
    row.quality = loadLittle<uint8_t>(place + 20);
    row.setup = loadLittle<uint32_t>(place + 24);
    row.chunksBytes = loadLittle<uint32_t>(place + 28);
    row.chunksChecksum = loadLittle<uint64_t>(place + 32);
    row.chunksOffset = loadLittle<uint64_t>(place + 40);
    row.dataOffset = loadLittle<uint64_t>(place + 48);
    row.dataBytes = loadLittle<uint64_t>(place + 56);
    row.dataChecksum = loadLittle<uint64_t>(place + 64);
    row.nameOffset = loadLittle<uint32_t>(place + 72);
    row.nameBytes = loadLittle<uint32_t>(place + 76);
    return row;
}

void store(const SetupRow& row, uint8_t* place)
{
    std::fill_n(place, kSetupRowBytes, uint8_t{0});
    storeLittle(place, row.offset);
    storeLittle(place + 8, row.checksum);
    storeLittle(place + 16, row.bytes);
}

SetupRow loadSetupRow(const uint8_t* place)
{
    return {loadLittle<uint64_t>(place), loadLittle<uint64_t>(place + 8), loadLittle<uint32_t>(place + 16)};
}

Error damaged(std::string* fault, std::string_view what)
{
    if (fault)
        *fault = what;
    return Error::Damaged;
}

Error unreadable(Error error, std::string_view what, std::string* fault)
{
    // What lies inside can only be damaged for those who decrypt it.
    if (error == Error::Damaged)
        return damaged(fault, std::string(what) + " can't be decrypted: they were changed");
    return error;
}

Result<Prefix> readPrefix(const ByteSource& source, std::string* fault)
{
    std::array<uint8_t, kPrefixBytes> bytes{};
    const size_t length = static_cast<size_t>(std::min<uint64_t>(source.size(), bytes.size()));
    if (const Error error = source.readAt(0, std::span(bytes).first(length)); error != Error::None)
        return unreadable(error, "the first bytes", fault);
    if (length < kMagic.size() || !std::equal(kMagic.begin(), kMagic.end(), bytes.begin()))
        return Error::NotABank;
    if (length < kPrefixBytes)
        return damaged(fault, "the file ends within its header");
    const Prefix prefix = loadPrefix(bytes.data());
    if (prefix.majorVersion != kMajorVersion)
        return Error::Version;
    return prefix;
}

Result<std::vector<uint8_t>> readHeader(const ByteSource& source, const Prefix& prefix, size_t minimum,
                                        std::string* fault)
{
    if (prefix.headerBytes < minimum || prefix.headerBytes > kMaximumHeaderBytes || prefix.headerBytes % 8 != 0)
        return damaged(fault, "the header gives a wrong size for itself");
    if (prefix.headerBytes > source.size())
        return damaged(fault, "the file ends within its header");
    std::vector<uint8_t> bytes(prefix.headerBytes);
    if (const Error error = source.readAt(0, bytes); error != Error::None)
        return unreadable(error, "the first bytes", fault);
    const std::span covered = std::span(bytes).first(bytes.size() - 8);
    if (checksum(covered) != loadLittle<uint64_t>(bytes.data() + covered.size()))
        return damaged(fault, "the header doesn't match its checksum");
    if (prefix.fileBytes != source.size())
        return damaged(fault,
                       "the file was cut or lengthened: it has " + std::to_string(source.size()) + " bytes instead of "
                           + std::to_string(prefix.fileBytes));
    return bytes;
}

const char* faultOf(const Row& row)
{
    if (row.channels == 0 || row.channels > kMaximumChannels)
        return "its number of channels is impossible";
    if (row.sampleRate == 0 || row.sampleRate > kMaximumSampleRate)
        return "its sample rate is impossible";
    if (row.sampleCount > kMaximumSampleCount || row.leadIn > kMaximumLeadIn)
        return "its length is impossible";
    if (row.quality > kMaximumQuality)
        return "its quality is impossible";
    if (row.chunksBytes > kMaximumChunksBytes)
        return "its chunks are larger than those of any sound";
    if (row.nameBytes > kMaximumNameBytes)
        return "its name is longer than any";
    constexpr const char* kNoFit = "its length and the size of its data don't fit each other";
    if (row.codec == static_cast<uint8_t>(Codec::Pcm)) {
        const uint64_t frameBytes = bytesPerSample(static_cast<SampleFormat>(row.sampleFormat)) * row.channels;
        if (frameBytes == 0)
            return "its sample format is unknown";
        const bool fits =
            row.leadIn == 0 && row.dataBytes / frameBytes == row.sampleCount && row.dataBytes % frameBytes == 0;
        return fits ? nullptr : kNoFit;
    }
    if (row.sampleFormat != static_cast<uint8_t>(SampleFormat::Pcm16))
        return "its sample format is unknown";
    if (row.codec == static_cast<uint8_t>(Codec::Kadpcm) && row.leadIn != 0)
        return kNoFit;
    return (row.sampleCount + row.leadIn) / kMaximumSamplesPerByte <= row.dataBytes ? nullptr : kNoFit;
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

Error unpackChunks(std::span<const uint8_t> chunks, Sound* sound, std::string* fault)
{
    std::array<bool, kChunkKinds.size()> seen{};
    while (!chunks.empty()) {
        if (chunks.size() < 8)
            return damaged(fault, "its chunks end within one");
        const uint32_t tag = loadLittle<uint32_t>(chunks.data());
        const uint32_t bytes = loadLittle<uint32_t>(chunks.data() + 4);
        if (bytes > chunks.size() - 8)
            return damaged(fault, "its chunks end within one");
        for (size_t i = 0; i < kChunkKinds.size(); ++i) {
            if (kChunkKinds[i].tag != tag)
                continue;
            const std::string name(chunks.begin(), chunks.begin() + 4);
            if (std::exchange(seen[i], true))
                return damaged(fault, "it has more than one chunk " + name);
            if (!kChunkKinds[i].unpack(chunks.subspan(8, bytes), sound))
                return damaged(fault, "its chunk " + name + " holds impossible values");
        }
        chunks = chunks.subspan(8 + static_cast<size_t>(bytes));
    }
    return Error::None;
}

Row rowOf(const Sound& sound, std::span<const uint8_t> chunks)
{
    Row row;
    row.codec = static_cast<uint8_t>(sound.codec);
    row.sampleFormat = static_cast<uint8_t>(sound.sampleFormat);
    row.channels = sound.channels;
    row.sampleRate = sound.sampleRate;
    row.sampleCount = sound.sampleCount;
    row.leadIn = sound.leadIn;
    row.quality = sound.quality;
    row.chunksBytes = static_cast<uint32_t>(chunks.size());
    row.chunksChecksum = checksum(chunks);
    row.dataBytes = sound.dataBytes;
    row.dataChecksum = sound.dataChecksum;
    return row;
}

Sound soundOf(const Row& row)
{
    Sound sound;
    sound.codec = static_cast<Codec>(row.codec);
    sound.sampleFormat = static_cast<SampleFormat>(row.sampleFormat);
    sound.channels = row.channels;
    sound.sampleRate = row.sampleRate;
    sound.sampleCount = row.sampleCount;
    sound.leadIn = row.leadIn;
    sound.quality = row.quality;
    sound.dataBytes = row.dataBytes;
    sound.dataChecksum = row.dataChecksum;
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
