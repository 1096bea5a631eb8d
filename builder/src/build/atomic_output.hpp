// SPDX-License-Identifier: MIT
// A file that is replaced atomically.
#pragma once

#include "base/bytes.hpp"
#include "base/result.hpp"
#include "base/temporary_file.hpp"

#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace builder {

// Replaces the file at its path once it is complete, and leaves it unchanged otherwise. Leftover files of killed builds
// of the same file are removed when the next build starts.
//
// For its users the file remains the same one, so its permissions (including a write protection) and its group are
// kept; a new file gets the defaults of the process. Permissions of one group are never given to another group: if the
// group can't be kept, its members get the permissions of everybody else.
class AtomicOutput final : public base::ByteSink
{
public:
    // Creates the file under a temporary name in the folder of path. A symbolic link at path is followed and kept.
    // keepUnchanged: an old file with the same bytes isn't replaced.
    static base::Result<AtomicOutput> create(const std::string& path, bool keepUnchanged = false);

    // Removes leftover files of killed builds of path.
    static void removeAbandoned(const std::string& path);

    base::Result<> write(std::span<const uint8_t> bytes) override;

    // Starts again with an empty file.
    base::Result<> restart();

    // Flushes everything to the disk, still under the temporary name, unless the old file is kept. Checks stop every
    // few MiB.
    base::Result<> finish(const std::stop_token& stop);

    // Replaces the old file, unless it is kept.
    base::Result<> commit();

    AtomicOutput(AtomicOutput&& other) noexcept
        : mPath(std::move(other.mPath))
        , mFile(std::move(other.mFile))
        , mBuffer(std::move(other.mBuffer))
        , mWritten(other.mWritten)
        , mFlushing(other.mFlushing)
        , mMode(other.mMode)
        , mKeepUnchanged(other.mKeepUnchanged)
        , mIsUnchanged(other.mIsUnchanged)
    { }

private:
    AtomicOutput(std::string path, base::TemporaryFile file, bool keepUnchanged)
        : mPath(std::move(path))
        , mFile(std::move(file))
        , mKeepUnchanged(keepUnchanged)
    { }

    void takePermissions(const struct stat& former);
    base::Result<bool> equalsOldFile(const std::stop_token& stop) const;
    base::Result<> flush();
    base::Result<> put(std::span<const uint8_t> bytes);
    void advance(uint64_t bytes);

    std::string mPath;
    base::TemporaryFile mFile;
    std::vector<uint8_t> mBuffer;
    uint64_t mWritten = 0; // bytes in the file, without those in the buffer
    uint64_t mFlushing = 0; // of these, the bytes for which writing to the disk was requested
    std::optional<unsigned> mMode; // permissions of the old file
    bool mKeepUnchanged;
    bool mIsUnchanged = false;
};

} // namespace builder
