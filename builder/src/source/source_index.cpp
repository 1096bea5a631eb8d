// SPDX-License-Identifier: MIT
#include "source/source_index.hpp"

#include "base/bytes.hpp"
#include "base/path.hpp"
#include "base/temporary_file.hpp"

#include <algorithm>
#include <ctime>
#include <filesystem>

#include <unistd.h>

namespace builder {

namespace {

constexpr char kMagic[8] = {'T', 'N', 'K', 'I', 'N', 'D', 'X', '3'};
constexpr std::string_view kSegmentSuffix = ".index";
constexpr size_t kMaximumNewRecords = 200'000; // records of one build
constexpr uint64_t kMaximumBytes = 16 << 20; // of a merged segment; enough for as many records
constexpr size_t kMaximumSegments = 8;
constexpr int64_t kCoarsestClock = 2'100'000'000; // nanoseconds

int64_t now()
{
    return int64_t(time(nullptr));
}

ContentHash sourceHash(std::string_view path, const base::FileStamp& stamp)
{
    ContentHasher hasher;
    hasher.addText(path);
    for (const uint64_t number :
         {stamp.device, stamp.inode, stamp.size, uint64_t(stamp.modified), uint64_t(stamp.changed)})
        hasher.addNumber(number);
    return hasher.digest();
}

} // namespace

SourceIndex::SourceIndex(std::string folder)
    : mFolder(std::move(folder))
{
    std::error_code error;
    for (std::filesystem::directory_iterator entry(mFolder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string path = entry->path().string();
        if (isHashName(base::baseName(path), 2 * sizeof(ContentHash::bytes), kSegmentSuffix) && readSegment(path))
            mSegments.push_back(path);
    }
}

std::optional<ContentHash> SourceIndex::find(std::string_view path, const base::FileStamp& stamp)
{
    const ContentHash source = sourceHash(path, stamp);
    std::optional<DatedRecord> newest;
    for (const RecordTable& table : mTables) {
        std::optional<DatedRecord> found = table.find(source);
        if (found && (!newest || newest->usedAt < found->usedAt))
            newest = std::move(found);
    }
    if (!newest || newest->bytes.size() != sizeof(ContentHash))
        return std::nullopt;
    const auto content = base::loadLittle<ContentHash>(newest->bytes.data());
    if (newest->wantsRenewal(now()))
        addRecord(source, content);
    return content;
}

void SourceIndex::remember(std::string_view path, const base::FileStamp& stamp, const ContentHash& hash)
{
    addRecord(sourceHash(path, stamp), hash);
}

void SourceIndex::addRecord(const ContentHash& source, const ContentHash& content)
{
    const std::lock_guard lock(mMutex);
    if (mNewRecords.size() < kMaximumNewRecords)
        mNewRecords[source] = {now(), {content.bytes.begin(), content.bytes.end()}};
}

void SourceIndex::save()
{
    const std::lock_guard lock(mMutex);
    if (mNewRecords.empty())
        return;
    if (mSegments.size() >= kMaximumSegments)
        merge();
    else
        writeSegment({});
    mNewRecords.clear();
}

bool SourceIndex::isSettled(const base::FileStamp& stamp, int64_t at)
{
    return std::max(stamp.modified, stamp.changed) < at - kCoarsestClock;
}

// Removes a damaged segment. Files that can't be read or aren't segments are left alone.
bool SourceIndex::readSegment(const std::string& path)
{
    const base::Result<base::OpenedFile> file = base::openRegular(path);
    if (!file)
        return false;
    const uint64_t size = file->stamp.size;
    const int descriptor = file->descriptor.get();
    if (size <= kMaximumBytes && mTableBytes + size > 2 * kMaximumBytes && startsWithMagic(descriptor, kMagic))
        return true; // more than is kept in memory: the next merge drops this segment

    std::optional<RecordTable> table;
    base::Result<> read;
    if (size <= kMaximumBytes) {
        std::vector<uint8_t> bytes(size);
        read = base::readAt(descriptor, bytes, 0);
        if (read)
            table = RecordTable::parse(std::move(bytes), kMagic);
    }
    if (table) {
        mTables.push_back(std::move(*table));
        mTableBytes += size;
        return true;
    }
    const bool isReadable = read || read.error().code == base::ErrorCode::Damaged;
    if (isReadable && startsWithMagic(descriptor, kMagic))
        unlink(path.c_str());
    return false;
}

void SourceIndex::merge()
{
    if (!writeSegment(mTables))
        return;
    for (const std::string& segment : mSegments)
        unlink(segment.c_str());
}

// Writes a segment with the new records and those of tables.
bool SourceIndex::writeSegment(std::span<const RecordTable> tables) const
{
    (void)base::makeFolder(mFolder);
    base::Result<base::TemporaryFile> file = base::TemporaryFile::create(mFolder, "index");
    if (!file)
        return false;
    const std::vector<uint8_t> bytes = RecordTable::merge(tables, mNewRecords, kMagic, {now(), kMaximumBytes});
    if (!base::writeAt(file->descriptor(), bytes, 0))
        return false;
    ContentHasher name;
    name.add(std::as_bytes(std::span(bytes)));
    name.addNumber(uint64_t(getpid()));
    return bool(file->commit(mFolder + "/" + name.digest().hex() + std::string(kSegmentSuffix)));
}

} // namespace builder
