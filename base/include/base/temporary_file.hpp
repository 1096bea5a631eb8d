// A file on its way to its name. It is written under a hidden name beside the target and takes the target's name by
// commit(). Without a commit it disappears, and removeAbandoned() removes what a killed process left.
#pragma once

#include "base/file_descriptor.hpp"
#include "base/result.hpp"

#include <string>
#include <string_view>

namespace base {

class TemporaryFile
{
public:
    TemporaryFile() = default;
    TemporaryFile(TemporaryFile&& other) noexcept;
    TemporaryFile& operator=(TemporaryFile&& other) noexcept;
    ~TemporaryFile();

    // Creates the file in folder; stem becomes part of its name. ErrorCode::Io, with words that name the folder.
    static Result<TemporaryFile> create(const std::string& folder, std::string_view stem);

    explicit operator bool() const { return bool(mDescriptor); }
    [[nodiscard]] int descriptor() const { return mDescriptor.get(); }
    [[nodiscard]] const std::string& path() const { return mPath; }

    // Waits until the content is on the disk. ErrorCode::Io, with words that name targetPath.
    Result<> sync(std::string_view targetPath);

    enum class Existing
    {
        Replace,
        Keep
    };

    // Gives the file its final name, in place of a file that has it already, or not: then the error is EEXIST.
    // ErrorCode::Io with systemError and without a text.
    Result<> commit(const std::string& targetPath, Existing existing = Existing::Replace);

    // A file in folder without a name: the bytes live as long as the descriptor, however the process ends.
    static Result<FileDescriptor> createUnnamed(const std::string& folder);

    // Removes the files that create() made for stem in folder and whose process has ended.
    static void removeAbandoned(const std::string& folder, std::string_view stem);

private:
    void discard();

    FileDescriptor mDescriptor;
    std::string mPath;
};

} // namespace base
