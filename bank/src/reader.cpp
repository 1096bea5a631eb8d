#include "bank/reader.hpp"

#include "bank/checksum.hpp"
#include "layout.hpp"

#include <algorithm>

namespace bank {

using namespace layout;

Result<Kind> probe(const ByteSource& source)
{
    const Result<Prefix> prefix = readPrefix(source);
    if (!prefix)
        return prefix.error();
    return prefix->flags & kFlagEncrypted ? Kind::Encrypted : Kind::Plain;
}

struct BankReader::Tables
{
    std::shared_ptr<const ByteSource> source;
    Header header;
    BankInfo info;
    std::vector<uint8_t> bytes; // header and tables, as they stand in the file

    [[nodiscard]] Row row(uint32_t index) const
    {
        return loadRow(bytes.data() + header.rowsOffset + size_t(index) * header.rowBytes);
    }
    [[nodiscard]] SetupRow setupRow(uint32_t index) const
    {
        return loadSetupRow(bytes.data() + header.setupRowsOffset + size_t(index) * kSetupRowBytes);
    }
    [[nodiscard]] std::string_view name(const Row& row) const
    {
        return {reinterpret_cast<const char*>(bytes.data() + header.namesOffset + row.nameOffset), row.nameBytes};
    }
    [[nodiscard]] uint64_t tablesEnd() const { return bytes.size(); }

