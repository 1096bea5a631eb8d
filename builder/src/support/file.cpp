#include "support/file.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarnok {

namespace {

constexpr std::string_view kTemporarySuffix = ".tmp";
constexpr uint64_t kCopyPiece = 8 << 20;
constexpr size_t kLongestStem = 200; // of the 255 bytes of a file name; the rest is for pid, counter and suffix

int64_t nanoseconds(const timespec& time)
{
    return int64_t(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

FileStamp stampFrom(const struct stat& status)
{
    return {status.st_dev, status.st_ino, uint64_t(status.st_size), nanoseconds(status.st_mtim),
            nanoseconds(status.st_ctim)};
}

std::string temporaryPrefix(std::string_view stem)
{
    return "." + std::string(stem.substr(0, kLongestStem)) + ".";
}

// Whether name is prefix, two groups of digits with a dot between, and the suffix.
bool isTemporaryName(std::string_view name, std::string_view prefix)
{
    if (!name.starts_with(prefix) || !name.ends_with(kTemporarySuffix)
        || name.size() <= prefix.size() + kTemporarySuffix.size())
        return false;
    name.remove_prefix(prefix.size());
    name.remove_suffix(kTemporarySuffix.size());
    return name.find_first_not_of("0123456789.") == std::string_view::npos
        && std::count(name.begin(), name.end(), '.') == 1;
}

bool sameFile(int descriptor, const char* path)
{
    struct stat opened;
    struct stat named;
    return fstat(descriptor, &opened) == 0 && lstat(path, &named) == 0 && opened.st_dev == named.st_dev
        && opened.st_ino == named.st_ino;
}

// The first part of a path that should be a folder and isn't.
std::string fileInThePlaceOfAFolder(std::string_view path)
{
    for (size_t slash = path.find('/', 1); slash != std::string_view::npos; slash = path.find('/', slash + 1)) {
        std::string part(path.substr(0, slash));
        struct stat status;
        if (stat(part.c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
            return part;
    }
    return folderOf(path);
}

// One piece by read and write, for file systems between which the kernel doesn't copy.
int copyPieceByHand(int source, uint64_t sourceOffset, int target, uint64_t targetOffset, uint64_t length)
{
    std::vector<std::byte> buffer(std::min<uint64_t>(length, 256 << 10));
    while (length > 0) {
        const std::span piece(buffer.data(), std::min<uint64_t>(length, buffer.size()));
        if (const int error = readAt(source, piece, sourceOffset))
            return error;
        if (const int error = writeAt(target, piece, targetOffset))
            return error;
        sourceOffset += piece.size();
        targetOffset += piece.size();
        length -= piece.size();
    }
    return 0;
}

} // namespace

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept
{
    if (this != &other) {
        reset();
        mDescriptor = std::exchange(other.mDescriptor, -1);
    }
    return *this;
}

void FileDescriptor::reset()
{
    if (mDescriptor >= 0)
        close(mDescriptor);
    mDescriptor = -1;
}

std::string_view baseName(std::string_view path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string folderOf(std::string_view path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return ".";
    return std::string(path.substr(0, std::max<size_t>(slash, 1)));
}

std::string listed(const std::vector<std::string>& names)
{
    std::string list;
    for (size_t index = 0; index < names.size(); ++index)
        list += (index == 0 ? "" : index + 1 < names.size() ? ", " : " and ") + names[index];
    return list;
}

Fault keepsChanging(std::string_view path)
{
    return {TARNOK_ERR_FILE_OS, std::string(baseName(path)) + ": another program keeps writing to this file"};
}

Fault fileFault(std::string_view doing, std::string_view path, int errorNumber)
{
    const std::string name(baseName(path));
    const std::string context = " while " + std::string(doing) + " " + name;
    switch (errorNumber) {
    case ENOTDIR:
        return {TARNOK_ERR_FILE_NOT_FOUND,
                name + ": " + fileInThePlaceOfAFolder(path) + " is a file, not a folder (" + std::string(path) + ")"};
    case ENOENT:
        return {TARNOK_ERR_FILE_NOT_FOUND, name + ": the file does not exist (" + std::string(path) + ")"};
    case EISDIR:
        return {TARNOK_ERR_FILE_OS, name + ": this is a folder, not a file (" + std::string(path) + ")"};
    case EACCES:
    case EPERM:
        return {TARNOK_ERR_FILE_OS, "no permission" + context + " (" + std::string(path) + ")"};
    case EROFS:
        return {TARNOK_ERR_FILE_OS, "the disk is read-only" + context + " (" + std::string(path) + ")"};
    case ENOSPC:
        return {TARNOK_ERR_FILE_OS, "disk full" + context};
    case EDQUOT:
        return {TARNOK_ERR_FILE_OS, "disk quota used up" + context};
    case EFBIG:
        return {TARNOK_ERR_FILE_OS, "the largest allowed file size was reached" + context};
    case EMFILE:
    case ENFILE:
        return {TARNOK_ERR_FILE_OS, "too many open files" + context};
    case EIO:
        return {TARNOK_ERR_FILE_OS, "the disk reported an error" + context};
    case ENAMETOOLONG:
        return {TARNOK_ERR_FILE_OS, "the file name is too long" + context};
    case ENOMEM:
        return {TARNOK_ERR_MEMORY, "out of memory" + context};
    default:
        break;
    }
    char buffer[128];
    return {TARNOK_ERR_FILE_OS, std::string(strerror_r(errorNumber, buffer, sizeof buffer)) + context};
}

Result<FileDescriptor> openForReading(const std::string& path, FileStamp* stamp)
{
    // O_NONBLOCK: opening a pipe would wait for its writer. It means nothing for a regular file.
    FileDescriptor descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status;
    const bool isOpen = descriptor && fstat(descriptor.get(), &status) == 0;
    const bool isSocket = !isOpen && errno == ENXIO; // or a device that nobody serves
    if (!isOpen && !isSocket)
        return fileFault("opening", path, errno);
    if (isSocket || (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)))
        return Fault{TARNOK_ERR_FILE_OS,
                     std::string(baseName(path)) + ": this is a device, a pipe or a socket, not a sound file"};
    if (S_ISDIR(status.st_mode))
        return fileFault("opening", path, EISDIR);
    if (stamp)
        *stamp = stampFrom(status);
    return descriptor;
}

Result<FileStamp> stampOf(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return fileFault("opening", path, errno);
    return stampFrom(status);
}

Result<size_t> readSome(int descriptor, std::span<std::byte> buffer, std::string_view path)
{
    for (;;) {
        const ssize_t got = read(descriptor, buffer.data(), buffer.size());
        if (got >= 0)
            return size_t(got);
        if (errno != EINTR)
            return fileFault("reading", path, errno);
    }
}

int readAt(int descriptor, std::span<std::byte> buffer, uint64_t offset)
{
    while (!buffer.empty()) {
        const ssize_t got = pread(descriptor, buffer.data(), buffer.size(), off_t(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return errno;
        if (got == 0)
            return -1;
        buffer = buffer.subspan(size_t(got));
        offset += uint64_t(got);
    }
    return 0;
}

int writeAt(int descriptor, std::span<const std::byte> bytes, uint64_t offset)
{
    while (!bytes.empty()) {
        const ssize_t put = pwrite(descriptor, bytes.data(), bytes.size(), off_t(offset));
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            return errno;
        bytes = bytes.subspan(size_t(put));
        offset += uint64_t(put);
    }
    return 0;
}

int copyRange(int source, uint64_t sourceOffset, int target, uint64_t targetOffset, uint64_t length,
              const std::function<bool()>& goOn)
{
    bool byKernel = true;
    while (length > 0) {
        if (!goOn())
            return ECANCELED;
        const uint64_t piece = std::min(length, kCopyPiece);
        uint64_t copied = piece;
        if (byKernel) {
            auto from = loff_t(sourceOffset);
            auto to = loff_t(targetOffset);
            const ssize_t put = copy_file_range(source, &from, target, &to, piece, 0);
            if (put < 0 && errno == EINTR)
                continue;
            if (put < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
                byKernel = false;
                continue;
            }
            if (put < 0)
                return errno;
            // Some file systems answer 0 instead of an error for what they can't copy; reading tells the two apart.
            if (put == 0) {
                byKernel = false;
                continue;
            }
            copied = uint64_t(put);
        } else if (const int error = copyPieceByHand(source, sourceOffset, target, targetOffset, piece)) {
            return error;
        }
        sourceOffset += copied;
        targetOffset += copied;
        length -= copied;
    }
    return 0;
}

int makeFolder(const std::string& path)
{
    return mkdir(path.c_str(), 0777) == 0 || errno == EEXIST ? 0 : errno;
}

bool isHashName(std::string_view name, size_t digits, std::string_view suffix)
{
    return name.size() == digits + suffix.size() && name.ends_with(suffix)
        && name.find_first_not_of("0123456789abcdef") >= digits;
}

bool startsWithMagic(int descriptor, std::span<const char, 8> magic)
{
    char start[8];
    const ssize_t got = pread(descriptor, start, sizeof start, 0);
    if (got < 0)
        return false;
    size_t others = 0;
    for (size_t i = 0; i < size_t(got); ++i)
        others += start[i] != magic[i];
    return others <= (size_t(got) < sizeof start ? 0 : 1);
}

bool anotherDiskMayHelp(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EIO || error == EROFS || error == EFBIG || error == ESTALE;
}

TemporaryFile::TemporaryFile(TemporaryFile&& other) noexcept
    : mDescriptor(std::move(other.mDescriptor))
    , mPath(std::exchange(other.mPath, {}))
{ }

TemporaryFile& TemporaryFile::operator=(TemporaryFile&& other) noexcept
{
    if (this != &other) {
        discard();
        mDescriptor = std::move(other.mDescriptor);
        mPath = std::exchange(other.mPath, {});
    }
    return *this;
}

TemporaryFile::~TemporaryFile()
{
    discard();
}

// The owner holds a lock on its file, and the kernel drops it with the process, however that ends. So a file whose lock
// can be had is abandoned: a process number alone may have been given to somebody else since, or belong to another
// machine that shares the folder.
//
// Between our open and our flock, somebody's removeAbandoned may lock and unlink the new file. We would then write into
// a file without a name; hence the look whether the name still leads to it.
Result<TemporaryFile> TemporaryFile::create(const std::string& folder, std::string_view stem)
{
    static std::atomic<unsigned> counter{0};
    for (;;) {
        std::string path = folder + "/" + temporaryPrefix(stem) + std::to_string(getpid()) + "."
            + std::to_string(counter.fetch_add(1)) + std::string(kTemporarySuffix);
        FileDescriptor descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (!descriptor && errno == EEXIST) // of a process that has or had our number, and not ours to remove
            continue;
        if (!descriptor && errno == ENOENT)
            return Fault{TARNOK_ERR_FILE_OS, "the folder " + folder + " does not exist"};
        if (!descriptor)
            return fileFault("writing", folder + "/" + std::string(stem), errno);
        TemporaryFile file;
        file.mPath = std::move(path);
        file.mDescriptor = std::move(descriptor);
        if (flock(file.mDescriptor.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
            continue;
        if (sameFile(file.mDescriptor.get(), file.mPath.c_str()))
            return file;
        file.mPath.clear();
    }
}

Status TemporaryFile::sync(std::string_view targetPath)
{
    // A file system that can't sync (EINVAL) has no later moment at which it would lose the data.
    if (fsync(mDescriptor.get()) != 0 && errno != EINVAL)
        return fileFault("writing", targetPath, errno);
    return {};
}

int TemporaryFile::commit(const std::string& targetPath)
{
    if (rename(mPath.c_str(), targetPath.c_str()) != 0)
        return errno;
    mPath.clear();
    mDescriptor.reset();
    return 0;
}

// Not every file system can do without a name (EOPNOTSUPP; EISDIR and EINVAL from those that don't know the request).
Result<FileDescriptor> TemporaryFile::createUnnamed(const std::string& folder)
{
    FileDescriptor file(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (file)
        return file;
    Result<TemporaryFile> named = create(folder, "tarnok-unnamed");
    if (!named)
        return named.fault();
    unlink(named->mPath.c_str());
    named->mPath.clear();
    return std::move(named->mDescriptor);
}

void TemporaryFile::removeAbandoned(const std::string& folder, std::string_view stem)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
    if (!entries)
        return;
    const std::string prefix = temporaryPrefix(stem);
    while (const dirent* entry = readdir(entries.get())) {
        if (!isTemporaryName(entry->d_name, prefix))
            continue;
        const int flags = O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW;
        const FileDescriptor file(openat(dirfd(entries.get()), entry->d_name, flags));
        if (file && flock(file.get(), LOCK_EX | LOCK_NB) == 0)
            unlinkat(dirfd(entries.get()), entry->d_name, 0);
    }
}

void TemporaryFile::discard()
{
    if (!mPath.empty())
        unlink(mPath.c_str());
    mPath.clear();
    mDescriptor.reset();
}

} // namespace tarnok
