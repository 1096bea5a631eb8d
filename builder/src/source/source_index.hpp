// SPDX-License-Identifier: MIT
// Stores the content hashes of files, so that unchanged files needn't be hashed again.
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

namespace builder {

// A table on the disk that maps (path, device, inode, size, times) to a content hash. All builds that use the same
// cache directory share it. It only saves time: if it is lost or damaged, files are hashed again.
//
// The table is a folder of segments. Each build adds a segment with its new records; now and then a build merges all
// segments into one and removes those that it has read. Segments never change and are created by a rename, so that
// several processes can read and write without a lock: at worst two merge at the same time, and the same records are
// stored twice.
class SourceIndex
{
public:
    // Reads the segments in folder, which save() creates if necessary. Damaged segments are removed.
    explicit SourceIndex(std::string folder);

    // The hash of the file at path, if it still has this stamp.
    std::optional<ContentHash> find(std::string_view path, const base::FileStamp& stamp);

    // Stores the hash of a file for later builds. The stamp must be settled (see isSettled).
    void remember(std::string_view path, const base::FileStamp& stamp, const ContentHash& hash);

    // Writes the new records. A failure doesn't affect the build: the next one hashes again.
    void save();

    // Whether a stamp taken before the moment `at` (nanoseconds since 1970) will differ for every later content.
    //
    // The race: a file is written, read by us, and written again with the same length, all within one tick of the file
    // system's clock. Both contents then have the same stamp, and the hash stored for the first would be returned for
    // the second for ever. Once the clock has advanced by more than one step since the file's times, every later write
    // gets a later time. The step is 1 to 10 ms on common Linux file systems, and up to 2 s on FAT and some network
    // servers.
    static bool isSettled(const base::FileStamp& stamp, int64_t at);

private:
    void addRecord(const ContentHash& source, const ContentHash& content);
    bool readSegment(const std::string& path);
    void merge();
    bool writeSegment(std::span<const RecordTable> tables) const;

    std::string mFolder;
    std::vector<std::string> mSegments; // the paths of the segments that were read
    std::vector<RecordTable> mTables; // map the hash of path and stamp to that of the content
    uint64_t mTableBytes = 0;
    std::mutex mMutex;
    DatedRecords mNewRecords;
};

} // namespace builder
