// SPDX-License-Identifier: MIT
#include "cache/cache_folder.hpp"

#include "base/bytes.hpp"
#include "base/file.hpp"

#include <cerrno>
#include <charconv>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace builder {

namespace {

constexpr std::string_view kTemporaryStem = "sound";

// The owner of a cache sets its limit in the folder itself, so that it applies to everyone who shares it.
uint64_t configuredLimit(const std::string& folder)
{
    char text[32] = "";
    const base::Result<base::OpenedFile> file = base::openRegular(folder + "/limit");
    if (!file || !base::readSome(file->descriptor.get(), base::asWritableBytes(std::span(text, sizeof text - 1))))
        return CacheFolder::kSizeLimit;
    uint64_t limit = 0;
    constexpr const char* kBlanks = " \t\r\n";
    const char* const end = text + std::strlen(text);
    const auto [rest, error] = std::from_chars(text + std::strspn(text, kBlanks), end, limit);
    // "8G" is not a number of bytes, and reading it as 8 would empty the cache.
    const bool isNumber = error == std::errc() && rest + std::strspn(rest, kBlanks) == end;
    return isNumber && limit > 0 ? limit : CacheFolder::kSizeLimit;
}

} // namespace

CacheFolder::CacheFolder(std::string path, Remarks& remarks)
    : mPath(std::move(path))
    , mRemarks(remarks)
    , mLimit(configuredLimit(mPath))
{
    (void)base::makeFolder(soundsPath());
    (void)base::makeFolder(temporaryPath());
    base::TemporaryFile::removeAbandoned(temporaryPath(), kTemporaryStem);
    base::TemporaryFile::removeAbandoned(indexPath(), "index");
}

base::Result<base::TemporaryFile> CacheFolder::newFile()
{
    base::Result<base::TemporaryFile> file = base::TemporaryFile::create(temporaryPath(), kTemporaryStem);
    // Somebody may have emptied the folder in the meantime.
    if (!file) {
        if (const base::Result<> made = base::makeFolder(temporaryPath()); !made)
            file = base::fileError("creating the folder", temporaryPath(), made.error().systemError);
        else
            file = base::TemporaryFile::create(temporaryPath(), kTemporaryStem);
    }
    if (!file)
        remarkNotStored(file.error());
    return file;
}

void CacheFolder::remarkNotStored(const base::Error& why)
{
    if (mRemarked.exchange(true))
        return;
    std::string reason = why.text;
    struct stat status;
    if (stat(mPath.c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
        reason = "it is not a folder";
    else if (access(mPath.c_str(), F_OK) != 0 && errno == ENOENT)
        reason = "it does not exist";
    mRemarks.post("the cache " + mPath + " can't be used: " + reason
                  + "; temporary files are used instead, and the next build encodes again");
}

} // namespace builder
