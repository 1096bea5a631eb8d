// The folder of a cache: where its parts are, how large it may become, and what happens when it can't be used.
#pragma once

#include "base/result.hpp"
#include "base/temporary_file.hpp"
#include "support/remarks.hpp"

#include <atomic>
#include <cstdint>
#include <string>

namespace tarnok {

// A folder that can't be written is no obstacle: nothing is kept then, and one remark of the build says so.
class CacheFolder
{
public:
    // path exists. Removes what killed builds have left.
    CacheFolder(std::string path, Remarks& remarks);

    const std::string& path() const { return mPath; }
    std::string soundsPath() const { return mPath + "/sounds"; }
    std::string indexPath() const { return mPath + "/index"; }
    std::string recordsPath() const { return mPath + "/records"; }

    // Maximum size of all entries together, in bytes: that in the file "limit" of the folder, otherwise kSizeLimit.
    uint64_t limit() const { return mLimit; }
    static constexpr uint64_t kSizeLimit = uint64_t(4) << 30;

    // A file that is to become part of the cache by TemporaryFile::commit().
    base::Result<base::TemporaryFile> newFile();

    // Something of this build isn't kept. Makes the remark, unless it has been made.
    void remarkNotStored(const base::Error& why);

private:
    std::string temporaryPath() const { return mPath + "/incomplete"; }

    std::string mPath;
    Remarks& mRemarks;
    std::atomic<bool> mRemarked = false;
    uint64_t mLimit;
};

} // namespace tarnok
