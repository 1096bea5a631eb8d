// Remembers the content hash of files that have not changed since they were last hashed.
#pragma once

#include "support/content_hash.hpp"
#include "support/file.hpp"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tarnok {

// A table on the disk from (path, device, inode, size, times) to content hash, shared by all builds that use one cache
// directory. It only saves time: a lost or damaged table means that files are hashed again.
//
// The table is a folder of segments. Each build adds one with what it learned; now and then somebody merges them all
// into one and removes those that it has read. Segments never change and arrive by rename, so that readers and writers
// of several processes need no lock: at worst two merge at once, and the same records stand there twice.
class SourceIndex
{
public:
    // Reads the segments in folder, which is made when there is something to keep. A damaged one is removed.
    explicit SourceIndex(std::string folder);

    // The hash of the file at path, if it still has this stamp.
    std::optional<ContentHash> find(std::string_view path, const FileStamp& stamp);

    // Keeps the hash of a file for later builds. Only for a stamp that is settled (see isSettled).
    void remember(std::string_view path, const FileStamp& stamp, const ContentHash& hash);

    // Writes what was learned. A failure is none of the build's business: the next one hashes again.
    void save();

    // Whether a stamp taken before the moment `at` (nanoseconds since 1970) will differ for every later content.
    //
    // Why it may not: a file is written, read by us, and written again with the same length, all within one tick of the
    // file system's clock. Both contents then have the same stamp, and a hash kept for the first would be handed out
    // for the second for ever. Once the clock has gone on by more than its own step since the file's times, every later
    // write gets a later time. The step is 1 to 10 ms on the usual Linux file systems and up to 2 s on FAT and some
    // network servers.
    static bool isSettled(const FileStamp& stamp, int64_t at);

private:
    struct Record
    {
        ContentHash source; // of path and stamp
        ContentHash content;
        int64_t usedAt = 0; // seconds since 1970

        bool operator<(const Record& other) const { return source < other.source; }
    };
    struct SegmentHeader;

    void learn(const Record& record);
    bool readSegment(const std::string& path, std::vector<Record>* records) const;
    bool writeSegment(const std::vector<Record>& records) const;
    void merge();

    std::string mFolder;
    std::vector<std::string> mSegments; // those that were read
    std::vector<Record> mKnown; // sorted by source
    std::mutex mMutex;
    std::vector<Record> mLearned;
};

} // namespace tarnok
