#include "cache/record_table.hpp"

#include "bank/checksum.hpp"
#include "base/bytes.hpp"

#include <algorithm>
#include <cstring>

namespace tarnok {

namespace {

// Little-endian. The records follow each other without a gap, by their keys: a head, then its bytes.
struct TableHeader
{
    char magic[8];
    uint64_t checksum; // XXH3-64 of all that follows
};

// In front of the bytes of a record.
struct RecordHead
{
    ContentHash key;
    uint64_t dataOffset;
    int64_t usedAt;
    uint64_t recordBytes;
};

// A record wherever it is.
struct Candidate
{
    RecordHead head;
    const uint8_t* bytes;

    uint64_t size() const { return sizeof head + head.recordBytes; }
};

void leaveOut(std::vector<Candidate>* records, int64_t oldest, int64_t recently, uint64_t limit)
{
    std::stable_sort(records->begin(), records->end(), [](const Candidate& left, const Candidate& right) {
        return left.head.usedAt > right.head.usedAt;
    });
    constexpr uint64_t kMost = RecordTable::kLargestTable;
    uint64_t size = sizeof(TableHeader);
    auto end = records->begin();
    for (const Candidate& record : *records) {
        const bool fits = size + record.size() <= (record.head.usedAt > recently ? kMost : std::min(limit, kMost));
        if (record.head.usedAt < oldest || !fits)
            continue;
        size += record.size();
        *end++ = record;
    }
    records->erase(end, records->end());
}

std::vector<uint8_t> fileOf(std::vector<Candidate> records)
{
    std::sort(records.begin(), records.end(),
              [](const Candidate& left, const Candidate& right) { return left.head.key < right.head.key; });
    uint64_t size = sizeof(TableHeader);
    for (const Candidate& record : records)
        size += record.size();
    std::vector<uint8_t> file;
    file.reserve(size_t(size));
    file.resize(sizeof(TableHeader));
    for (const Candidate& record : records) {
        base::appendLittle(file, record.head);
        file.insert(file.end(), record.bytes, record.bytes + record.head.recordBytes);
    }
    TableHeader header{{}, bank::checksum(std::as_bytes(std::span(file).subspan(sizeof header)))};
    std::memcpy(header.magic, RecordTable::kMagic, sizeof header.magic);
    std::memcpy(file.data(), &header, sizeof header);
    return file;
}

} // namespace

std::optional<RecordTable> RecordTable::parse(std::vector<uint8_t> file)
{
    if (file.size() < sizeof(TableHeader))
        return std::nullopt;
    const auto header = base::loadLittle<TableHeader>(file.data());
    if (std::memcmp(header.magic, kMagic, sizeof kMagic) != 0
        || bank::checksum(std::as_bytes(std::span(file).subspan(sizeof header))) != header.checksum)
        return std::nullopt;

    RecordTable table;
    for (uint64_t offset = sizeof header; offset < file.size();) {
        if (file.size() - offset < sizeof(RecordHead))
            return std::nullopt;
        const auto head = base::loadLittle<RecordHead>(&file[offset]);
        const Place place{head.key, offset};
        offset += sizeof head;
        const bool isInOrder = table.mPlaces.empty() || table.mPlaces.back().key < place.key;
        if (head.recordBytes > file.size() - offset || !isInOrder)
            return std::nullopt;
        table.mPlaces.push_back(place);
        offset += head.recordBytes;
    }
    table.mFile = std::move(file);
    return table;
}

std::optional<RawRecord> RecordTable::find(const ContentHash& key) const
{
    const auto found =
        std::lower_bound(mPlaces.begin(), mPlaces.end(), key,
                         [](const Place& place, const ContentHash& wanted) { return place.key < wanted; });
    if (found == mPlaces.end() || found->key != key)
        return std::nullopt;
    const auto head = base::loadLittle<RecordHead>(&mFile[found->offset]);
    const uint8_t* bytes = &mFile[found->offset] + sizeof head;
    return RawRecord{head.dataOffset, head.usedAt, std::vector<uint8_t>(bytes, bytes + head.recordBytes)};
}

std::vector<uint8_t> RecordTable::mergedWith(const NewRecords& newer, int64_t oldest, int64_t recently,
                                             uint64_t limit) const
{
    std::vector<Candidate> records;
    records.reserve(mPlaces.size() + newer.size());
    for (const auto& [key, record] : newer) {
        if (!record.bytes.empty())
            records.push_back({{key, record.dataOffset, record.usedAt, record.bytes.size()}, record.bytes.data()});
    }
    for (const Place& place : mPlaces) {
        if (!newer.contains(place.key))
            records.push_back(
                {base::loadLittle<RecordHead>(&mFile[place.offset]), &mFile[place.offset] + sizeof(RecordHead)});
    }
    leaveOut(&records, oldest, recently, limit);
    return fileOf(std::move(records));
}

} // namespace tarnok