    Error load();
    [[nodiscard]] bool tablesFit() const;
    [[nodiscard]] bool rowFits(const Row& row) const;
    [[nodiscard]] bool contentsFit() const;
    Result<std::vector<uint8_t>> readChecked(uint64_t offset, uint64_t size, uint64_t expected) const;
};

Error BankReader::Tables::load()
{
    const Result<Prefix> prefix = readPrefix(*source);
    if (!prefix)
        return prefix.error();
    if (prefix->flags & kFlagEncrypted)
        return Error::KeyMissing;
    Result<std::vector<uint8_t>> front = readHeader(*source, *prefix, kHeaderBytes);
    if (!front)
        return front.error();
    header = loadHeader(front->data());
    if (!rangeInside(prefix->headerBytes, header.tablesBytes, source->size()))
        return Error::Damaged;

    bytes = std::move(*front);
    bytes.resize(size_t(prefix->headerBytes + header.tablesBytes));
    const std::span tables = std::span(bytes).subspan(prefix->headerBytes);
    if (const Error error = source->readAt(prefix->headerBytes, tables); error != Error::None)
        return error;
    if (checksum(tables) != header.tablesChecksum || !tablesFit() || !contentsFit())
        return Error::Damaged;

    info.majorVersion = header.prefix.majorVersion;
    info.minorVersion = header.prefix.minorVersion;
    info.format = Codec(uint8_t(std::min<uint32_t>(header.format, 0xff)));
    info.quality = header.quality;
    info.soundCount = header.soundCount;
    info.hasNames = header.prefix.flags & kFlagNames;
    if (header.prefix.flags & kFlagGuid)
        info.guid = header.guid;
    info.fileBytes = header.prefix.fileBytes;
    return Error::None;
}

bool BankReader::Tables::tablesFit() const
{
    // Counts and sizes are 32 bits wide, so that their products fit 64.
    const auto fits = [this](uint64_t offset, uint64_t size) {
        return offset >= header.prefix.headerBytes && rangeInside(offset, size, tablesEnd());
    };
    return header.rowBytes >= kSoundRecordBytes && header.rowBytes <= kMaximumHeaderBytes
        && fits(header.rowsOffset, uint64_t(header.soundCount) * header.rowBytes)
        && fits(header.setupRowsOffset, uint64_t(header.setupCount) * kSetupRowBytes)
        && fits(header.nameIndexOffset, uint64_t(header.nameIndexCount) * kNameIndexBytes)
        && fits(header.namesOffset, header.namesBytes) && header.nameIndexCount <= header.soundCount;
}

bool BankReader::Tables::rowFits(const Row& row) const
{
    const uint64_t fileBytes = header.prefix.fileBytes;
    return plausible(row) && (row.setup == kNoSetup || row.setup < header.setupCount) && row.chunksOffset >= tablesEnd()
        && rangeInside(row.chunksOffset, row.chunksBytes, fileBytes) && row.dataOffset >= tablesEnd()
        && rangeInside(row.dataOffset, row.dataBytes, fileBytes)
        && rangeInside(row.nameOffset, row.nameBytes, header.namesBytes);
}

bool BankReader::Tables::contentsFit() const
{
    for (uint32_t i = 0; i < header.soundCount; ++i) {
        if (!rowFits(row(i)))
            return false;
    }
    for (uint32_t i = 0; i < header.setupCount; ++i) {
        const SetupRow setup = setupRow(i);
        if (setup.offset < tablesEnd() || !rangeInside(setup.offset, setup.bytes, header.prefix.fileBytes))
            return false;
    }
    for (uint32_t i = 0; i < header.nameIndexCount; ++i) {
        const uint8_t* place = bytes.data() + header.nameIndexOffset + size_t(i) * kNameIndexBytes;
        if (loadLittle<uint32_t>(place + 8) >= header.soundCount)
            return false;
    }
    return true;
}

Result<std::vector<uint8_t>> BankReader::Tables::readChecked(uint64_t offset, uint64_t size, uint64_t expected) const
{
    std::vector<uint8_t> part(static_cast<size_t>(size));
    if (const Error error = source->readAt(offset, part); error != Error::None)
        return error;
    if (checksum(part) != expected)
        return Error::Damaged;
    return part;
}

Result<BankReader> BankReader::open(std::shared_ptr<const ByteSource> source)
{
    auto tables = std::make_unique<Tables>();
    tables->source = std::move(source);
    if (const Error error = tables->load(); error != Error::None)
        return error;
    return BankReader(std::move(tables));
}

BankReader::BankReader(std::unique_ptr<Tables> tables)
    : mTables(std::move(tables))
{ }

BankReader::BankReader(BankReader&&) noexcept = default;
BankReader& BankReader::operator=(BankReader&&) noexcept = default;
BankReader::~BankReader() = default;

const BankInfo& BankReader::info() const
{
    return mTables->info;
}

const std::shared_ptr<const ByteSource>& BankReader::source() const
{
    return mTables->source;
}

SoundEntry BankReader::entry(uint32_t index) const
{
    assert(index < info().soundCount);
    const Row row = mTables->row(index);
    SoundEntry entry;
    entry.codec = Codec(row.codec);
    entry.sampleFormat = SampleFormat(row.sampleFormat);
    entry.channels = row.channels;
    entry.sampleRate = row.sampleRate;
    entry.sampleCount = row.sampleCount;
    entry.leadIn = row.leadIn;
    entry.quality = row.quality;
    if (row.setup != kNoSetup)
        entry.setup = row.setup;
    entry.chunksOffset = row.chunksOffset;
    entry.chunksBytes = row.chunksBytes;
    entry.chunksChecksum = row.chunksChecksum;
    entry.dataOffset = row.dataOffset;
    entry.dataBytes = row.dataBytes;
    entry.dataChecksum = row.dataChecksum;
    entry.name = mTables->name(row);
    return entry;
}

Result<Sound> BankReader::soundWithoutSetup(uint32_t index) const
{
    if (index >= info().soundCount)
        return Error::NotFound;
    const Row row = mTables->row(index);
    const Result<std::vector<uint8_t>> chunks =
        mTables->readChecked(row.chunksOffset, row.chunksBytes, row.chunksChecksum);
    if (!chunks)
        return chunks.error();
    Sound sound = soundOf(row);
    if (const Error error = unpackChunks(*chunks, &sound); error != Error::None)
        return error;
    return sound;
}

Result<Sound> BankReader::sound(uint32_t index) const
{
    Result<Sound> sound = soundWithoutSetup(index);
    if (!sound)
        return sound;
    if (const uint32_t setupIndex = mTables->row(index).setup; setupIndex != kNoSetup) {
        Result<std::vector<uint8_t>> bytes = setup(setupIndex);
        if (!bytes)
            return bytes.error();
        sound->setup = std::move(*bytes);
    }
    return sound;
}

Result<std::vector<uint8_t>> BankReader::setup(uint32_t setupIndex) const
{
    if (setupIndex >= setupCount())
        return Error::NotFound;
    const SetupRow row = mTables->setupRow(setupIndex);
    return mTables->readChecked(row.offset, row.bytes, row.checksum);
}

uint32_t BankReader::setupCount() const
{
    return mTables->header.setupCount;
}

Result<uint32_t> BankReader::find(std::string_view name) const
{
    const uint8_t* index = mTables->bytes.data() + mTables->header.nameIndexOffset;
    const auto hashAt = [index](uint32_t i) {
        return loadLittle<uint64_t>(index + size_t(i) * kNameIndexBytes);
    };
    const uint64_t hash = nameHash({reinterpret_cast<const uint8_t*>(name.data()), name.size()});

    uint32_t low = 0;
    uint32_t high = mTables->header.nameIndexCount;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (hashAt(middle) < hash)
            low = middle + 1;
        else
            high = middle;
    }
    for (; low < mTables->header.nameIndexCount && hashAt(low) == hash; ++low) {
        const uint32_t sound = loadLittle<uint32_t>(index + size_t(low) * kNameIndexBytes + 8);
        if (mTables->name(mTables->row(sound)) == name)
            return sound;
    }
    return Error::NotFound;
}

Error BankReader::verifyData(uint32_t index) const
{
    if (index >= info().soundCount)
        return Error::NotFound;
    const Row row = mTables->row(index);
    RunningChecksum running;
    std::vector<uint8_t> buffer(size_t(std::min<uint64_t>(row.dataBytes, 256 * 1024)));
    for (uint64_t done = 0; done < row.dataBytes;) {
        const std::span part = std::span(buffer).first(size_t(std::min<uint64_t>(buffer.size(), row.dataBytes - done)));
        if (const Error error = mTables->source->readAt(row.dataOffset + done, part); error != Error::None)
            return error;
        running.add(part);
        done += part.size();
    }
    return running.value() == row.dataChecksum ? Error::None : Error::Damaged;
}

} // namespace bank
