// SPDX-License-Identifier: MIT
// The folder of a cache: the paths of its parts, its size limit, and what happens if it can't be used.
#pragma once

#include "base/result.hpp"
#include "base/temporary_file.hpp"
#include "support/remarks.hpp"

#include <atomic>
#include <cstdint>
#include <string>

namespace builder {

// A folder that can't be written to is not an error: nothing is stored, and one remark of the build reports it.
class CacheFolder
{
public:
    // path exists. Removes leftover files of killed builds.
    CacheFolder(std::string path, Remarks& remarks);

    const std::string& path() const { return mPath; }
    std::string soundsPath() const { return mPath + "/sounds"; }
    std::string indexPath() const { return mPath + "/index"; }
    std::string recordsPath() const { return mPath + "/records"; }

    // Maximum total size of all entries, in bytes: the number in the file "limit" of the folder, otherwise kSizeLimit.
    uint64_t limit() const { return mLimit; }
    static constexpr uint64_t kSizeLimit = uint64_t(4) << 30;

    // Creates a file that TemporaryFile::commit() will make part of the cache.
    base::Result<base::TemporaryFile> newFile();

    // Posts the remark that something of this build isn't stored, unless it was posted before.
    void remarkNotStored(const base::Error& why);

private:
    std::string temporaryPath() const { return mPath + "/incomplete"; }

    std::string mPath;
    Remarks& mRemarks;
    std::atomic<bool> mRemarked = false;
    uint64_t mLimit;
};

} // namespace builder
