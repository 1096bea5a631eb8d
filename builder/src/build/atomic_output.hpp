// The files that a build makes.
#pragma once

#include "base/bytes.hpp"
#include "base/result.hpp"
#include "base/temporary_file.hpp"

#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace tarnok {

// A file that replaces the one of its name when it is complete, and leaves that one alone otherwise. Left-overs of
// killed builds of the same file are removed when the next one begins.
//
// To whoever uses the file it is still the same one, so it keeps the permissions and the group that it had, a write
// protection too; a new file gets those that the process gives to new files. Permissions that were given to a group are
// not given to another: where the group can't be kept, its members get what everybody gets.
class AtomicOutput final : public base::ByteSink
{
public:
    // Creates the file under a temporary name beside path. A symbolic link at path is followed, so that the link stays.
    static base::Result<AtomicOutput> create(const std::string& path);

    // Removes left-overs of killed builds of path.
    static void removeAbandoned(const std::string& path);

    base::Result<> write(std::span<const uint8_t> bytes) override;

    // Begins anew with an empty file.
    base::Result<> restart();

    // Everything written is on the disk afterwards, still under the temporary name. Looks at stop every few MiB.
    base::Result<> finish(const std::stop_token& stop);

    // Replaces the former file.
    base::Result<> commit();

    AtomicOutput(AtomicOutput&& other) noexcept
        : mPath(std::move(other.mPath))
        , mFile(std::move(other.mFile))
        , mBuffer(std::move(other.mBuffer))
        , mWritten(other.mWritten)
        , mFlushing(other.mFlushing)
        , mMode(other.mMode)
    { }

private:
    AtomicOutput(std::string path, base::TemporaryFile file)
        : mPath(std::move(path))
        , mFile(std::move(file))
    { }

    void takePermissions(const struct stat& former);
    base::Result<> flush();
    base::Result<> put(std::span<const uint8_t> bytes);
    void advance(uint64_t bytes);

    std::string mPath;
    base::TemporaryFile mFile;
    std::vector<uint8_t> mBuffer;
    uint64_t mWritten = 0; // bytes in the file; those in the buffer follow
    uint64_t mFlushing = 0; // of them, those that the system was asked to move to the disk
    std::optional<unsigned> mMode; // permissions of the former file
};

} // namespace tarnok
