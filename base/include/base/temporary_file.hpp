// SPDX-License-Identifier: MIT
// A file that is written under a hidden name in the target's folder. commit() renames it to the target. Without a
// commit the destructor removes it, and removeAbandoned() removes what a killed process left.
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

    // Creates the file in folder; stem becomes part of its name. ErrorCode::Io with a text that names the folder.
    static Result<TemporaryFile> create(const std::string& folder, std::string_view stem);

    explicit operator bool() const { return bool(mDescriptor); }
    [[nodiscard]] int descriptor() const { return mDescriptor.get(); }
    [[nodiscard]] const std::string& path() const { return mPath; }

    // Waits until the content is on the disk. ErrorCode::Io with a text that names targetPath.
    Result<> sync(std::string_view targetPath);

    enum class Existing
    {
        Replace,
        Keep
    };

    // Renames the file to targetPath. Existing::Keep: fails with EEXIST if there is a file of that name. ErrorCode::Io
    // with systemError and without a text.
    Result<> commit(const std::string& targetPath, Existing existing = Existing::Replace);

    // Creates a file without a name in folder. Its disk space is freed when the descriptor is closed, however the
    // process ends.
    static Result<FileDescriptor> createUnnamed(const std::string& folder);

    // Removes the files that create() made for stem in folder by processes that have ended.
    static void removeAbandoned(const std::string& folder, std::string_view stem);

private:
    void discard();

    FileDescriptor mDescriptor;
    std::string mPath;
};

} // namespace base
