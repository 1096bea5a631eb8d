#include "build/atomic_output.hpp"

#include "base/file.hpp"
#include "base/path.hpp"

#include <cerrno>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarnok {

namespace {

constexpr size_t kBufferBytes = 256 << 10;

// Written one after the other, so many bytes are worth a request to the disk.
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

base::Result<AtomicOutput> AtomicOutput::create(const std::string& path)
{
    const std::string target = followLink(path);
    struct stat status;
    const bool exists = stat(target.c_str(), &status) == 0;
    if (!exists && errno != ENOENT)
        return base::Error{base::ErrorCode::Io, base::fileError("writing", target, errno).text, errno};
    if (exists && !S_ISREG(status.st_mode)) {
        if (S_ISDIR(status.st_mode))
            return base::fileError("writing", target, EISDIR);
        return base::Error{base::ErrorCode::Io,
                           std::string(base::baseName(target)) + ": this is a device or pipe, not a file"};
    }
    const std::string folder = base::parentFolder(target);
    base::TemporaryFile::removeAbandoned(folder, base::baseName(target));
    base::Result<base::TemporaryFile> file = base::TemporaryFile::create(folder, base::baseName(target));
    if (!file)
        return file.error();
    AtomicOutput output(target, std::move(*file));
    if (exists)
        output.takePermissions(status);
    return output;
}

void AtomicOutput::removeAbandoned(const std::string& path)
{
    const std::string target = followLink(path);
    base::TemporaryFile::removeAbandoned(base::parentFolder(target), base::baseName(target));
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
    if (mBuffer.size() + bytes.size() > kBufferBytes) {
        if (base::Result<> done = flush(); !done)
            return done;
    }
    if (bytes.size() >= kBufferBytes)
        return put(bytes);
    mBuffer.insert(mBuffer.end(), bytes.begin(), bytes.end());
    return {};
}

base::Result<> AtomicOutput::restart()
{
    mBuffer.clear();
    mWritten = 0;
    mFlushing = 0;
    if (ftruncate(mFile.descriptor(), 0) != 0)
        return base::fileError("writing", mPath, errno);
    return {};
}

base::Result<> AtomicOutput::finish(const std::stop_token& stop)
{
    if (base::Result<> done = flush(); !done)
        return done;
    // Some file systems know no permissions and refuse; a bank is worth more than its mode.
    if (mMode)
        fchmod(mFile.descriptor(), *mMode);
    // A busy disk may take long. What is left after this is the last piece and the file's own record.
    constexpr unsigned kWait = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    for (uint64_t done = 0; done + kWorthFlushing < mWritten; done += kWorthFlushing) {
        if (stop.stop_requested())
            return base::cancelled();
        // An error that is reported here is not reported again by the sync of the whole. Some file systems can't do
        // this at all.
        if (sync_file_range(mFile.descriptor(), off64_t(done), off64_t(kWorthFlushing), kWait) != 0 && errno != EINVAL
            && errno != ENOSYS && errno != ESPIPE)
            return base::fileError("writing", mPath, errno);
    }
    return mFile.sync(mPath);
}

base::Result<> AtomicOutput::commit()
{
    const base::Result<> done = mFile.commit(mPath);
    if (done)
        return {};
    if (done.error().systemError == ENOENT) {
        return base::Error{base::ErrorCode::Io,
                           std::string(base::baseName(mPath))
                               + ": its folder, or the unfinished file in it, was removed meanwhile"};
    }
    return base::fileError("replacing", mPath, done.error().systemError);
}

base::Result<> AtomicOutput::flush()
{
    base::Result<> done = put(mBuffer);
    mBuffer.clear();
    return done;
}

base::Result<> AtomicOutput::put(std::span<const uint8_t> bytes)
{
    const base::Result<> written = base::writeAt(mFile.descriptor(), bytes, mWritten);
    if (!written)
        return base::fileError("writing", mPath, written.error().systemError);
    advance(bytes.size());
    return {};
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
