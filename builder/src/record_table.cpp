#include "record_table.hpp"

#include "bank/bytes.hpp"

#include <algorithm>
#include <cstring>

namespace tarnok {

namespace {

constexpr char magic[8] = {'T', 'N', 'K', 'R', 'E', 'C', '0', '1'};

// Little-endian. The records follow each other without a gap: a head, then its bytes.
struct TableHeader
{
    char magic[8];
    uint64_t checksum; // XXH3-64 of all that follows
};

struct RecordHead
{
    uint64_t keyHigh;
    uint64_t keyLow;
    uint64_t dataOffset;
    int64_t usedAt;
    uint64_t recordBytes;
};

uint64_t sizeOf(const RawRecord& record)
{
    return sizeof(RecordHead) + record.bytes.size();
}

template <typename T>
void append(std::vector<uint8_t>* bytes, const T& value)
{
    const auto* first = reinterpret_cast<const uint8_t*>(&value);
    bytes->insert(bytes->end(), first, first + sizeof value);
}

} // namespace

std::optional<RecordTable> RecordTable::parse(std::span<const uint8_t> file)
{
    if (file.size() < sizeof(TableHeader))
        return std::nullopt;
    const auto header = bank::loadLittle<TableHeader>(file.data());
    file = file.subspan(sizeof header);
    if (std::memcmp(header.magic, magic, sizeof magic) != 0
        || ContentHasher::checksum(std::as_bytes(file)) != header.checksum)
        return std::nullopt;

    RecordTable table;
    while (!file.empty()) {
        if (file.size() < sizeof(RecordHead))
            return std::nullopt;
        const auto head = bank::loadLittle<RecordHead>(file.data());
        file = file.subspan(sizeof head);
        if (head.recordBytes > file.size())
            return std::nullopt;
        const std::span bytes = file.first(size_t(head.recordBytes));
        table.mRecords.emplace_hint(
            table.mRecords.end(), ContentHash{head.keyHigh, head.keyLow},
            RawRecord{head.dataOffset, head.usedAt, std::vector<uint8_t>(bytes.begin(), bytes.end())});
        file = file.subspan(bytes.size());
    }
    return table;
}

const RawRecord* RecordTable::find(const ContentHash& key) const
{
    const auto found = mRecords.find(key);
    return found == mRecords.end() || found->second.bytes.empty() ? nullptr : &found->second;
}

void RecordTable::merge(RecordTable newer)
{
    newer.mRecords.merge(mRecords);
    mRecords = std::move(newer.mRecords);
}

void RecordTable::prune(int64_t oldest, int64_t recently, uint64_t limit)
{
    using Place = std::map<ContentHash, RawRecord>::iterator;
    std::vector<Place> places;
    for (auto place = mRecords.begin(); place != mRecords.end(); ++place)
        places.push_back(place);
    std::stable_sort(places.begin(), places.end(),
                     [](Place left, Place right) { return left->second.usedAt > right->second.usedAt; });
    uint64_t size = sizeof(TableHeader);
    for (const Place place : places) {
        const RawRecord& record = place->second;
        const uint64_t most = record.usedAt > recently ? largestTable : std::min(limit, largestTable);
        if (record.bytes.empty() || record.usedAt < oldest || size + sizeOf(record) > most)
            mRecords.erase(place);
        else
            size += sizeOf(record);
    }
}

std::vector<uint8_t> RecordTable::serialise() const
{
    std::vector<uint8_t> file(sizeof(TableHeader));
    for (const auto& [key, record] : mRecords) {
        append(&file, RecordHead{key.high, key.low, record.dataOffset, record.usedAt, record.bytes.size()});
        file.insert(file.end(), record.bytes.begin(), record.bytes.end());
    }
    TableHeader header{{}, ContentHasher::checksum(std::as_bytes(std::span(file).subspan(sizeof header)))};
    std::memcpy(header.magic, magic, sizeof magic);
    std::memcpy(file.data(), &header, sizeof header);
    return file;
}

} // namespace tarnok
