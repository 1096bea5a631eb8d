// SPDX-License-Identifier: MIT
#include "source/source_identity.hpp"

#include "base/path.hpp"
#include "support/clock.hpp"
#include "support/wide_hasher.hpp"

#include <vector>

#include <fcntl.h>

namespace builder {

namespace {

constexpr size_t kReadBlock = 256 << 10; // stays in the processor's cache between the kernel's copy and hashing

base::Result<base::OpenedFile> openSource(const std::string& path)
{
    base::Result<base::OpenedFile> file = base::openRegular(path);
    if (!file && file.error().code == base::ErrorCode::Unsupported)
        return base::Error{base::ErrorCode::Io,
                           std::string(base::baseName(path))
                               + ": this is a device, a pipe or a socket, not a sound file"};
    return file;
}

// Reads to the end, whatever length the file had when it was opened: it may be growing.
base::Result<ContentHash> hashFile(int descriptor, const std::string& path, const std::stop_token& stop)
{
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    WideHasher hasher;
    std::vector<uint8_t> buffer(kReadBlock);
    for (;;) {
        if (stop.stop_requested())
            return base::cancelled();
        const base::Result<size_t> got = base::readSome(descriptor, buffer);
        if (!got)
            return base::fileError("reading", path, got.error().systemError);
        if (*got == 0)
            return hasher.digest();
        hasher.add(std::as_bytes(std::span(buffer.data(), *got)));
    }
}

} // namespace

base::Result<SourceIdentity> SourceIdentifier::identify(const std::string& path, const std::stop_token& stop,
                                                        bool rehash)
{
    constexpr int kAttempts = 3;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const int64_t startedAt = now();
        const base::Result<base::OpenedFile> file = openSource(path);
        if (!file)
            return file.error();
        SourceIdentity identity;
        identity.stamp = file->stamp;
        identity.settled = SourceIndex::isSettled(identity.stamp, startedAt);
        if (mUseIndex && !rehash) {
            if (const auto known = mIndex.find(path, identity.stamp)) {
                identity.content = *known;
                identity.remembered = true;
                return identity;
            }
        }

        const base::Result<ContentHash> content = hashFile(file->descriptor.get(), path, stop);
        if (!content)
            return content.error();
        identity.content = *content;
        const base::Result<base::FileStamp> after = base::readStamp(path);
        if (!after)
            return after.error();
        if (*after != identity.stamp)
            continue;
        if (identity.settled)
            mIndex.remember(path, identity.stamp, identity.content);
        return identity;
    }
    return keepsChanging(path);
}

// A stamp that isn't settled can't distinguish two contents that were written in the same tick of the clock. A settled
// stamp doesn't show what a program writes through a mapping: all writes keep the time of the first one until the
// kernel has written them to the disk, half a minute later or more.
base::Result<bool> SourceIdentifier::unchanged(const std::string& path, const SourceIdentity& identity, bool byStamp,
                                               const std::stop_token& stop)
{
    const base::Result<base::OpenedFile> file = openSource(path);
    if (!file)
        return file.error();
    if (file->stamp != identity.stamp)
        return false;
    if (byStamp && identity.settled && !identity.remembered)
        return true;
    const base::Result<ContentHash> content = hashFile(file->descriptor.get(), path, stop);
    if (!content)
        return content.error();
    return *content == identity.content;
}

base::Error keepsChanging(std::string_view path)
{
    return {base::ErrorCode::Io, std::string(base::baseName(path)) + ": another program keeps writing to this file"};
}

} // namespace builder
