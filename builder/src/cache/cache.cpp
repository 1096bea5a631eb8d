#include "cache/cache.hpp"

#include "bank/checksum.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <filesystem>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarnok {

namespace {

constexpr char kEntryMagic[8] = {'T', 'N', 'K', 'S', 'N', 'D', '0', '2'};
constexpr std::string_view kTemporaryStem = "sound";
constexpr uint64_t kLargestRecord = 256 << 20;
constexpr size_t kReadBlock = 256 << 10;
constexpr int64_t kInUseFor = 3600; // seconds for which a used entry is safe from removal
constexpr int64_t kTouchAfter = 600; // seconds after which another use is noted
constexpr int64_t kTidyEvery = 600; // seconds
constexpr int64_t kRenewRecordAfter = 24 * 3600; // seconds after which another use of a record is noted
constexpr int64_t kForgetRecordAfter = 60 * 24 * 3600; // seconds
constexpr uint64_t kRecordsShare = 16; // of the limit, this part is for records
constexpr uint64_t kTidyBytes = 256 << 20; // stored by one build, after which it tidies at once

// Notes that an entry is in use. Entries of somebody else in a folder that is read-only for us can't be marked; they
// are theirs to remove, too.
void noteUse(int descriptor, const struct stat& status)
{
    if (status.st_mtim.tv_sec + kTouchAfter < time(nullptr))
        futimens(descriptor, nullptr);
}

// Reads count bytes and answers whether their checksum is the expected one.
bool verify(int descriptor, uint64_t offset, uint64_t count, uint64_t expected, const std::stop_token& stop)
{
    bank::RunningChecksum checksum;
    std::vector<uint8_t> buffer(std::min<uint64_t>(count, kReadBlock));
    while (count > 0) {
        const std::span piece(buffer.data(), std::min<uint64_t>(count, buffer.size()));
        if (stop.stop_requested() || readAt(descriptor, std::as_writable_bytes(piece), offset) != 0)
            return false;
        checksum.add(piece);
        offset += piece.size();
        count -= piece.size();
    }
    return checksum.value() == expected;
}

// Whether a record is one that we write, to the last bit, of the data that the header describes. One that isn't comes
// from elsewhere, and would make each bank fail or be damaged in which it is put.
bool fits(std::span<const uint8_t> record, const EntryHeader& header, bank::Codec* codec)
{
    const base::Result<bank::Sound> sound = bank::deserialise(record);
    if (!sound)
        return false;
    *codec = sound->codec;
    return sound->dataBytes == header.dataBytes && sound->dataChecksum == header.dataChecksum
        && std::ranges::equal(bank::serialise(*sound), record);
}

FileDescriptor openOwn(const std::string& path)
{
    return FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
}

// Whether path is one that Cache::entryPath() makes. Earlier versions had longer names for the folders.
bool isEntryPath(const std::filesystem::path& path)
{
    constexpr size_t kDigits = 2 * sizeof(ContentHash::bytes);
    const std::string folder = path.parent_path().filename();
    return (folder.size() == 1 || folder.size() == 2) && isHashName(folder, folder.size())
        && isHashName(path.filename().native(), kDigits - folder.size());
}

// An entry by its content, too: a folder "sounds" may hold anything when somebody has chosen a folder of their own for
// the cache.
bool removeEntry(const std::string& path)
{
    const FileDescriptor file = openOwn(path);
    return file && startsWithMagic(file.get(), kEntryMagic) && unlink(path.c_str()) == 0;
}

// Whether at path stands what somebody else has put there and would miss.
bool isForeign(const std::string& path, std::span<const char, 8> magic)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0)
        return false;
    if (S_ISLNK(status.st_mode))
        return stat(path.c_str(), &status) == 0;
    if (!S_ISREG(status.st_mode))
        return S_ISDIR(status.st_mode);
    const FileDescriptor file = openOwn(path);
    return !file || !startsWithMagic(file.get(), magic);
}

