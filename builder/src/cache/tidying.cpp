// SPDX-License-Identifier: MIT
#include "cache/tidying.hpp"

#include "base/file_descriptor.hpp"
#include "cache/cache_entry_header.hpp"
#include "support/content_hash.hpp"
#include "support/own_file.hpp"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace builder {

namespace {

namespace fs = std::filesystem;

constexpr int64_t kTidyEvery = 600; // seconds
constexpr uint64_t kTidyBytes = 256 << 20; // a build that has stored this much tidies, however recent the last time

// The entries that may be removed, and the total size of all entries.
struct Usage
{
    struct Candidate
    {
        int64_t usedAt;
        uint64_t bytes;
        std::string path;
    };

    std::vector<Candidate> candidates;
    uint64_t total = 0;
};

// Whether path is the path of an entry. Earlier versions used longer folder names.
bool isEntryPath(const fs::path& path)
{
    constexpr size_t kDigits = 2 * sizeof(ContentHash::bytes);
    const std::string folder = path.parent_path().filename();
    return (folder.size() == 1 || folder.size() == 2) && isHashName(folder, folder.size())
        && isHashName(path.filename().native(), kDigits - folder.size());
}

// Removes a file only if it also begins like an entry: if somebody has chosen a folder of their own as the cache, its
// folder "sounds" may contain anything.
bool removeEntry(const std::string& path)
{
    const base::FileDescriptor file = openOwn(path);
    return file && startsWithMagic(file.get(), CacheEntryHeader::kMagic) && unlink(path.c_str()) == 0;
}

bool isDue(const CacheFolder& folder, uint64_t storedBytes)
{
    if (storedBytes == 0)
        return false;
    const std::string markPath = folder.path() + "/tidied";
    struct stat status;
    const bool recently = stat(markPath.c_str(), &status) == 0 && status.st_mtim.tv_sec + kTidyEvery > time(nullptr);
    if (recently && storedBytes < kTidyBytes && folder.limit() == CacheFolder::kSizeLimit)
        return false;
    constexpr int kFlags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const base::FileDescriptor mark(open(markPath.c_str(), kFlags, 0666));
    if (mark)
        futimens(mark.get(), nullptr);
    return true;
}

Usage measure(const std::string& soundsPath, const std::stop_token& stop)
{
    Usage usage;
    const int64_t newest = int64_t(time(nullptr)) - kInUseFor;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(soundsPath, fs::directory_options::skip_permission_denied, error), end;
         !error && entry != end && !stop.stop_requested(); entry.increment(error)) {
        struct stat status;
        if (!isEntryPath(entry->path()) || lstat(entry->path().c_str(), &status) != 0 || !S_ISREG(status.st_mode))
            continue;
        usage.total += uint64_t(status.st_size);
        if (status.st_mtim.tv_sec < newest)
            usage.candidates.push_back({status.st_mtim.tv_sec, uint64_t(status.st_size), entry->path().string()});
    }
    return usage;
}

} // namespace

void tidyEntries(const CacheFolder& folder, uint64_t storedBytes, const std::stop_token& stop)
{
    if (!isDue(folder, storedBytes))
        return;
    Usage usage = measure(folder.soundsPath(), stop);
    if (usage.total <= folder.limit())
        return;

    // Reduces the size to nine tenths, so that not every build tidies a full cache.
    const uint64_t goal = folder.limit() - folder.limit() / 10;
    std::sort(usage.candidates.begin(), usage.candidates.end(),
              [](const Usage::Candidate& left, const Usage::Candidate& right) { return left.usedAt < right.usedAt; });
    for (const Usage::Candidate& candidate : usage.candidates) {
        if (usage.total <= goal || stop.stop_requested())
            return;
        if (removeEntry(candidate.path))
            usage.total -= candidate.bytes;
    }
}

} // namespace builder
