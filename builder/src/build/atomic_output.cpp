// SPDX-License-Identifier: MIT
#include "build/atomic_output.hpp"

#include "base/file.hpp"
#include "base/path.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace builder {

namespace {

constexpr size_t kBufferBytes = 256 << 10;

// This many sequential bytes are worth a request to the disk.
constexpr uint64_t kFlushBytes = 4 << 20;

// path with symbolic links resolved. A dangling link is returned unchanged, so that the output replaces it.
std::string followLink(const std::string& path)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
        return path;
    const std::unique_ptr<char, void (*)(void*)> target(realpath(path.c_str(), nullptr), std::free);
    return target ? std::string(target.get()) : path;
}

} // namespace

base::Result<AtomicOutput> AtomicOutput::create(const std::string& path, bool keepUnchanged)
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
    AtomicOutput output(target, std::move(*file), keepUnchanged);
    if (exists)
        output.takePermissions(status);
    return output;
}

void AtomicOutput::removeAbandoned(const std::string& path)
{
    const std::string target = followLink(path);
    base::TemporaryFile::removeAbandoned(base::parentFolder(target), base::baseName(target));
}

// The owner may write to the temporary file in any case: otherwise it couldn't be removed after the process was killed.
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
    if (mKeepUnchanged) {
        const base::Result<bool> same = equalsOldFile(stop);
        if (!same)
            return same.error();
        mIsUnchanged = *same;
        if (mIsUnchanged)
            return {};
    }
    // Some file systems have no permissions and refuse. That must not cost the bank.
    if (mMode)
        fchmod(mFile.descriptor(), *mMode);
    // A busy disk may take long, so this is done in pieces. Only the last piece and the metadata are left for the final
    // sync.
    constexpr unsigned kWait = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    for (uint64_t done = 0; done + kFlushBytes < mWritten; done += kFlushBytes) {
        if (stop.stop_requested())
            return base::cancelled();
        // An error that is reported here isn't reported again by the final sync. Some file systems don't support this
        // call.
        if (sync_file_range(mFile.descriptor(), off64_t(done), off64_t(kFlushBytes), kWait) != 0 && errno != EINVAL
            && errno != ENOSYS && errno != ESPIPE)
            return base::fileError("writing", mPath, errno);
    }
    return mFile.sync(mPath);
}

// An old file that can't be read is replaced.
base::Result<bool> AtomicOutput::equalsOldFile(const std::stop_token& stop) const
{
    const base::Result<base::OpenedFile> former = base::openRegular(mPath);
    if (!former || former->stamp.size != mWritten)
        return false;
    std::vector<uint8_t> formerBytes(kBufferBytes);
    std::vector<uint8_t> bytes(kBufferBytes);
    for (uint64_t offset = 0; offset < mWritten; offset += kBufferBytes) {
        if (stop.stop_requested())
            return base::cancelled();
        const size_t size = std::min<uint64_t>(kBufferBytes, mWritten - offset);
        if (!base::readAt(former->descriptor.get(), std::span(formerBytes).first(size), offset))
            return false;
        const base::Result<> read = base::readAt(mFile.descriptor(), std::span(bytes).first(size), offset);
        if (!read)
            return base::fileError("reading", mPath, read.error().systemError);
        if (!std::equal(bytes.begin(), bytes.begin() + ptrdiff_t(size), formerBytes.begin()))
            return false;
    }
    return true;
}

base::Result<> AtomicOutput::commit()
{
    if (mIsUnchanged)
        return {};
    const base::Result<> done = mFile.commit(mPath);
    if (done)
        return {};
    if (done.error().systemError == ENOENT) {
        return base::Error{base::ErrorCode::Io,
                           std::string(base::baseName(mPath))
                               + ": its folder, or the unfinished file in it, was removed during the build"};
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

// Starts writing to the disk while the rest of the bank is still being assembled, so that finish() has little to wait
// for. Errors can be ignored here, because finish() meets them again.
void AtomicOutput::advance(uint64_t bytes)
{
    mWritten += bytes;
    if (mWritten - mFlushing < kFlushBytes)
        return;
    (void)sync_file_range(mFile.descriptor(), off64_t(mFlushing), off64_t(mWritten - mFlushing), SYNC_FILE_RANGE_WRITE);
    mFlushing = mWritten;
}

} // namespace builder
