// SPDX-License-Identifier: MIT
#include "bank/reader.hpp"

#include "bank/checksum.hpp"
#include "layout.hpp"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace bank {

using namespace layout;
using base::Error;
using base::ErrorCode;
using base::Result;

Result<Kind> probe(const base::ByteSource& source)
{
    const Result<Prefix> prefix = readPrefix(source);
    if (!prefix)
        return prefix.error();
    return prefix->flags & kFlagEncrypted ? Kind::Encrypted : Kind::Plain;
}

namespace {

Error mismatch(std::string_view what)
{
    return damaged(std::string(what) + " don't match the checksum");
}

struct Range
{
    uint64_t begin = 0;
    uint64_t bytes = 0;
};

// Finds out whether ranges share bytes. None of them may overflow. Ranges in rising order, as writers lay them out,
// need one comparison each and no memory; only others have to be sorted.
class Overlaps
{
public:
    void add(const Range& range)
    {
        if (range.bytes == 0)
            return;
        mRise = mRise && range.begin >= mEnd;
        mEnd = range.begin + range.bytes;
        ++mCount;
    }

    // forEach(take) must call take(range) for the same ranges.
    template <typename ForEach>
    [[nodiscard]] bool any(ForEach forEach) const
    {
        if (mRise)
            return false;
        std::vector<Range> ranges;
        ranges.reserve(mCount);
        forEach([&](const Range& range) {
            if (range.bytes > 0)
                ranges.push_back(range);
        });
        std::sort(ranges.begin(), ranges.end(), [](const Range& a, const Range& b) { return a.begin < b.begin; });
        const auto overlap = [](const Range& a, const Range& b) {
            return b.begin - a.begin < a.bytes;
        };
        return std::adjacent_find(ranges.begin(), ranges.end(), overlap) != ranges.end();
    }

private:
    uint64_t mEnd = 0;
    size_t mCount = 0;
    bool mRise = true;
};

} // namespace

// Header and tables in memory. All access to them goes through these functions, which rely on load() to have checked
// every offset.
struct BankReader::Tables
{
    std::shared_ptr<const base::ByteSource> source;
    Header header;
    BankInfo info;
    std::vector<uint8_t> bytes; // header and tables, as stored in the file

    [[nodiscard]] Row row(uint32_t index) const
    {
        return loadRow(bytes.data() + header.rowsOffset + static_cast<size_t>(index) * header.rowBytes);
    }
    [[nodiscard]] SetupRow setupRow(uint32_t index) const
    {
        return loadSetupRow(bytes.data() + header.setupRowsOffset + static_cast<size_t>(index) * kSetupRowBytes);
    }
    [[nodiscard]] std::string_view name(const Row& row) const
    {
        return {reinterpret_cast<const char*>(bytes.data() + header.namesOffset + row.nameOffset), row.nameBytes};
    }
    [[nodiscard]] NameIndexRow nameIndexRow(uint32_t i) const
    {
        return loadNameIndexRow(bytes.data() + header.nameIndexOffset + static_cast<size_t>(i) * kNameIndexBytes);
    }
    [[nodiscard]] uint64_t tablesEnd() const { return bytes.size(); }

    Result<> load();
    Result<> checkRanges() const;
    [[nodiscard]] bool tablesFit() const;
    [[nodiscard]] const char* headerFault() const;
    [[nodiscard]] const char* rowFault(const Row& row) const;

    // Call take(range) for every setup, all chunks and all data, and for every name; offsets of names count from the
    // first name.
    template <typename Take>
    void forEachPart(Take take) const;
    template <typename Take>
    void forEachName(Take take) const;

    // what: the start of the error text, a plural noun.
    Result<std::vector<uint8_t>> readChecked(uint64_t offset, uint64_t size, uint64_t expected,
                                             std::string_view what) const;
};

Result<> BankReader::Tables::load()
{
    const Result<Prefix> prefix = readPrefix(*source);
    if (!prefix)
        return prefix.error();
    if (prefix->flags & kFlagEncrypted)
        return Error{ErrorCode::KeyMissing};
    Result<std::vector<uint8_t>> front = readHeader(*source, *prefix, kHeaderBytes);
    if (!front)
        return front.error();
    header = loadHeader(front->data());
    if (!base::rangeInside(prefix->headerBytes, header.tablesBytes, source->size()))
        return damaged("the tables extend past the end of the file");
    if (header.tablesBytes > kMaximumTablesBytes)
        return damaged("the tables are too large");

    bytes = std::move(*front);
    bytes.resize(static_cast<size_t>(prefix->headerBytes + header.tablesBytes));
    const std::span tables = std::span(bytes).subspan(prefix->headerBytes);
    if (const Result<> result = source->readAt(prefix->headerBytes, tables); !result)
        return unreadable(result.error(), "the tables");
    if (checksum(tables) != header.tablesChecksum)
        return damaged("the tables don't match the checksum");
    if (const Result<> result = checkRanges(); !result)
        return result.error();

    info.majorVersion = header.prefix.majorVersion;
    info.minorVersion = header.prefix.minorVersion;
    info.format = static_cast<Codec>(static_cast<uint8_t>(std::min<uint32_t>(header.format, 0xff)));
    info.quality = header.quality;
    info.soundCount = header.soundCount;
    info.hasNames = header.prefix.flags & kFlagNames;
    if (header.prefix.flags & kFlagGuid)
        info.guid = header.guid;
    return {};
}

