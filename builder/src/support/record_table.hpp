// Records under hashes, which are forgotten when nobody has used them for long.
#pragma once

#include "support/content_hash.hpp"
#include "support/own_file.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace tarnok {

// One record, and when a build last had a use for it.
struct DatedRecord
{
    int64_t usedAt = 0; // seconds since 1970
    std::vector<uint8_t> bytes; // empty: the record is wrong and to be forgotten

    // Whether another use should be noted. Once a day will do: the table is written anew for it.
    bool wantsRenewal(int64_t now) const;
};

using DatedRecords = std::map<ContentHash, DatedRecord>;

// Many small records in one piece of memory or file: a file for each would cost more than what they save, and so would
// a piece of memory for each in a cache that many people share.
class RecordTable
{
public:
    RecordTable() = default; // an empty one

    // The table in file. Nothing if any of it is damaged.
    static std::optional<RecordTable> parse(std::vector<uint8_t> file, Magic magic);

    std::optional<DatedRecord> find(const ContentHash& key) const;

    // What limits the size of a file.
    struct Limits
    {
        int64_t now = 0; // what was not used for 60 days before is dropped
        uint64_t bytes = 0; // then the longest unused, until the file has at most so many bytes ...
        int64_t recently = INT64_MAX; // ... of records that were not used since
    };

    // The file of all records of the tables and of newer. Of records of the same key, that in newer stays, otherwise
    // the one that was used last.
    static std::vector<uint8_t> merge(std::span<const RecordTable> tables, const DatedRecords& newer, Magic magic,
                                      const Limits& limits);

    // Bytes in a file, whatever was used recently. A hundred thousand usual sounds.
    static constexpr uint64_t kMaximumTableBytes = 20 << 20;

private:
    struct Entry
    {
        ContentHash key;
        uint64_t offset = 0; // in the file
    };

    std::vector<uint8_t> mFile;
    std::vector<Entry> mEntries; // by key
};

} // namespace tarnok
