// Files as the builder needs them: descriptors that close themselves, reads and writes that finish, and files that
// appear under their name whole or not at all.
#pragma once

#include "support/fault.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnok {

// Owns one file descriptor.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor)
        : mDescriptor(descriptor)
    { }
    FileDescriptor(FileDescriptor&& other) noexcept
        : mDescriptor(std::exchange(other.mDescriptor, -1))
    { }
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor() { reset(); }

    explicit operator bool() const { return mDescriptor >= 0; }
    int get() const { return mDescriptor; }
    void reset();

private:
    int mDescriptor = -1;
};

// Identifies one state of a file: whenever its content changes, so does its stamp, unless the change comes within the
// resolution of the file system's clock.
struct FileStamp
{
    uint64_t device = 0;
    uint64_t inode = 0;
    uint64_t size = 0;
    int64_t modified = 0; // nanoseconds since 1970
    int64_t changed = 0; // nanoseconds since 1970, of content or attributes

    bool operator==(const FileStamp&) const = default;
};

// The last part of a path, as it appears in messages.
std::string_view baseName(std::string_view path);

// The folder that holds path: "." for a bare name.
std::string folderOf(std::string_view path);

// Names as a person lists them: "a, b and c".
std::string listed(const std::vector<std::string>& names);

// The fault of a failed system call on the file at path: FILE_NOT_FOUND or FILE_OS, in words. doing completes "while
// ... kick.wav", for instance "reading".
Fault fileFault(std::string_view doing, std::string_view path, int errorNumber);

// The fault of a file that is another one each time it is looked at.
Fault keepsChanging(std::string_view path);

// Opens a regular file for reading and tells its stamp; a pipe, a device or a folder is refused without waiting.
Result<FileDescriptor> openForReading(const std::string& path, FileStamp* stamp);

// The stamp of the regular file at path.
Result<FileStamp> stampOf(const std::string& path);

// Reads on from the descriptor's own position, as much as there is and fits; 0 bytes at the end of the file.
Result<size_t> readSome(int descriptor, std::span<std::byte> buffer, std::string_view path);

// Reads exactly buffer.size() bytes at offset. Answers 0, an error number, or -1 when the file ends before.
int readAt(int descriptor, std::span<std::byte> buffer, uint64_t offset);

// Writes all bytes at offset. Answers 0 or an error number.
int writeAt(int descriptor, std::span<const std::byte> bytes, uint64_t offset);

// Copies bytes between files inside the kernel where it can. Calls goOn between pieces of a few megabytes and stops,
// with ECANCELED, when that is false. Answers 0, an error number, or -1 when the source ends before.
int copyRange(int source, uint64_t sourceOffset, int target, uint64_t targetOffset, uint64_t length,
              const std::function<bool()>& goOn);

// Makes a folder, unless it is there. Answers 0 or an error number.
int makeFolder(const std::string& path);

// Whether name consists of so many hexadecimal digits, as hashes are written here, and the suffix.
bool isHashName(std::string_view name, size_t digits, std::string_view suffix = {});

// Whether a file may be one of ours that has been damaged: it begins with our magic but for one byte, or ends within
// it. What is somebody else's must stay.
bool startsWithMagic(int descriptor, std::span<const char, 8> magic);

// Whether what couldn't be written with this error number may find room elsewhere.
bool anotherDiskMayHelp(int error);

// A file on its way to a name. It is written under a hidden name of its own beside the target and takes the target's
// name by commit(). Without a commit it disappears, and so does whatever a killed process left (see removeAbandoned).
class TemporaryFile
{
public:
    TemporaryFile() = default;
    TemporaryFile(TemporaryFile&& other) noexcept;
    TemporaryFile& operator=(TemporaryFile&& other) noexcept;
    ~TemporaryFile();

    // Creates the file in folder; stem becomes part of its name.
    static Result<TemporaryFile> create(const std::string& folder, std::string_view stem);

    explicit operator bool() const { return bool(mDescriptor); }
    int descriptor() const { return mDescriptor.get(); }

    // Waits until the content is on the disk.
    Status sync(std::string_view targetPath);

    // Gives the file its final name, in place of a file that has it already. Answers 0 or an error number.
    int commit(const std::string& targetPath);

    // A file in folder without a name: the bytes live as long as the descriptor, however the process ends.
    static Result<FileDescriptor> createUnnamed(const std::string& folder);

    // Removes the files that create() made for stem in folder and whose process has ended.
    static void removeAbandoned(const std::string& folder, std::string_view stem);

private:
    void discard();

    FileDescriptor mDescriptor;
    std::string mPath;
};

} // namespace tarnok
