// SPDX-License-Identifier: MIT
// Records stored under hashes. Records that were not used for a long time are dropped.
#pragma once

#include "support/content_hash.hpp"
#include "support/own_file.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace builder {

// One record, with the time of its last use by a build.
struct DatedRecord
{
    int64_t usedAt = 0; // seconds since 1970
    std::vector<uint8_t> bytes; // empty: the record is wrong and must be dropped

    // Whether the time of use should be updated. Once a day is enough, since each update rewrites the table.
    bool wantsRenewal(int64_t now) const;
};

using DatedRecords = std::map<ContentHash, DatedRecord>;

// Many small records in one block of memory or one file. Reading a file per record would take longer than the records
// save, and so would an allocation per record in a cache that many people share.
class RecordTable
{
public:
    RecordTable() = default; // empty

    // The table that file contains; nullopt if any part of it is damaged.
    static std::optional<RecordTable> parse(std::vector<uint8_t> file, Magic magic);

    std::optional<DatedRecord> find(const ContentHash& key) const;

    // Limits on the records in a file.
    struct Limits
    {
        int64_t now = 0; // seconds since 1970; records that weren't used in the 60 days before it are dropped
        uint64_t bytes = 0; // maximum size; the least recently used records above it are dropped
        int64_t recently = INT64_MAX; // records used after this time are kept even above that size
    };

    // A file with all records of the tables and of newer. If a key has several records, the one in newer is kept,
    // otherwise the most recently used one.
    static std::vector<uint8_t> merge(std::span<const RecordTable> tables, const DatedRecords& newer, Magic magic,
                                      const Limits& limits);

    // Maximum size of a file in bytes, which also holds for recently used records: a hundred thousand typical sounds.
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

} // namespace builder
