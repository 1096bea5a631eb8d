// The sounds that were encoded before.
#pragma once

#include "bank/sound.hpp"
#include "base/file_descriptor.hpp"
#include "base/temporary_file.hpp"
#include "cache/cache_folder.hpp"
#include "support/content_hash.hpp"

#include <atomic>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace tarnok {

// One encoded sound of the cache, found and verified.
struct CacheEntry
{
    base::FileDescriptor file;
    bank::Codec codec = bank::Codec::Pcm;
    uint64_t dataBytes = 0;
    std::vector<uint8_t> record;
};

// Entries are named by the hash of everything that decides about their content (content-addressed), so an entry never
// changes and never goes out of date. It arrives by rename and carries checksums: whatever a crash, a full disk or a
// curious person does to it, it is either right or found to be damaged and made again. Builds of several processes,
// also on several machines, may share the folder.
//
// Files of somebody else in the folder are left alone: what isn't ours by its name and its first bytes is neither
// removed nor replaced, and an entry that would have its name isn't kept.
class Cache
{
public:
    // With useEntries off nothing is found, though everything is stored.
    Cache(CacheFolder& folder, bool useEntries)
        : mFolder(folder)
        , mUseEntries(useEntries)
    { }

    CacheFolder& folder() { return mFolder; }

    // The entry of that key after all of it was read and compared with its checksums, and its record with what an
    // encoder can say and with the header. A damaged one isn't found; it stays until store() replaces it.
    std::optional<CacheEntry> find(const ContentHash& key, const std::stop_token& stop);

    // Opens an entry that was found or stored during this build, and stores the size of its file. Empty when somebody
    // has removed it since.
    base::FileDescriptor reopen(const ContentHash& key, uint64_t* fileBytes = nullptr) const;

    // Makes a file of CacheFolder::newFile() the entry of that key, in place of a damaged one. Returns whether that
    // worked; if not, file remains.
    bool store(base::TemporaryFile* file, const ContentHash& key);

    // Puts off the removal of an entry that this build needs and found or stored long ago.
    void keep(const ContentHash& key) const;

    // Keeps the size of the folder in bounds, see tidyEntries().
    void tidy(const std::stop_token& stop);

private:
    std::string entryPath(const ContentHash& key) const;

    CacheFolder& mFolder;
    bool mUseEntries;
    std::atomic<uint64_t> mStoredBytes = 0; // since the last tidying
};

} // namespace tarnok
