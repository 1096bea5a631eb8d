// SPDX-License-Identifier: MIT
// Regular files: open, read and write them completely, and describe errors to the user.
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

// Identifies one state of a file: whenever the content changes, so does the stamp. It doesn't notice changes within the
// resolution of the file system's clock, nor changes through a memory mapping.
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

// Opens a regular file for reading. Refuses pipes, devices and folders without waiting for them. ErrorCode::NotFound
// and ErrorCode::Io with the text of fileError(). ErrorCode::Unsupported: a pipe, device or socket.
Result<OpenedFile> openRegular(const std::string& path);

// Reads the stamp of the file at path. Errors of openRegular().
Result<FileStamp> readStamp(const std::string& path);

// Describes the error of a system call on the file at path. ErrorCode::NotFound if the file or a folder of its path
// doesn't exist, ErrorCode::Memory, otherwise ErrorCode::Io. action completes the sentence "disk full while ...
// kick.wav", for instance "writing".
[[nodiscard]] Error fileError(std::string_view action, std::string_view path, int systemError);

// For a path that leads to nothing: names a file of its folder whose name differs only in the case of ASCII letters, as
// in "KICK.WAV is there: suffixes must be lowercase". Empty if there is none.
[[nodiscard]] std::string fileInOtherCase(std::string_view path);

// The following functions report ErrorCode::Io with systemError and without a text; fileError() provides the text.

// Reads as much as is available and fits, from the descriptor's own position; 0 bytes at the end of the file.
Result<size_t> readSome(int descriptor, std::span<uint8_t> buffer);

// Fills all of buffer from offset on. ErrorCode::Damaged: the file ends before that.
Result<> readAt(int descriptor, std::span<uint8_t> buffer, uint64_t offset);

// Writes all bytes at offset.
Result<> writeAt(int descriptor, std::span<const uint8_t> bytes, uint64_t offset);

// Copies bytes between files, inside the kernel where possible. Calls goOn between pieces of a few megabytes.
// ErrorCode::Cancelled: goOn returned false. ErrorCode::Damaged: the source ends too early.
Result<> copyRange(int source, uint64_t sourceOffset, int target, uint64_t targetOffset, uint64_t length,
                   const std::function<bool()>& goOn);

// Creates a folder unless something of that name exists.
Result<> makeFolder(const std::string& path);

// Whether writing that failed with this error number may succeed on another disk.
[[nodiscard]] bool anotherDiskMayHelp(int systemError);

} // namespace base