// A lock on a folder among those who ask for it. Without it, of two builds that save at once one loses what it has
// learned; so it isn't worth a long wait for a process that was stopped, or for a file system without locks.
FileDescriptor lockFolder(const std::string& path, const std::stop_token& stop)
{
    constexpr int kAttempts = 100;
    FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int attempt = 0; folder && attempt < kAttempts; ++attempt) {
        if (flock(folder.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK || stop.stop_requested())
            break;
        usleep(2000);
    }
    return folder;
}

// Whoever runs a cache may set its limit in the folder itself, and so for all who share it.
uint64_t configuredLimit(const std::string& directory)
{
    const std::string path = directory + "/limit";
    char text[32] = "";
    const Result<FileDescriptor> file = openForReading(path, nullptr);
    if (!file || !readSome(file->get(), std::as_writable_bytes(std::span(text).first(sizeof text - 1)), path))
        return Cache::kSizeLimit;
    uint64_t limit = 0;
    constexpr const char* kBlanks = " \t\r\n";
    const char* const end = text + std::strlen(text);
    const auto [rest, error] = std::from_chars(text + std::strspn(text, kBlanks), end, limit);
    // "8G" is no number of bytes, and 8 would empty the cache.
    const bool isNumber = error == std::errc() && rest + std::strspn(rest, kBlanks) == end;
    return isNumber && limit > 0 ? limit : Cache::kSizeLimit;
}

} // namespace

EntryHeader EntryHeader::make(const ContentHash& key, uint64_t dataBytes, uint64_t dataChecksum,
                              std::span<const uint8_t> record)
{
    EntryHeader header{{}, key.bytes, dataBytes, record.size(), dataChecksum, bank::checksum(std::as_bytes(record)), 0};
    std::memcpy(header.magic, kEntryMagic, sizeof kEntryMagic);
    header.headerChecksum =
        bank::checksum(std::as_bytes(std::span(&header, 1)).first(offsetof(EntryHeader, headerChecksum)));
    return header;
}

bool EntryHeader::valid(const ContentHash& wanted, uint64_t fileBytes) const
{
    const auto bytes = std::as_bytes(std::span(this, 1));
    return std::memcmp(magic, kEntryMagic, sizeof kEntryMagic) == 0
        && bank::checksum(bytes.first(offsetof(EntryHeader, headerChecksum))) == headerChecksum && key == wanted.bytes
        && recordBytes <= kLargestRecord && dataBytes <= fileBytes
        && fileBytes - dataBytes == sizeof(EntryHeader) + recordBytes;
}

Cache::Cache(std::string directory, bool useEntries, Remarks& remarks)
    : mDirectory(std::move(directory))
    , mUseEntries(useEntries)
    , mRemarks(remarks)
    , mLimit(configuredLimit(mDirectory))
{
    makeFolder(mDirectory + "/sounds");
    makeFolder(temporaryFolder());
    TemporaryFile::removeAbandoned(temporaryFolder(), kTemporaryStem);
    TemporaryFile::removeAbandoned(indexFolder(), "index");
}

std::optional<CacheEntry> Cache::find(const ContentHash& key, const std::stop_token& stop)
{
    if (!mUseEntries)
        return std::nullopt;
    CacheEntry entry;
    entry.file = reopen(key);
    struct stat status;
    EntryHeader header;
    if (!entry.file || fstat(entry.file.get(), &status) != 0)
        return std::nullopt;

    const int descriptor = entry.file.get();
    const auto headerBytes = std::as_writable_bytes(std::span(&header, 1));
    bool intact = readAt(descriptor, headerBytes, 0) == 0 && header.valid(key, uint64_t(status.st_size));
    if (intact) {
        entry.dataBytes = header.dataBytes;
        entry.record.resize(header.recordBytes);
        const auto record = std::as_writable_bytes(std::span(entry.record));
        intact = readAt(descriptor, record, sizeof header + header.dataBytes) == 0
            && bank::checksum(record) == header.recordChecksum && fits(entry.record, header, &entry.codec)
            && verify(descriptor, sizeof header, header.dataBytes, header.dataChecksum, stop);
    }
    // A damaged entry stays until store() puts another in its place: removing it here could hit the good one with which
    // another process has replaced it meanwhile and on which that process relies.
    if (!intact || stop.stop_requested())
        return std::nullopt;
    noteUse(descriptor, status);
    return entry;
}

