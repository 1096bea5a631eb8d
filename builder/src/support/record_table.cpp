// SPDX-License-Identifier: MIT
#include "support/record_table.hpp"

#include "bank/checksum.hpp"
#include "base/bytes.hpp"

#include <algorithm>
#include <cstring>
#include <tuple>

namespace builder {

namespace {

constexpr int64_t kRenewAfter = 24 * 3600; // seconds
constexpr int64_t kForgetAfter = 60 * 24 * 3600; // seconds

// Little-endian. The records follow without gaps, sorted by key: each is a RecordHeader followed by its bytes.
struct TableHeader
{
    char magic[8];
    uint64_t checksum; // XXH3-64 of all that follows
};

// Precedes the bytes of a record.
struct RecordHeader
{
    ContentHash key;
    int64_t usedAt;
    uint64_t recordBytes;
};

// A record in a table or in memory.
struct Candidate
{
    RecordHeader header;
    const uint8_t* bytes;
    bool isNew;

    uint64_t size() const { return sizeof header + header.recordBytes; }
};

// Keeps one record per key and sorts them by key.
void removeRepeated(std::vector<Candidate>* records)
{
    std::sort(records->begin(), records->end(), [](const Candidate& left, const Candidate& right) {
        return std::tie(left.header.key, right.isNew, right.header.usedAt)
            < std::tie(right.header.key, left.isNew, left.header.usedAt);
    });
    const auto repeated =
        std::unique(records->begin(), records->end(),
                    [](const Candidate& left, const Candidate& right) { return left.header.key == right.header.key; });
    records->erase(repeated, records->end());
}

// Drops records that are too old or don't fit. Sorts the others by their last use.
void applyLimits(std::vector<Candidate>* records, const RecordTable::Limits& limits)
{
    std::stable_sort(records->begin(), records->end(), [](const Candidate& left, const Candidate& right) {
        return left.header.usedAt > right.header.usedAt;
    });
    constexpr uint64_t kMaximum = RecordTable::kMaximumTableBytes;
    uint64_t size = sizeof(TableHeader);
    std::erase_if(*records, [&](const Candidate& record) {
        const uint64_t maximum = record.header.usedAt > limits.recently ? kMaximum : std::min(limits.bytes, kMaximum);
        const bool isWrong = record.header.recordBytes == 0;
        if (isWrong || record.header.usedAt < limits.now - kForgetAfter || size + record.size() > maximum)
            return true;
        size += record.size();
        return false;
    });
}

std::vector<uint8_t> makeFile(std::vector<Candidate> records, Magic magic)
{
    std::sort(records.begin(), records.end(),
              [](const Candidate& left, const Candidate& right) { return left.header.key < right.header.key; });
    uint64_t size = sizeof(TableHeader);
    for (const Candidate& record : records)
        size += record.size();
    std::vector<uint8_t> file;
    file.reserve(size_t(size));
    file.resize(sizeof(TableHeader));
    for (const Candidate& record : records) {
        base::appendLittle(file, record.header);
        file.insert(file.end(), record.bytes, record.bytes + record.header.recordBytes);
    }
    TableHeader header{{}, bank::checksum(std::span<const uint8_t>(file).subspan(sizeof header))};
    std::memcpy(header.magic, magic.data(), sizeof header.magic);
    base::storeLittle(file.data(), header);
    return file;
}

} // namespace

bool DatedRecord::wantsRenewal(int64_t now) const
{
    return usedAt < now - kRenewAfter;
}

std::optional<RecordTable> RecordTable::parse(std::vector<uint8_t> file, Magic magic)
{
    if (file.size() < sizeof(TableHeader))
        return std::nullopt;
    const auto tableHeader = base::loadLittle<TableHeader>(file.data());
    if (std::memcmp(tableHeader.magic, magic.data(), magic.size()) != 0
        || bank::checksum(std::span<const uint8_t>(file).subspan(sizeof tableHeader)) != tableHeader.checksum)
        return std::nullopt;

    RecordTable table;
    for (uint64_t offset = sizeof(TableHeader); offset < file.size();) {
        if (file.size() - offset < sizeof(RecordHeader))
            return std::nullopt;
        const auto header = base::loadLittle<RecordHeader>(&file[offset]);
        const bool isInOrder = table.mEntries.empty() || table.mEntries.back().key < header.key;
        if (header.recordBytes > file.size() - offset - sizeof header || !isInOrder)
            return std::nullopt;
        table.mEntries.push_back({header.key, offset});
        offset += sizeof header + header.recordBytes;
    }
    table.mFile = std::move(file);
    return table;
}

std::optional<DatedRecord> RecordTable::find(const ContentHash& key) const
{
    const auto found =
        std::lower_bound(mEntries.begin(), mEntries.end(), key,
                         [](const Entry& entry, const ContentHash& wanted) { return entry.key < wanted; });
    if (found == mEntries.end() || found->key != key)
        return std::nullopt;
    const auto header = base::loadLittle<RecordHeader>(&mFile[found->offset]);
    const uint8_t* bytes = &mFile[found->offset] + sizeof header;
    return DatedRecord{header.usedAt, std::vector<uint8_t>(bytes, bytes + header.recordBytes)};
}

std::vector<uint8_t> RecordTable::merge(std::span<const RecordTable> tables, const DatedRecords& newer, Magic magic,
                                        const Limits& limits)
{
    std::vector<Candidate> records;
    for (const auto& [key, record] : newer)
        records.push_back({{key, record.usedAt, record.bytes.size()}, record.bytes.data(), true});
    for (const RecordTable& table : tables) {
        for (const Entry& entry : table.mEntries) {
            const uint8_t* stored = &table.mFile[entry.offset];
            records.push_back({base::loadLittle<RecordHeader>(stored), stored + sizeof(RecordHeader), false});
        }
    }
    removeRepeated(&records);
    applyLimits(&records, limits);
    return makeFile(std::move(records), magic);
}

} // namespace builder
