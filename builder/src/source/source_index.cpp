#include "source/source_index.hpp"

#include "bank/checksum.hpp"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <tuple>

#include <sys/stat.h>
#include <unistd.h>

namespace tarnok {

namespace {

constexpr char kMagic[8] = {'T', 'N', 'K', 'I', 'N', 'D', 'X', '2'};
constexpr std::string_view kSegmentSuffix = ".index";
constexpr size_t kMostRecords = 200'000; // 14 MB
constexpr size_t kMostSegments = 8;
constexpr int64_t kRenewAfter = 24 * 3600; // seconds after which another use of a record is noted
constexpr int64_t kForgetAfter = 60 * 24 * 3600; // seconds
constexpr int64_t kCoarsestClock = 2'100'000'000; // nanoseconds

int64_t now()
{
    return int64_t(time(nullptr));
}

ContentHash sourceHash(std::string_view path, const FileStamp& stamp)
{
    ContentHasher hasher;
    hasher.addText(path);
    for (const uint64_t number :
         {stamp.device, stamp.inode, stamp.size, uint64_t(stamp.modified), uint64_t(stamp.changed)})
        hasher.addNumber(number);
    return hasher.digest();
}

} // namespace

struct SourceIndex::SegmentHeader
{
    char magic[8];
    uint64_t count;
    uint64_t checksum; // of the records
};

SourceIndex::SourceIndex(std::string folder)
    : mFolder(std::move(folder))
{
    std::error_code error;
    for (std::filesystem::directory_iterator entry(mFolder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string path = entry->path().string();
        if (!isHashName(baseName(path), 2 * sizeof(ContentHash::bytes), kSegmentSuffix))
            continue;
        if (readSegment(path, &mKnown))
            mSegments.push_back(path);
    }
    // Where a source stands twice, the record used last comes first, and find takes the first.
    std::sort(mKnown.begin(), mKnown.end(), [](const Record& left, const Record& right) {
        return std::tie(left.source, right.usedAt) < std::tie(right.source, left.usedAt);
    });
    const auto repeated = std::unique(mKnown.begin(), mKnown.end(), [](const Record& left, const Record& right) {
        return left.source == right.source;
    });
    mKnown.erase(repeated, mKnown.end());
}

std::optional<ContentHash> SourceIndex::find(std::string_view path, const FileStamp& stamp)
{
    Record wanted{sourceHash(path, stamp), {}, 0};
    const auto found = std::lower_bound(mKnown.begin(), mKnown.end(), wanted);
    if (found == mKnown.end() || found->source != wanted.source)
        return std::nullopt;
    if (found->usedAt + kRenewAfter < now())
        learn({found->source, found->content, now()});
    return found->content;
}

void SourceIndex::remember(std::string_view path, const FileStamp& stamp, const ContentHash& hash)
{
    learn({sourceHash(path, stamp), hash, now()});
}

void SourceIndex::learn(const Record& record)
{
    const std::lock_guard lock(mMutex);
    if (mLearned.size() < kMostRecords)
        mLearned.push_back(record);
}

void SourceIndex::save()
{
    const std::lock_guard lock(mMutex);
    if (mLearned.empty())
        return;
    if (mSegments.size() >= kMostSegments)
        merge();
    else
        writeSegment(mLearned);
    mLearned.clear();
}

bool SourceIndex::isSettled(const FileStamp& stamp, int64_t at)
{
    return std::max(stamp.modified, stamp.changed) < at - kCoarsestClock;
}

// A segment that can't be used is removed; what can't even be read is left to its owner, and so is what is none.
bool SourceIndex::readSegment(const std::string& path, std::vector<Record>* records) const
{
    FileStamp stamp;
    const Result<FileDescriptor> file = openForReading(path, &stamp);
    if (!file)
        return false;

    SegmentHeader header;
    int error = readAt(file->get(), std::as_writable_bytes(std::span(&header, 1)), 0);
    bool sound = error == 0 && std::memcmp(header.magic, kMagic, sizeof kMagic) == 0 && header.count <= 2 * kMostRecords
        && stamp.size == sizeof header + header.count * sizeof(Record);
    if (sound && records->size() + header.count > 2 * kMostRecords)
        return true; // more than anybody keeps: the next merge drops it
    if (sound) {
        std::vector<Record> read(header.count);
        const auto bytes = std::as_writable_bytes(std::span(read));
        error = readAt(file->get(), bytes, sizeof header);
        sound = error == 0 && bank::checksum(bytes) == header.checksum;
        if (sound)
            records->insert(records->end(), read.begin(), read.end());
    }
    if (!sound && error <= 0 && startsWithMagic(file->get(), kMagic))
        unlink(path.c_str());
    return sound;
}

bool SourceIndex::writeSegment(const std::vector<Record>& records) const
{
    static_assert(sizeof(Record) == 72);
    mkdir(mFolder.c_str(), 0777);
    Result<TemporaryFile> file = TemporaryFile::create(mFolder, "index");
    if (!file)
        return false;

    const auto bytes = std::as_bytes(std::span(records));
    SegmentHeader header{{}, records.size(), bank::checksum(bytes)};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    if (writeAt(file->descriptor(), std::as_bytes(std::span(&header, 1)), 0) != 0
        || writeAt(file->descriptor(), bytes, sizeof header) != 0)
        return false;

    ContentHasher name;
    name.add(bytes);
    name.addNumber(uint64_t(getpid()));
    return file->commit(mFolder + "/" + name.digest().hex() + std::string(kSegmentSuffix)) == 0;
}

void SourceIndex::merge()
{
    std::vector<Record> all = mLearned;
    const int64_t oldest = now() - kForgetAfter;
    std::copy_if(mKnown.begin(), mKnown.end(), std::back_inserter(all),
                 [oldest](const Record& record) { return record.usedAt > oldest; });
    if (all.size() > kMostRecords) {
        std::nth_element(all.begin(), all.begin() + kMostRecords, all.end(),
                         [](const Record& left, const Record& right) { return left.usedAt > right.usedAt; });
        all.resize(kMostRecords);
    }
    if (!writeSegment(all))
        return;
    for (const std::string& segment : mSegments)
        unlink(segment.c_str());
}

} // namespace tarnok
