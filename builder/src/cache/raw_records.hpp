// SPDX-License-Identifier: MIT
// Records of sounds whose data needn't be stored, because the source file contains it exactly as the bank will.
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

namespace builder {

struct RawRecord
{
    uint64_t dataOffset = 0; // in the source file, bytes
    std::vector<uint8_t> bytes; // the sound's serialised form
};

// One table in the cache for all such sounds, indexed by the cache keys that the sounds would have as entries. A table
// that is damaged or can't be read counts as empty, and save() replaces it.
class RawRecords
{
public:
    // If useRecords is false, nothing is found, but everything is stored.
    RawRecords(CacheFolder& folder, bool useRecords)
        : mFolder(folder)
        , mUseRecords(useRecords)
    { }

    std::optional<RawRecord> find(const ContentHash& key);
    void store(const ContentHash& key, uint64_t dataOffset, std::span<const uint8_t> record);
    void forget(const ContentHash& key);

    // Makes the new records available to other builds, and merges them with those that other builds have written in the
    // meantime. A failure doesn't affect the build: the next one analyses those files again.
    void save(const std::stop_token& stop);

private:
    RecordTable readTable() const;

    CacheFolder& mFolder;
    bool mUseRecords;
    std::mutex mMutex;
    std::optional<RecordTable> mTable; // read at the first find()
    DatedRecords mNew;
};

} // namespace builder
