// SPDX-License-Identifier: MIT
#include "atomic_file.hpp"

#include <QFile>
#include <QMap>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace TARNOK {

namespace {

constexpr mode_t ALL_MODE_BITS = 07777;
constexpr mode_t OWNER_ONLY = S_IRUSR | S_IWUSR;
constexpr mode_t AS_USUAL = 0666; // minus the process's umask, or as the folder's default access list says

QByteArray folderOf(const QByteArray& path)
{
    const auto slash = path.lastIndexOf('/');
    return slash < 0 ? QByteArray(".") : path.left(slash + 1);
}

// The path with its symbolic links resolved, even if the target is missing.
QByteArray resolved(const QString& path)
{
    constexpr int MOST_LINKS = 40;
    QByteArray name = QFile::encodeName(path);
    for (int i = 0; i < MOST_LINKS; ++i) {
        const std::unique_ptr<char, void (*)(void*)> whole(realpath(name.constData(), nullptr), std::free);
        if (whole)
            return whole.get();
        QByteArray target(PATH_MAX, '\0');
        const ssize_t size = readlink(name.constData(), target.data(), static_cast<size_t>(target.size()));
        if (size <= 0)
            break;
        target.truncate(size);
        name = target.startsWith('/') ? target : folderOf(name) + target;
    }
    return name;
}

bool writeAll(int file, const QByteArray& content)
{
    for (qsizetype done = 0; done < content.size();) {
        const ssize_t written = write(file, content.constData() + done, static_cast<size_t>(content.size() - done));
        if (written < 0 && errno != EINTR)
            return false;
        done += written > 0 ? written : 0;
    }
    return true;
}

// Creates a file of our own. Its name is short, so that it fits wherever the name of the replaced file fits.
int createBeside(const QByteArray& target, mode_t mode, QByteArray* path)
{
    static std::atomic<unsigned> counter = 0;
    for (;;) {
        *path = folderOf(target) + ".tarnok-" + QByteArray::number(getpid()) + "-" + QByteArray::number(++counter);
        const int file = open(path->constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (file >= 0 || errno != EEXIST)
            return file;
    }
}

// The values of a file's extended attributes by name, access lists among them.
QMap<QByteArray, QByteArray> attributesOf(int file)
{
    QMap<QByteArray, QByteArray> attributes;
    QByteArray names(std::max<ssize_t>(0, flistxattr(file, nullptr, 0)), '\0');
    names.resize(std::max<ssize_t>(0, flistxattr(file, names.data(), static_cast<size_t>(names.size()))));
    for (const QByteArray& name : names.split('\0')) {
        if (name.isEmpty())
            continue;
        QByteArray value(std::max<ssize_t>(0, fgetxattr(file, name.constData(), nullptr, 0)), '\0');
        value.resize(
            std::max<ssize_t>(0, fgetxattr(file, name.constData(), value.data(), static_cast<size_t>(value.size()))));
        attributes.insert(name, value);
    }
    return attributes;
}

} // namespace

AtomicFile::AtomicFile(const QString& path)
    : mTarget(resolved(path))
{
    mFile = open(mTarget.constData(), O_WRONLY | O_CLOEXEC);
    if (mFile >= 0) {
        mIsOpen = fstat(mFile, &mStatus) == 0 || fail();
        return;
    }
    // The only way to find out whether the file can be created is to create it.
    const int made =
        errno == ENOENT ? open(mTarget.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, OWNER_ONLY) : -1;
    mIsOpen = made >= 0 || fail();
    if (mIsOpen) {
        unlink(mTarget.constData());
        close(made);
    }
}

AtomicFile::~AtomicFile()
{
    if (mFile >= 0)
        close(mFile);
}

bool AtomicFile::fail()
{
    mErrorString = qt_error_string(errno);
    return false;
}

bool AtomicFile::write(const QByteArray& content, bool isPrivate)
{
    if (mFile >= 0 && (!S_ISREG(mStatus.st_mode) || mStatus.st_nlink > 1))
        return writeInPlace(content);
    bool isSettled = false;
    const bool isWritten = writeAside(content, isPrivate, &isSettled);
    return isSettled ? isWritten : writeInPlace(content);
}

// Undecided: the existing file must be overwritten.
bool AtomicFile::writeAside(const QByteArray& content, bool isPrivate, bool* isSettled)
{
    const bool isNew = mFile < 0;
    QByteArray path;
    const int aside = createBeside(mTarget, isNew && !isPrivate ? AS_USUAL : OWNER_ONLY, &path);
    if (aside < 0) {
        *isSettled = isNew;
        return fail();
    }

    const bool isReady = isNew || adoptStatus(aside);
    const bool isStored = isReady && writeAll(aside, content) && fsync(aside) == 0;
    const bool isDone = (isStored || fail()) && (rename(path.constData(), mTarget.constData()) == 0 || fail());
    *isSettled = isDone || isNew || (isReady && !isStored);
    if (!isDone)
        unlink(path.constData());
    close(aside);
    if (!isDone)
        return false;

    // Then the rename survives a crash of the machine as well.
    const int folder = open(folderOf(mTarget).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        fsync(folder);
        close(folder);
    }
    return true;
}

// Gives a file the owner, mode and attributes of the existing one. False unless all of them could be set.
bool AtomicFile::adoptStatus(int file) const
{
    // Each of these may be refused, or unsupported by the file system; only the outcome counts.
    [[maybe_unused]] const int owned = fchown(file, mStatus.st_uid, mStatus.st_gid);
    fchmod(file, mStatus.st_mode & ALL_MODE_BITS);
    const auto attributes = attributesOf(mFile);
    for (auto one = attributes.cbegin(); one != attributes.cend(); ++one)
        fsetxattr(file, one.key().constData(), one->constData(), static_cast<size_t>(one->size()), 0);

    struct stat status;
    return fstat(file, &status) == 0 && status.st_uid == mStatus.st_uid && status.st_gid == mStatus.st_gid
        && status.st_mode == mStatus.st_mode && attributesOf(file) == attributes;
}

bool AtomicFile::writeInPlace(const QByteArray& content)
{
    if (!S_ISREG(mStatus.st_mode))
        return writeAll(mFile, content) || fail();

    QFile reader(QFile::decodeName(mTarget));
    const QByteArray former = reader.open(QIODevice::ReadOnly) ? reader.readAll() : QByteArray();
    // Reserve the space first. Where the file system can't do that, writing shows whether there is enough.
    const bool hasRoom = content.size() <= mStatus.st_size || fallocate(mFile, 0, 0, content.size()) == 0
        || errno == EOPNOTSUPP || errno == ENOSYS;
    const bool isDone = hasRoom && lseek(mFile, 0, SEEK_SET) == 0 && writeAll(mFile, content)
        && ftruncate(mFile, content.size()) == 0 && fsync(mFile) == 0;
    if (isDone)
        return true;
    fail();
    if (hasRoom && lseek(mFile, 0, SEEK_SET) == 0)
        writeAll(mFile, former);
    [[maybe_unused]] const int cut = ftruncate(mFile, mStatus.st_size);
    return false;
}

} // namespace TARNOK
