#include "source/source_identity.hpp"

#include "support/clock.hpp"
#include "support/wide_hasher.hpp"

#include <vector>

#include <fcntl.h>

namespace tarnok {

namespace {

constexpr size_t kReadBlock = 256 << 10; // stays in the processor's cache between the kernel's copy and the hash

// Reads to the end, whatever length the file was said to have: it may be growing.
Result<ContentHash> hashFile(int descriptor, const std::string& path, const std::stop_token& stop)
{
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    WideHasher hasher;
    std::vector<std::byte> buffer(kReadBlock);
    for (;;) {
        if (stop.stop_requested())
            return cancelled();
        const Result<size_t> got = readSome(descriptor, buffer, path);
        if (!got)
            return got.fault();
        if (*got == 0)
            return hasher.digest();
        hasher.add(std::span(buffer.data(), *got));
    }
}

} // namespace

Result<SourceIdentity> SourceIdentifier::identify(const std::string& path, const std::stop_token& stop, bool anew)
{
    constexpr int kAttempts = 3;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const int64_t startedAt = now();
        SourceIdentity identity;
        const Result<FileDescriptor> file = openForReading(path, &identity.stamp);
        if (!file)
            return file.fault();
        identity.settled = SourceIndex::isSettled(identity.stamp, startedAt);
        if (mUseIndex && !anew) {
            if (const auto known = mIndex.find(path, identity.stamp)) {
                identity.content = *known;
                identity.remembered = true;
                return identity;
            }
        }

        const Result<ContentHash> content = hashFile(file->get(), path, stop);
        if (!content)
            return content.fault();
        identity.content = *content;
        const Result<FileStamp> after = stampOf(path);
        if (!after)
            return after.fault();
        if (*after != identity.stamp)
            continue;
        if (identity.settled)
            mIndex.remember(path, identity.stamp, identity.content);
        return identity;
    }
    return keepsChanging(path);
}

// A stamp that isn't settled doesn't tell a content from another that was written in the same tick of the clock. One
// that is doesn't tell what a program writes through a mapping: the time of its first write counts for all that follow,
// until the kernel has brought them to the disk, half a minute later or more.
Result<bool> SourceIdentifier::unchanged(const std::string& path, const SourceIdentity& identity, bool byStamp,
                                         const std::stop_token& stop)
{
    FileStamp stamp;
    const Result<FileDescriptor> file = openForReading(path, &stamp);
    if (!file)
        return file.fault();
    if (stamp != identity.stamp)
        return false;
    if (byStamp && identity.settled && !identity.remembered)
        return true;
    const Result<ContentHash> content = hashFile(file->get(), path, stop);
    if (!content)
        return content.fault();
    return *content == identity.content;
}

} // namespace tarnok
