// SPDX-License-Identifier: MIT
// Folders for unnamed files. When the disk of one is full, the next is used.
#pragma once

#include "base/file_descriptor.hpp"
#include "base/result.hpp"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace builder {

class TemporaryFolders
{
public:
    // folders are tried in this order.
    explicit TemporaryFolders(std::vector<std::string> folders)
        : mFolders(std::move(folders))
    { }

    // folder, then the system's folders. /var/tmp comes last: it is on a disk even where /tmp is in memory.
    static TemporaryFolders startingWith(std::string folder)
    {
        return TemporaryFolders({std::move(folder), "/tmp", "/var/tmp"});
    }

    // Creates a file in the next folder where that succeeds. Otherwise the error of the last folder or, if no folder
    // was left to try, ErrorCode::Io with the text `exhausted`.
    base::Result<base::FileDescriptor> createNext(std::string exhausted);

    // The error of a system call on one of these files, see base::fileError(). If a disk is the cause, the folders are
    // listed.
    [[nodiscard]] base::Error fileError(std::string_view action, int systemError) const;

    // The folders in words: "a, b and c".
    [[nodiscard]] std::string listed() const;

private:
    std::vector<std::string> mFolders;
    size_t mNext = 0; // index of the first folder that was not tried yet
};

} // namespace builder
