// SPDX-License-Identifier: MIT
#include "base/temporary_file.hpp"

#include "base/file.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace base {

namespace {

constexpr std::string_view kTemporarySuffix = ".tmp";
constexpr size_t kMaximumStemBytes = 200; // of the 255 bytes of a file name; the rest is for pid, counter and suffix

std::string temporaryPrefix(std::string_view stem)
{
    return "." + std::string(stem.substr(0, kMaximumStemBytes)) + ".";
}

// Whether name consists of prefix, two groups of digits with a dot between them, and the suffix.
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

// Returns 0 or the error number.
int renameUnlessTaken(const char* from, const char* to)
{
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    // The file system can't check and rename in one step.
    struct stat existing;
    if (lstat(to, &existing) == 0)
        return EEXIST;
    return std::rename(from, to) == 0 ? 0 : errno;
}

} // namespace

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

// The owner holds a lock on its file, and the kernel releases it when the process ends, in whatever way. So a file that
// can be locked is abandoned. The process number alone proves nothing: another process may have got it since, or it may
// belong to another machine that shares the folder.
//
// Between our open and our flock, the removeAbandoned of another process may lock and unlink the new file. We would
// then write into a file without a name. So create() checks that the name still belongs to the file.
Result<TemporaryFile> TemporaryFile::create(const std::string& folder, std::string_view stem)
{
    static std::atomic<unsigned> counter{0};
    for (;;) {
        std::string path = folder + "/" + temporaryPrefix(stem) + std::to_string(getpid()) + "."
            + std::to_string(counter.fetch_add(1)) + std::string(kTemporarySuffix);
        FileDescriptor descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (!descriptor && errno == EEXIST) // belongs to a process that has or had our number
            continue;
        if (!descriptor && errno == ENOENT)
            return Error{ErrorCode::Io, "the folder " + folder + " does not exist", ENOENT};
        if (!descriptor)
            return fileError("writing", folder + "/" + std::string(stem), errno);
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

Result<> TemporaryFile::sync(std::string_view targetPath)
{
    // A file system that doesn't support fsync (EINVAL) has no unwritten data to lose.
    if (fsync(mDescriptor.get()) != 0 && errno != EINVAL)
        return fileError("writing", targetPath, errno);
    return {};
}

Result<> TemporaryFile::commit(const std::string& targetPath, Existing existing)
{
    const char* from = mPath.c_str();
    const char* to = targetPath.c_str();
    const int failed = existing == Existing::Keep ? renameUnlessTaken(from, to)
        : std::rename(from, to) == 0              ? 0
                                                  : errno;
    if (failed != 0)
        return Error{ErrorCode::Io, {}, failed};
    mPath.clear();
    mDescriptor.reset();
    return {};
}

// Not every file system supports O_TMPFILE (EOPNOTSUPP, or EISDIR and EINVAL where the flag is unknown).
Result<FileDescriptor> TemporaryFile::createUnnamed(const std::string& folder)
{
    FileDescriptor file(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (file)
        return file;
    Result<TemporaryFile> named = create(folder, "unnamed");
    if (!named)
        return named.error();
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

} // namespace base
