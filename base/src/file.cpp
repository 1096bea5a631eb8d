// SPDX-License-Identifier: MIT
#include "base/file.hpp"

#include "base/path.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace base {

namespace {

constexpr uint64_t kCopyPiece = 8 << 20; // bytes

int64_t nanoseconds(const timespec& time)
{
    return int64_t(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

FileStamp stampFrom(const struct stat& status)
{
    return {status.st_dev, status.st_ino, uint64_t(status.st_size), nanoseconds(status.st_mtim),
            nanoseconds(status.st_ctim)};
}

// The first part of a path that should be a folder but isn't.
std::string fileInsteadOfFolder(std::string_view path)
{
    for (size_t slash = path.find('/', 1); slash != std::string_view::npos; slash = path.find('/', slash + 1)) {
        std::string part(path.substr(0, slash));
        struct stat status;
        if (stat(part.c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
            return part;
    }
    return parentFolder(path);
}

Error ioError(int systemError)
{
    return {ErrorCode::Io, {}, systemError};
}

// The start of the sentence "... while reading kick.wav" for an error number; empty for rare ones.
std::string_view describeReason(int systemError)
{
    switch (systemError) {
    case EACCES:
    case EPERM:
        return "no permission";
    case EROFS:
        return "the disk is read-only";
    case ENOSPC:
        return "disk full";
    case EDQUOT:
        return "disk quota used up";
    case EFBIG:
        return "the largest allowed file size was reached";
    case EMFILE:
    case ENFILE:
        return "too many open files";
    case EIO:
        return "the disk reported an error";
    case ENAMETOOLONG:
        return "the file name is too long";
    case ENOMEM:
        return "out of memory";
    default:
        return {};
    }
}

// Whether copy_file_range() doesn't support these two files, so that read and write must be used.
bool kernelCannotCopy(int systemError)
{
    return systemError == EXDEV || systemError == EINVAL || systemError == ENOSYS || systemError == EOPNOTSUPP;
}

Result<> copyByHand(int source, uint64_t sourceOffset, int target, uint64_t targetOffset, uint64_t length)
{
    std::vector<uint8_t> buffer(std::min<uint64_t>(length, 256 << 10));
    while (length > 0) {
        const std::span piece(buffer.data(), std::min<uint64_t>(length, buffer.size()));
        if (Result<> done = readAt(source, piece, sourceOffset); !done)
            return done;
        if (Result<> done = writeAt(target, piece, targetOffset); !done)
            return done;
        sourceOffset += piece.size();
        targetOffset += piece.size();
        length -= piece.size();
    }
    return {};
}

// Unlike strcasecmp(), the same in every locale.
bool equalExceptCase(std::string_view left, std::string_view right)
{
    const auto lowered = [](char c) {
        return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [&](char a, char b) { return lowered(a) == lowered(b); });
}

// For errors caused by permissions or mounts the user needs the whole path.
bool wantsWholePath(int systemError)
{
    return systemError == EACCES || systemError == EPERM || systemError == EROFS;
}

} // namespace

Error fileError(std::string_view action, std::string_view path, int systemError)
{
    const std::string name(baseName(path));
    const std::string wholePath = " (" + std::string(path) + ")";
    if (systemError == ENOTDIR) {
        return {ErrorCode::NotFound, name + ": " + fileInsteadOfFolder(path) + " is a file, not a folder" + wholePath,
                systemError};
    }
    if (systemError == ENOENT) {
        const std::string other = fileInOtherCase(path);
        return {ErrorCode::NotFound,
                name + ": the file does not exist" + wholePath + (other.empty() ? "" : "; ") + other, systemError};
    }
    if (systemError == EISDIR)
        return {ErrorCode::Io, name + ": this is a folder, not a file" + wholePath, systemError};

    std::string text(describeReason(systemError));
    char buffer[128];
    if (text.empty())
        text = strerror_r(systemError, buffer, sizeof buffer);
    text += " while " + std::string(action) + " " + name;
    if (wantsWholePath(systemError))
        text += wholePath;
    return {systemError == ENOMEM ? ErrorCode::Memory : ErrorCode::Io, std::move(text), systemError};
}

std::string fileInOtherCase(std::string_view path)
{
    struct CloseFolder
    {
        void operator()(DIR* folder) const { closedir(folder); }
    };
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(parentFolder(path).c_str()));
    const std::string_view wanted = baseName(path);
    while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        if (name == wanted || !equalExceptCase(name, wanted)) // equal: a link to nothing
            continue;
        const bool onlySuffix = withoutExtension(name) == withoutExtension(wanted);
        return std::string(name)
            + (onlySuffix ? " is there: suffixes must be lowercase" : " is there: upper and lower case must match");
    }
    return {};
}

Result<OpenedFile> openRegular(const std::string& path)
{
    // O_NONBLOCK: otherwise opening a pipe would wait for its writer. It has no effect on regular files.
    FileDescriptor descriptor;
    do {
        descriptor = FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    } while (!descriptor && errno == EINTR);
    struct stat status;
    const bool isOpen = descriptor && fstat(descriptor.get(), &status) == 0;
    const bool isSocket = !isOpen && errno == ENXIO; // or a device without a driver
    if (!isOpen && !isSocket)
        return fileError("opening", path, errno);
    if (isOpen && S_ISDIR(status.st_mode))
        return fileError("opening", path, EISDIR);
    if (isSocket || !S_ISREG(status.st_mode)) {
        return Error{ErrorCode::Unsupported,
                     std::string(baseName(path)) + ": this is a device, a pipe or a socket, not a file"};
    }
    return OpenedFile{std::move(descriptor), stampFrom(status)};
}

Result<FileStamp> readStamp(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return fileError("opening", path, errno);
    return stampFrom(status);
}

Result<size_t> readSome(int descriptor, std::span<uint8_t> buffer)
{
    for (;;) {
        const ssize_t got = read(descriptor, buffer.data(), buffer.size());
        if (got >= 0)
            return size_t(got);
        if (errno != EINTR)
            return ioError(errno);
    }
}

Result<> readAt(int descriptor, std::span<uint8_t> buffer, uint64_t offset)
{
    while (!buffer.empty()) {
        const ssize_t got = pread(descriptor, buffer.data(), buffer.size(), off_t(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return ioError(errno);
        if (got == 0)
            return Error{ErrorCode::Damaged};
        buffer = buffer.subspan(size_t(got));
        offset += uint64_t(got);
    }
    return {};
}

Result<> writeAt(int descriptor, std::span<const uint8_t> bytes, uint64_t offset)
{
    while (!bytes.empty()) {
        const ssize_t put = pwrite(descriptor, bytes.data(), bytes.size(), off_t(offset));
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            return ioError(errno);
        bytes = bytes.subspan(size_t(put));
        offset += uint64_t(put);
    }
    return {};
}

Result<> copyRange(int source, uint64_t sourceOffset, int target, uint64_t targetOffset, uint64_t length,
                   const std::function<bool()>& goOn)
{
    bool byKernel = true;
    while (length > 0) {
        if (!goOn())
            return Error{ErrorCode::Cancelled};
        const uint64_t piece = std::min(length, kCopyPiece);
        uint64_t copied = piece;
        if (byKernel) {
            auto from = loff_t(sourceOffset);
            auto to = loff_t(targetOffset);
            const ssize_t put = copy_file_range(source, &from, target, &to, piece, 0);
            if (put < 0 && errno == EINTR)
                continue;
            // Some file systems return 0 instead of an error for files that they can't copy. Reading distinguishes that
            // from the end of the file.
            if (put == 0 || (put < 0 && kernelCannotCopy(errno))) {
                byKernel = false;
                continue;
            }
            if (put < 0)
                return ioError(errno);
            copied = uint64_t(put);
        } else if (Result<> done = copyByHand(source, sourceOffset, target, targetOffset, piece); !done) {
            return done;
        }
        sourceOffset += copied;
        targetOffset += copied;
        length -= copied;
    }
    return {};
}

Result<> makeFolder(const std::string& path)
{
    if (mkdir(path.c_str(), 0777) != 0 && errno != EEXIST)
        return ioError(errno);
    return {};
}

bool anotherDiskMayHelp(int systemError)
{
    constexpr std::array kOfOneDisk = {ENOSPC, EDQUOT, EIO, EROFS, EFBIG, ESTALE};
    return std::ranges::find(kOfOneDisk, systemError) != kOfOneDisk.end();
}

} // namespace base