FileDescriptor Cache::reopen(const ContentHash& key, uint64_t* fileBytes) const
{
    FileDescriptor file = openOwn(entryPath(key));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    if (fileBytes)
        *fileBytes = uint64_t(status.st_size);
    return file;
}

Result<TemporaryFile> Cache::newEntry()
{
    Result<TemporaryFile> file = TemporaryFile::create(temporaryFolder(), kTemporaryStem);
    // Somebody may have emptied the folder since.
    if (!file) {
        if (const int error = makeFolder(temporaryFolder()))
            file = fileFault("making the folder", temporaryFolder(), error);
        else
            file = TemporaryFile::create(temporaryFolder(), kTemporaryStem);
    }
    if (!file)
        cannotKeep(file.fault());
    return file;
}

void Cache::cannotKeep(const Fault& why)
{
    if (mRemarked.exchange(true))
        return;
    std::string reason = why.text;
    struct stat status;
    if (stat(mDirectory.c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
        reason = "it is not a folder";
    else if (access(mDirectory.c_str(), F_OK) != 0 && errno == ENOENT)
        reason = "it does not exist";
    mRemarks.post("the cache " + mDirectory + " can't be used: " + reason
                  + "; temporary files are used instead, and the next build encodes again");
}

bool Cache::store(TemporaryFile* file, const ContentHash& key)
{
    const std::string path = entryPath(key);
    struct stat status;
    const uint64_t bytes = fstat(file->descriptor(), &status) == 0 ? uint64_t(status.st_size) : 0;
    int error = file->commit(path);
    if (error == ENOENT) {
        const int sounds = makeFolder(mDirectory + "/sounds");
        const int folder = sounds ? sounds : makeFolder(folderOf(path));
        error = folder ? folder : file->commit(path);
    } else if (error == EISDIR && rmdir(path.c_str()) == 0) {
        error = file->commit(path);
    }
    if (error != 0) {
        cannotKeep(fileFault("storing", path, error));
        return false;
    }
    const std::lock_guard lock(mMutex);
    mStoredBytes += bytes;
    return true;
}

void Cache::keep(const ContentHash& key) const
{
    if (const FileDescriptor file = reopen(key))
        futimens(file.get(), nullptr);
}

std::optional<RawRecord> Cache::findRecord(const ContentHash& key)
{
    if (!mUseEntries)
        return std::nullopt;
    const std::lock_guard lock(mRecordsMutex);
    if (!mRecords)
        mRecords = readRecords().value_or(RecordTable());
    std::optional<RawRecord> found = mRecords->find(key);
    const int64_t now = time(nullptr);
    if (found && found->usedAt < now - kRenewRecordAfter)
        mNewRecords[key] = {found->dataOffset, now, found->bytes};
    return found;
}

void Cache::storeRecord(const ContentHash& key, uint64_t dataOffset, std::span<const uint8_t> record)
{
    const std::lock_guard lock(mRecordsMutex);
    mNewRecords[key] = {dataOffset, time(nullptr), {record.begin(), record.end()}};
}

void Cache::forgetRecord(const ContentHash& key)
{
    storeRecord(key, 0, {});
}

void Cache::saveRecords(const std::stop_token& stop)
{
    const std::lock_guard lock(mRecordsMutex);
    if (mNewRecords.empty())
        return;
    mRecords.reset(); // there may be many, and all that is asked for was found by now
    const FileDescriptor folder = lockFolder(mDirectory, stop);
    const RecordTable table = readRecords().value_or(RecordTable());
    const int64_t now = time(nullptr);
    const std::vector<uint8_t> bytes =
        table.mergedWith(mNewRecords, now - kForgetRecordAfter, now - kInUseFor, mLimit / kRecordsShare);
    mNewRecords.clear();
    Result<TemporaryFile> file = newEntry();
    if (!file)
        return;
    rmdir(recordsPath().c_str()); // an empty folder is nobody's
    if (isForeign(recordsPath(), RecordTable::kMagic)) {
        cannotKeep(invalid(recordsPath() + " is none of its files and stays as it is"));
        return;
    }
    int error = writeAt(file->descriptor(), std::as_bytes(std::span(bytes)), 0);
    if (error == 0)
        error = file->commit(recordsPath());
    if (error != 0)
        cannotKeep(fileFault("storing", recordsPath(), error));
}

std::optional<RecordTable> Cache::readRecords() const
{
    FileStamp stamp;
    const Result<FileDescriptor> file = openForReading(recordsPath(), &stamp);
    if (!file || stamp.size > RecordTable::kLargestTable)
        return std::nullopt;
    std::vector<uint8_t> bytes(stamp.size);
    if (readAt(file->get(), std::as_writable_bytes(std::span(bytes)), 0) != 0)
        return std::nullopt;
    return RecordTable::parse(std::move(bytes));
}

void Cache::tidy(const std::stop_token& stop)
{
    if (!dueForTidying())
        return;

    struct Candidate
    {
        int64_t usedAt;
        uint64_t bytes;
        std::string path;
    };
    std::vector<Candidate> candidates;
    uint64_t total = 0;
    const int64_t newest = int64_t(time(nullptr)) - kInUseFor;
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator
             entry(mDirectory + "/sounds", std::filesystem::directory_options::skip_permission_denied, error),
         end;
         !error && entry != end; entry.increment(error)) {
        struct stat status;
        if (stop.stop_requested())
            return;
        if (!isEntryPath(entry->path()) || lstat(entry->path().c_str(), &status) != 0 || !S_ISREG(status.st_mode))
            continue;
        total += uint64_t(status.st_size);
        if (status.st_mtim.tv_sec < newest)
            candidates.push_back({status.st_mtim.tv_sec, uint64_t(status.st_size), entry->path().string()});
    }
    if (total <= mLimit)
        return;

    // Down to nine tenths, so that a full cache isn't tidied again by every build.
    const uint64_t goal = mLimit - mLimit / 10;
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate& left, const Candidate& right) { return left.usedAt < right.usedAt; });
    for (const Candidate& candidate : candidates) {
        if (total <= goal || stop.stop_requested())
            return;
        if (removeEntry(candidate.path))
            total -= candidate.bytes;
    }
}

// Two levels, so that no folder holds too many files for a slow file system, and few enough folders that making them
// costs nothing beside the first build.
std::string Cache::entryPath(const ContentHash& key) const
{
    const std::string name = key.hex();
    return mDirectory + "/sounds/" + name.substr(0, 1) + "/" + name.substr(1);
}

bool Cache::dueForTidying()
{
    uint64_t stored = 0;
    {
        const std::lock_guard lock(mMutex);
        stored = std::exchange(mStoredBytes, 0);
    }
    if (stored == 0)
        return false;

    const std::string markPath = mDirectory + "/tidied";
    struct stat status;
    const bool recently = stat(markPath.c_str(), &status) == 0 && status.st_mtim.tv_sec + kTidyEvery > time(nullptr);
    if (recently && stored < kTidyBytes && mLimit == kSizeLimit)
        return false;
    const FileDescriptor mark(open(markPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666));
    if (mark)
        futimens(mark.get(), nullptr);
    return true;
}

} // namespace tarnok