bool BankReader::Tables::tablesFit() const
{
    // Counts and sizes have 32 bits, so their products fit 64.
    const std::array<Range, 4> tables = {
        {{header.rowsOffset, static_cast<uint64_t>(header.soundCount) * header.rowBytes},
         {header.setupRowsOffset, static_cast<uint64_t>(header.setupCount) * kSetupRowBytes},
         {header.nameIndexOffset, static_cast<uint64_t>(header.nameIndexCount) * kNameIndexBytes},
         {header.namesOffset, header.namesBytes}}};
    Overlaps overlaps;
    for (const Range& table : tables) {
        if (table.begin < header.prefix.headerBytes || !base::rangeInside(table.begin, table.bytes, tablesEnd()))
            return false;
        overlaps.add(table);
    }
    return header.rowBytes >= kSoundRecordBytes && header.rowBytes <= kMaximumHeaderBytes
        && !overlaps.any([&](auto take) { std::for_each(tables.begin(), tables.end(), take); });
}

const char* BankReader::Tables::rowFault(const Row& row) const
{
    const uint64_t fileBytes = header.prefix.fileBytes;
    if (const char* fault = findFault(row))
        return fault;
    if (row.setup != kNoSetup && row.setup >= header.setupCount)
        return "its setup doesn't exist";
    if (row.chunksOffset < tablesEnd() || !base::rangeInside(row.chunksOffset, row.chunksBytes, fileBytes))
        return "its chunks lie outside the bank";
    if (row.dataOffset < tablesEnd() || !base::rangeInside(row.dataOffset, row.dataBytes, fileBytes))
        return "its data lies outside the bank";
    if (!base::rangeInside(row.nameOffset, row.nameBytes, header.namesBytes))
        return "its name lies outside the names";
    return nullptr;
}

const char* BankReader::Tables::headerFault() const
{
    if (!tablesFit())
        return "a table lies outside the tables or overlaps another one";
    if (header.quality > kMaximumQuality)
        return "the quality in the header is impossible";
    const bool hasNames = header.prefix.flags & kFlagNames;
    if (header.nameIndexCount != (hasNames ? header.soundCount : 0) || (!hasNames && header.namesBytes > 0))
        return "the index of names doesn't fit the number of sounds";
    return nullptr;
}

template <typename Take>
void BankReader::Tables::forEachPart(Take take) const
{
    for (uint32_t i = 0; i < header.setupCount; ++i) {
        const SetupRow setup = setupRow(i);
        take(Range{setup.offset, setup.bytes});
    }
    for (uint32_t i = 0; i < header.soundCount; ++i) {
        const Row sound = row(i);
        take(Range{sound.chunksOffset, sound.chunksBytes});
        take(Range{sound.dataOffset, sound.dataBytes});
    }
}

template <typename Take>
void BankReader::Tables::forEachName(Take take) const
{
    for (uint32_t i = 0; i < header.soundCount; ++i) {
        const Row sound = row(i);
        take(Range{sound.nameOffset, sound.nameBytes});
    }
}

// If sounds could share bytes, a small file could contain a large sound thousands of times.
Result<> BankReader::Tables::checkRanges() const
{
    if (const char* found = headerFault())
        return damaged(found);
    Overlaps parts;
    for (uint32_t i = 0; i < header.setupCount; ++i) {
        const SetupRow setup = setupRow(i);
        if (setup.offset < tablesEnd() || !base::rangeInside(setup.offset, setup.bytes, header.prefix.fileBytes))
            return damaged("setup " + std::to_string(i) + " lies outside the bank");
        if (setup.bytes > kMaximumSetupBytes)
            return damaged("setup " + std::to_string(i) + " is too large");
        parts.add({setup.offset, setup.bytes});
    }
    Overlaps names;
    const bool anyZero =
        std::memchr(bytes.data() + header.namesOffset, 0, static_cast<size_t>(header.namesBytes)) != nullptr;
    for (uint32_t i = 0; i < header.soundCount; ++i) {
        const Row sound = row(i);
        const char* found = rowFault(sound);
        if (!found && anyZero && name(sound).find('\0') != std::string_view::npos)
            found = "its name contains a zero byte";
        if (found)
            return damaged("sound " + std::to_string(i) + ": " + found);
        parts.add({sound.chunksOffset, sound.chunksBytes});
        parts.add({sound.dataOffset, sound.dataBytes});
        names.add({sound.nameOffset, sound.nameBytes});
    }
    for (uint32_t i = 0; i < header.nameIndexCount; ++i) {
        if (nameIndexRow(i).sound >= header.soundCount)
            return damaged("the index of names points to a sound that doesn't exist");
    }
    if (parts.any([this](auto take) { forEachPart(take); }))
        return damaged("parts of its sounds share bytes");
    if (names.any([this](auto take) { forEachName(take); }))
        return damaged("names of its sounds share bytes");
    return {};
}

