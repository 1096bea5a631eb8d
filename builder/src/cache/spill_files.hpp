// Files for encoded sounds that the cache doesn't take.
#pragma once

#include "base/file_descriptor.hpp"
#include "base/result.hpp"
#include "support/temporary_folders.hpp"

#include <cstdint>
#include <memory>
#include <utility>

namespace tarnok {

// The files of one worker: they hold sound after sound, have no name, and are gone with the build.
class SpillFiles
{
public:
    explicit SpillFiles(TemporaryFolders folders)
        : mFolders(std::move(folders))
    { }

    struct Position
    {
        std::shared_ptr<const base::FileDescriptor> file;
        uint64_t end = 0;
    };

    const TemporaryFolders& folders() const { return mFolders; }

    // Where the next sound begins. Fails when no folder is left.
    base::Result<Position> position();

    // The sound that began at position() takes so many bytes.
    void advance(uint64_t bytes) { mCurrent.end += bytes; }

    // The disk of the current file is full: goes on in the next folder. Fails when none is left.
    base::Result<Position> nextFolder();

private:
    TemporaryFolders mFolders;
    Position mCurrent;
};

} // namespace tarnok
