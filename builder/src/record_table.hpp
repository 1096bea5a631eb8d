// What is known of sounds whose data nobody needs to keep.
#pragma once

#include "content_hash.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace tarnok {

// What to tell of a sound whose data stands in its source file as a bank wants it.
struct RawRecord
{
    uint64_t dataOffset = 0; // in the source file, bytes
    int64_t usedAt = 0; // seconds since 1970
    std::vector<uint8_t> bytes; // the sound's serialised form; empty: the record is wrong and to be forgotten
};

// Many small records in one piece of memory or file, by the key of the sound in the cache: a file for each would cost
// more than what they save. Belongs to one thread at a time.
class RecordTable
{
public:
    // The table in file. Nothing if any of it is damaged.
    static std::optional<RecordTable> parse(std::span<const uint8_t> file);

    // Null: not known. Valid until the table is changed.
    const RawRecord* find(const ContentHash& key) const;

    void set(const ContentHash& key, RawRecord record) { mRecords.insert_or_assign(key, std::move(record)); }
    bool empty() const { return mRecords.empty(); }

    // Takes over all records of newer, in place of those of the same keys.
    void merge(RecordTable newer);

    // Forgets what was not used since `oldest`, and then the longest unused until the table has a size of at most
    // `limit` bytes, or largestTable for what was used since `recently`.
    void prune(int64_t oldest, int64_t recently, uint64_t limit);

    std::vector<uint8_t> serialise() const;

    // Bytes in a file. A hundred thousand usual sounds.
    static constexpr uint64_t largestTable = 20 << 20;

private:
    std::map<ContentHash, RawRecord> mRecords;
};

} // namespace tarnok
