// Folders for files without a name, one after the other as their disks fill up.
#pragma once

#include "base/file_descriptor.hpp"
#include "base/result.hpp"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnok {

class TemporaryFolders
{
public:
    // folders are tried in this order.
    explicit TemporaryFolders(std::vector<std::string> folders)
        : mFolders(std::move(folders))
    { }

    // folder, then the system's. /var/tmp comes last: it isn't memory where /tmp is.
    static TemporaryFolders startingWith(std::string folder)
    {
        return TemporaryFolders({std::move(folder), "/tmp", "/var/tmp"});
    }

    // A file in the next folder that takes one. Without any, the error of the last folder, or an ErrorCode::Io with the
    // text of exhausted where none was left to try.
    base::Result<base::FileDescriptor> createNext(std::string exhausted);

    // The error of a system call on a file of these, see base::fileError(). It lists the folders where a disk is to
    // blame.
    [[nodiscard]] base::Error fileError(std::string_view action, int systemError) const;

    // The folders as a person lists them: "a, b and c".
    [[nodiscard]] std::string listed() const;

private:
    std::vector<std::string> mFolders;
    size_t mNext = 0; // the first that was not tried yet
};

} // namespace tarnok
