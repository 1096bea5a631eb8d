// SPDX-License-Identifier: MIT
#include "cache/spill_files.hpp"

namespace builder {

base::Result<SpillFiles::Position> SpillFiles::position()
{
    if (!mCurrent.file)
        return nextFolder();
    return mCurrent;
}

base::Result<SpillFiles::Position> SpillFiles::nextFolder()
{
    base::Result<base::FileDescriptor> file =
        mFolders.createNext("no disk has room for the encoded sounds (tried: " + mFolders.listed() + ")");
    if (!file)
        return file.error();
    mCurrent = {std::make_shared<base::FileDescriptor>(std::move(*file)), 0};
    return mCurrent;
}

} // namespace builder
