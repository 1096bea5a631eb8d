// Regular files: opening, reading and writing them to the end, and what their failures mean to a person.
#pragma once

#include "base/file_descriptor.hpp"
#include "base/result.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace base {

// Identifies one state of a file: whenever its content changes, so does its stamp, unless the change comes within the
// resolution of the file system's clock, or through a memory mapping.
struct FileStamp
{
    uint64_t device = 0;
    uint64_t inode = 0;
    uint64_t size = 0;
    int64_t modified = 0; // nanoseconds since 1970
    int64_t changed = 0; // nanoseconds since 1970, of content or attributes

    bool operator==(const FileStamp&) const = default;
};

struct OpenedFile
{
    FileDescriptor descriptor;
    FileStamp stamp;
};

// Opens a regular file for reading. A pipe, a device or a folder is refused without waiting for it.
// ErrorCode::NotFound, ErrorCode::Io with the words of fileError(). ErrorCode::Unsupported: a pipe, device or socket.
Result<OpenedFile> openRegular(const std::string& path);

// The stamp of the file at path. Errors of openRegular().
Result<FileStamp> stampOf(const std::string& path);

// The error of a system call that failed on the file at path, in words: ErrorCode::NotFound where the file or a folder
// on the way to it doesn't exist, ErrorCode::Memory, otherwise ErrorCode::Io. action completes "while ... kick.wav",
// for instance "reading".
[[nodiscard]] Error fileError(std::string_view action, std::string_view path, int systemError);

// Those below report ErrorCode::Io with systemError and without a text: fileError() knows the words.

// Reads from the descriptor's own position, as much as there is and fits; 0 bytes at the end of the file.
Result<size_t> readSome(int descriptor, std::span<uint8_t> buffer);

// Fills all of buffer from offset on. ErrorCode::Damaged: the file ends before that.
Result<> readAt(int descriptor, std::span<uint8_t> buffer, uint64_t offset);

// Writes all bytes at offset.
Result<> writeAt(int descriptor, std::span<const uint8_t> bytes, uint64_t offset);

// Copies bytes between files, inside the kernel where it can. Calls goOn between pieces of a few megabytes.
// ErrorCode::Cancelled: it returned false. ErrorCode::Damaged: the source ends before.
Result<> copyRange(int source, uint64_t sourceOffset, int target, uint64_t targetOffset, uint64_t length,
                   const std::function<bool()>& goOn);

// Makes a folder, unless there is something of that name.
Result<> makeFolder(const std::string& path);

// Whether what couldn't be written with this error number may find room on another disk.
[[nodiscard]] bool anotherDiskMayHelp(int systemError);

} // namespace base
