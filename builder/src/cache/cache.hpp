// SPDX-License-Identifier: MIT
// Sounds that earlier builds have encoded.
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

namespace builder {

// One encoded sound that was found in the cache and verified.
struct CacheEntry
{
    base::FileDescriptor file;
    bank::Codec codec = bank::Codec::Pcm;
    uint64_t dataBytes = 0;
    std::vector<uint8_t> record;
};

// An entry is named by the hash of everything that determines its content (content-addressed), so it never changes and
// never goes out of date. It is created by a rename and contains checksums: whatever a crash, a full disk or a person
// does to it, it is either correct, or it is recognised as damaged and the sound is encoded again. Several processes
// may share the folder, also from several machines.
//
// Files in the folder that we didn't create are left alone: a file whose name or first bytes aren't ours is neither
// removed nor replaced, and an entry that would need its name isn't stored.
class Cache
{
public:
    // If useEntries is false, nothing is found, but everything is stored.
    Cache(CacheFolder& folder, bool useEntries)
        : mFolder(folder)
        , mUseEntries(useEntries)
    { }

    CacheFolder& folder() { return mFolder; }

    // Finds the entry of a key. All of it is read and compared with its checksums, and its record is checked for
    // validity and against the header. A damaged entry isn't found; it is kept until store() replaces it.
    std::optional<CacheEntry> find(const ContentHash& key, const std::stop_token& stop);

    // Opens an entry that was found or stored during this build; *fileBytes becomes the size of its file. Empty if it
    // was removed since.
    base::FileDescriptor reopen(const ContentHash& key, uint64_t* fileBytes = nullptr) const;

    // Makes a file of CacheFolder::newFile() the entry of a key, and replaces a damaged one. Returns false if that
    // fails; file is then unchanged.
    bool store(base::TemporaryFile* file, const ContentHash& key);

    // Postpones the removal of an entry that this build still needs and has found or stored long ago.
    void markUsed(const ContentHash& key) const;

    // Limits the size of the folder, see tidyEntries().
    void tidy(const std::stop_token& stop);

private:
    std::string entryPath(const ContentHash& key) const;

    CacheFolder& mFolder;
    bool mUseEntries;
    std::atomic<uint64_t> mStoredBytes = 0; // since the last tidying
};

} // namespace builder
