// Remembers the content hash of files that have not changed since they were last hashed.
#pragma once

#include "base/file.hpp"
#include "support/content_hash.hpp"
#include "support/record_table.hpp"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnok {

// A table on the disk from (path, device, inode, size, times) to content hash, shared by all builds that use one cache
// directory. It only saves time: a lost or damaged table means that files are hashed again.
//
// The table is a folder of segments. Each build adds one with what it learned; now and then somebody merges them all
// into one and removes those that it has read. Segments never change and arrive by rename, so that readers and writers
// of several processes need no lock: at worst two merge at once, and the same records are stored twice.
class SourceIndex
{
public:
    // Reads the segments in folder, which is made when there is something to keep. A damaged one is removed.
    explicit SourceIndex(std::string folder);

    // The hash of the file at path, if it still has this stamp.
    std::optional<ContentHash> find(std::string_view path, const base::FileStamp& stamp);

    // Keeps the hash of a file for later builds. Only for a stamp that is settled (see isSettled).
    void remember(std::string_view path, const base::FileStamp& stamp, const ContentHash& hash);

    // Writes what was learned. A failure doesn't concern the build: the next one hashes again.
    void save();

    // Whether a stamp taken before the moment `at` (nanoseconds since 1970) will differ for every later content.
    //
    // Why it may not: a file is written, read by us, and written again with the same length, all within one tick of the
    // file system's clock. Both contents then have the same stamp, and a hash kept for the first would be handed out
    // for the second for ever. Once the clock has gone on by more than its own step since the file's times, every later
    // write gets a later time. The step is 1 to 10 ms on the usual Linux file systems and up to 2 s on FAT and some
    // network servers.
    static bool isSettled(const base::FileStamp& stamp, int64_t at);

private:
    void learn(const ContentHash& source, const ContentHash& content);
    bool readSegment(const std::string& path);
    void merge();
    bool writeSegment(std::span<const RecordTable> tables) const;

    std::string mFolder;
    std::vector<std::string> mSegments; // the paths of those that were read
    std::vector<RecordTable> mTables; // from the hash of path and stamp to that of the content
    uint64_t mTableBytes = 0;
    std::mutex mMutex;
    DatedRecords mLearned;
};

} // namespace tarnok
