// What is known of sounds whose data nobody needs to keep, because it is in their source files as a bank wants it.
#pragma once

#include "cache/cache_folder.hpp"
#include "support/content_hash.hpp"
#include "support/record_table.hpp"

#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <vector>

namespace tarnok {

struct RawRecord
{
    uint64_t dataOffset = 0; // in the source file, bytes
    std::vector<uint8_t> bytes; // the sound's serialised form
};

// One table in the cache for all of them, by the keys that the sounds would have as entries. A table that is damaged or
// can't be read holds nothing, and is replaced by the next one.
class RawRecords
{
public:
    // With useRecords off nothing is found, though everything is stored.
    RawRecords(CacheFolder& folder, bool useRecords)
        : mFolder(folder)
        , mUseRecords(useRecords)
    { }

    std::optional<RawRecord> find(const ContentHash& key);
    void store(const ContentHash& key, uint64_t dataOffset, std::span<const uint8_t> record);
    void forget(const ContentHash& key);

    // Makes what was stored since available to other builds, together with what those have written meanwhile. A failure
    // doesn't concern the build: the next one reads those files again.
    void save(const std::stop_token& stop);

private:
    RecordTable readTable() const;

    CacheFolder& mFolder;
    bool mUseRecords;
    std::mutex mMutex;
    std::optional<RecordTable> mTable; // as read, once somebody has asked
    DatedRecords mNew;
};

} // namespace tarnok