Result<std::vector<uint8_t>> BankReader::Tables::readChecked(uint64_t offset, uint64_t size, uint64_t expected,
                                                             std::string_view what) const
{
    std::vector<uint8_t> part(static_cast<size_t>(size));
    if (const Result<> result = source->readAt(offset, part); !result)
        return unreadable(result.error(), what);
    if (checksum(part) != expected)
        return mismatch(what);
    return part;
}

Result<BankReader> BankReader::open(std::shared_ptr<const base::ByteSource> source)
{
    auto tables = std::make_unique<Tables>();
    tables->source = std::move(source);
    if (const Result<> result = tables->load(); !result)
        return result.error();
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

const std::shared_ptr<const base::ByteSource>& BankReader::source() const
{
    return mTables->source;
}

SoundEntry BankReader::entry(uint32_t index) const
{
    assert(index < info().soundCount);
    const Row row = mTables->row(index);
    const std::optional<uint32_t> setup = row.setup == kNoSetup ? std::nullopt : std::optional(row.setup);
    return {row, setup, row.chunksBytes, row.dataOffset, mTables->name(row)};
}

Result<Sound> BankReader::soundWithoutSetup(uint32_t index) const
{
    if (index >= info().soundCount)
        return Error{ErrorCode::NotFound};
    const Row row = mTables->row(index);
    const Result<std::vector<uint8_t>> chunks =
        mTables->readChecked(row.chunksOffset, row.chunksBytes, row.chunksChecksum, "its chunks");
    if (!chunks)
        return chunks.error();
    Sound sound = makeSound(row);
    if (const Result<> result = unpackChunks(*chunks, &sound); !result)
        return result.error();
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
        return Error{ErrorCode::NotFound};
    const SetupRow row = mTables->setupRow(setupIndex);
    return mTables->readChecked(row.offset, row.bytes, row.checksum, "the headers of its codec");
}

uint32_t BankReader::setupCount() const
{
    return mTables->header.setupCount;
}

uint32_t BankReader::setupBytes(uint32_t setupIndex) const
{
    assert(setupIndex < setupCount());
    return mTables->setupRow(setupIndex).bytes;
}

Result<uint32_t> BankReader::find(std::string_view name) const
{
    const uint64_t hash = nameHash(base::textBytes(name));

    uint32_t low = 0;
    uint32_t high = mTables->header.nameIndexCount;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (mTables->nameIndexRow(middle).hash < hash)
            low = middle + 1;
        else
            high = middle;
    }
    for (; low < mTables->header.nameIndexCount && mTables->nameIndexRow(low).hash == hash; ++low) {
        const uint32_t sound = mTables->nameIndexRow(low).sound;
        if (mTables->name(mTables->row(sound)) == name)
            return sound;
    }
    return Error{ErrorCode::NotFound};
}

Result<> BankReader::verifyData(uint32_t index) const
{
    if (index >= info().soundCount)
        return Error{ErrorCode::NotFound};
    const Row row = mTables->row(index);
    constexpr std::string_view kWhat = "its data";
    RunningChecksum running;
    std::vector<uint8_t> buffer(static_cast<size_t>(std::min<uint64_t>(row.dataBytes, 256 * 1024)));
    for (uint64_t done = 0; done < row.dataBytes;) {
        const std::span part =
            std::span(buffer).first(static_cast<size_t>(std::min<uint64_t>(buffer.size(), row.dataBytes - done)));
        if (const Result<> result = mTables->source->readAt(row.dataOffset + done, part); !result)
            return unreadable(result.error(), kWhat);
        running.add(part);
        done += part.size();
    }
    if (running.value() != row.dataChecksum)
        return damaged("its data doesn't match the checksum");
    return {};
}

Result<> BankReader::verifyNames() const
{
    const Tables& tables = *mTables;
    NameIndexRow last;
    for (uint32_t i = 0; i < tables.header.nameIndexCount; ++i) {
        const NameIndexRow row = tables.nameIndexRow(i);
        if (row.hash != nameHash(base::textBytes(tables.name(tables.row(row.sound)))))
            return damaged("the index of names doesn't match the names");
        // With strictly rising entries, each sound occurs once.
        if (i > 0 && last >= row)
            return damaged("the index of names is out of order");
        last = row;
    }
    return {};
}

} // namespace bank
