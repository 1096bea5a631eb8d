// SPDX-License-Identifier: MIT
#include "support/temporary_folders.hpp"

#include "base/file.hpp"
#include "base/temporary_file.hpp"

namespace builder {

base::Result<base::FileDescriptor> TemporaryFolders::createNext(std::string exhausted)
{
    base::Error last{base::ErrorCode::Io, std::move(exhausted)};
    while (mNext < mFolders.size()) {
        base::Result<base::FileDescriptor> file = base::TemporaryFile::createUnnamed(mFolders[mNext++]);
        if (file)
            return file;
        last = file.error();
    }
    return last;
}

base::Error TemporaryFolders::fileError(std::string_view action, int systemError) const
{
    base::Error error = base::fileError(action, "the bank", systemError);
    if (base::anotherDiskMayHelp(systemError))
        error.text += " (in " + listed() + ")";
    return error;
}

std::string TemporaryFolders::listed() const
{
    std::string list;
    for (size_t index = 0; index < mFolders.size(); ++index)
        list += (index == 0 ? "" : index + 1 < mFolders.size() ? ", " : " and ") + mFolders[index];
    return list;
}

} // namespace builder
