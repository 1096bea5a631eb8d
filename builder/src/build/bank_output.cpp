#include "build/bank_output.hpp"

#include <cerrno>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarnok {

namespace {

constexpr size_t kBufferBytes = 256 << 10;

// Written behind one another, so many bytes are worth a request to the disk.
constexpr uint64_t kWorthFlushing = 4 << 20;

// The file that path names in the end. A link to nothing stays what it is, to be replaced.
std::string followLink(const std::string& path)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
        return path;
    const std::unique_ptr<char, void (*)(void*)> target(realpath(path.c_str(), nullptr), std::free);
    return target ? std::string(target.get()) : path;
}

} // namespace

Result<AtomicOutput> AtomicOutput::create(const std::string& path)
{
    const std::string target = followLink(path);
    struct stat status;
    const bool exists = stat(target.c_str(), &status) == 0;
    if (!exists && errno != ENOENT)
        return Fault{TARNOK_ERR_FILE_OS, fileFault("writing", target, errno).text};
    if (exists && !S_ISREG(status.st_mode)) {
        if (S_ISDIR(status.st_mode))
            return fileFault("writing", target, EISDIR);
        return Fault{TARNOK_ERR_FILE_OS, std::string(baseName(target)) + ": this is a device or pipe, not a file"};
    }
    const std::string folder = folderOf(target);
    TemporaryFile::removeAbandoned(folder, baseName(target));
    Result<TemporaryFile> file = TemporaryFile::create(folder, baseName(target));
    if (!file)
        return file.fault();
    AtomicOutput output(target, std::move(*file));
    if (exists)
        output.takePermissions(status);
    return output;
}

void AtomicOutput::removeAbandoned(const std::string& path)
{
    const std::string target = followLink(path);
    TemporaryFile::removeAbandoned(folderOf(target), baseName(target));
}

// While it is written, the owner may always write: only so can it be swept up if the process is killed.
void AtomicOutput::takePermissions(const struct stat& former)
{
    unsigned mode = former.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
    struct stat own;
    const bool sameGroup = fstat(mFile.descriptor(), &own) == 0
        && (own.st_gid == former.st_gid || fchown(mFile.descriptor(), uid_t(-1), former.st_gid) == 0);
    if (!sameGroup)
        mode &= ~unsigned(S_IRWXG) | (mode & S_IRWXO) << 3;
    mMode = mode;
    fchmod(mFile.descriptor(), mode | S_IRUSR | S_IWUSR);
}

base::Result<> AtomicOutput::write(std::span<const uint8_t> bytes)
{
    if (mBuffer.size() + bytes.size() > kBufferBytes && !flush())
        return base::Error{base::ErrorCode::Io};
    if (bytes.size() >= kBufferBytes)
        return put(bytes) ? base::Result<>() : base::Error{base::ErrorCode::Io};
    mBuffer.insert(mBuffer.end(), bytes.begin(), bytes.end());
    return {};
}

Status AtomicOutput::restart()
{
    mBuffer.clear();
    mWritten = 0;
    mFlushing = 0;
    mFault = {};
    if (ftruncate(mFile.descriptor(), 0) != 0)
        return fileFault("writing", mPath, errno);
    return {};
}

Status AtomicOutput::finish(const std::stop_token& stop)
{
    if (!flush())
        return mFault;
    // Some file systems know no permissions and refuse; a bank is worth more than its mode.
    if (mMode)
        fchmod(mFile.descriptor(), *mMode);
    // A busy disk may take long. What is left after this is the last piece and the file's own record.
    constexpr unsigned kWait = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    for (uint64_t done = 0; done + kWorthFlushing < mWritten; done += kWorthFlushing) {
        if (stop.stop_requested())
            return cancelled();
        // An error that is told here is not told again by the sync of the whole. Some file systems can't do this at
        // all.
        if (sync_file_range(mFile.descriptor(), off64_t(done), off64_t(kWorthFlushing), kWait) != 0 && errno != EINVAL
            && errno != ENOSYS && errno != ESPIPE)
            return fileFault("writing", mPath, errno);
    }
    return mFile.sync(mPath);
}

Status AtomicOutput::commit()
{
    const int error = mFile.commit(mPath);
    if (error == ENOENT)
        return Fault{TARNOK_ERR_FILE_OS,
                     std::string(baseName(mPath))
                         + ": its folder, or the unfinished file in it, was removed meanwhile"};
    return error == 0 ? Status() : fileFault("replacing", mPath, error);
}

bool AtomicOutput::flush()
{
    const bool done = put(mBuffer);
    mBuffer.clear();
    return done;
}

bool AtomicOutput::put(std::span<const uint8_t> bytes)
{
    if (const int error = writeAt(mFile.descriptor(), std::as_bytes(bytes), mWritten)) {
        mFault = fileFault("writing", mPath, error);
        return false;
    }
    advance(bytes.size());
    return true;
}

// The disk begins to take the bank while the rest of it is still being put together, so that little is left to wait for
// in finish(). What fails here fails there again.
void AtomicOutput::advance(uint64_t bytes)
{
    mWritten += bytes;
    if (mWritten - mFlushing < kWorthFlushing)
        return;
    (void)sync_file_range(mFile.descriptor(), off64_t(mFlushing), off64_t(mWritten - mFlushing), SYNC_FILE_RANGE_WRITE);
    mFlushing = mWritten;
}

} // namespace tarnok
