// The folder of sounds that were encoded before.
#pragma once

#include "bank/sound.hpp"
#include "cache/record_table.hpp"
#include "support/content_hash.hpp"
#include "support/file.hpp"
#include "support/remarks.hpp"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace tarnok {

// What stands in front of the encoded data in an entry of the cache; the sound's serialised form follows the data.
// Little-endian.
struct EntryHeader
{
    char magic[8];
    std::array<uint8_t, 32> key;
    uint64_t dataBytes;
    uint64_t recordBytes;
    uint64_t dataChecksum; // XXH3-64, the one that the sound's record tells
    uint64_t recordChecksum; // XXH3-64 of the serialised form
    uint64_t headerChecksum; // XXH3-64 of the fields above

    static EntryHeader make(const ContentHash& key, uint64_t dataBytes, uint64_t dataChecksum,
                            std::span<const uint8_t> record);
    bool valid(const ContentHash& wanted, uint64_t fileBytes) const;
};
static_assert(sizeof(EntryHeader) == 80);

// One encoded sound of the cache, found and verified.
struct CacheEntry
{
    FileDescriptor file;
    bank::Codec codec = bank::Codec::Pcm;
    uint64_t dataBytes = 0;
    std::vector<uint8_t> record;
};

// Entries are named by the hash of everything that decides about their content (content-addressed), so an entry never
// changes and never goes out of date. It arrives by rename and carries checksums: whatever a crash, a full disk or a
// curious person does to it, it is either right or found to be damaged and made again. Builds of several processes,
// also on several machines, may share the folder.
//
// A folder that can't be written is no obstacle: nothing is kept then, and one remark of the build says so. Nor is one
// with files of somebody else: what isn't ours by its name and its first bytes is neither removed nor replaced, and
// what belongs in its place isn't kept.
class Cache
{
public:
    // directory exists. With useEntries off nothing is found, though everything is stored.
    Cache(std::string directory, bool useEntries, Remarks& remarks);

    const std::string& directory() const { return mDirectory; }
    std::string indexFolder() const { return mDirectory + "/index"; }

    // The entry of that key after all of it was read and compared with its checksums, and its record with what an
    // encoder can say and with the header. A damaged one isn't there; it stays in its place until store() replaces it.
    std::optional<CacheEntry> find(const ContentHash& key, const std::stop_token& stop);

    // Opens an entry that was found or stored during this build, and tells the size of its file. Empty when somebody
    // has removed it since.
    FileDescriptor reopen(const ContentHash& key, uint64_t* fileBytes = nullptr) const;

    // A file to encode into, to become an entry by store().
    Result<TemporaryFile> newEntry();

    // Makes file the entry of that key, in place of a damaged one. Answers whether that worked; if not, file remains.
    bool store(TemporaryFile* file, const ContentHash& key);

    // A sound of this build isn't kept. Makes the remark, unless it has been made.
    void cannotKeep(const Fault& why);

    // Puts off the removal of an entry that this build needs and found or stored long ago.
    void keep(const ContentHash& key) const;

    // The same for sounds whose data stands in their source files: only their records are kept, all in one table. They
    // become available to other builds by saveRecords(). A table that is damaged or can't be read holds nothing, and is
    // replaced by the next one.
    std::optional<RawRecord> findRecord(const ContentHash& key);
    void storeRecord(const ContentHash& key, uint64_t dataOffset, std::span<const uint8_t> record);
    void forgetRecord(const ContentHash& key);

    // Writes what was stored since, together with what other builds have written meanwhile. A failure is none of the
    // build's business: the next one reads those files again.
    void saveRecords(const std::stop_token& stop);

    // Keeps the size of the folder in bounds: the entries that were not used for the longest time go first, except
    // those of the last hour, which a running build may need. Looks at the folder only when something was stored and,
    // where nobody has set a limit, the last look was a while ago, since it means visiting each entry.
    void tidy(const std::stop_token& stop);

    // Upper size of all entries together, in bytes, unless a file "limit" in the folder tells another.
    static constexpr uint64_t kSizeLimit = uint64_t(4) << 30;

private:
    std::string entryPath(const ContentHash& key) const;
    std::string temporaryFolder() const { return mDirectory + "/incomplete"; }
    std::string recordsPath() const { return mDirectory + "/records"; }
    std::optional<RecordTable> readRecords() const;
    bool dueForTidying();

    std::string mDirectory;
    bool mUseEntries;
    Remarks& mRemarks;
    std::atomic<bool> mRemarked = false;
    uint64_t mLimit;
    std::mutex mMutex;
    uint64_t mStoredBytes = 0;

    std::mutex mRecordsMutex;
    std::optional<RecordTable> mRecords; // as read, once somebody has asked
    NewRecords mNewRecords;
};

} // namespace tarnok
