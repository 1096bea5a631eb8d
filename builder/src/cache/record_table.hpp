// What is known of sounds whose data nobody needs to keep.
#pragma once

#include "support/content_hash.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace tarnok {

// What to tell of a sound whose data stands in its source file as a bank wants it.
struct RawRecord
{
    uint64_t dataOffset = 0; // in the source file, bytes
    int64_t usedAt = 0; // seconds since 1970
    std::vector<uint8_t> bytes; // the sound's serialised form; empty: the record is wrong and to be forgotten
};

// By the key of the sound in the cache.
using NewRecords = std::map<ContentHash, RawRecord>;

// Many small records in one piece of memory or file: a file for each would cost more than what they save, and so would
// a piece of memory for each in a cache that many people share.
class RecordTable
{
public:
    RecordTable() = default; // an empty one

    // The table in file. Nothing if any of it is damaged.
    static std::optional<RecordTable> parse(std::vector<uint8_t> file);

    std::optional<RawRecord> find(const ContentHash& key) const;

    // The file of a table with all records of newer, too, in place of those of the same keys. What was not used since
    // `oldest` is left out, and then the longest unused until the file has at most `limit` bytes, or kLargestTable for
    // what was used since `recently`.
    std::vector<uint8_t> mergedWith(const NewRecords& newer, int64_t oldest, int64_t recently, uint64_t limit) const;

    // The first bytes of a file.
    static constexpr char kMagic[8] = {'T', 'N', 'K', 'R', 'E', 'C', '0', '2'};

    // Bytes in a file. A hundred thousand usual sounds.
    static constexpr uint64_t kLargestTable = 20 << 20;

private:
    struct Place
    {
        ContentHash key;
        uint64_t offset = 0; // in the file
    };

    std::vector<uint8_t> mFile;
    std::vector<Place> mPlaces; // by key
};

} // namespace tarnok
