// SPDX-License-Identifier: MIT
// Files for encoded sounds that the cache can't store.
#pragma once

#include "base/file_descriptor.hpp"
#include "base/result.hpp"
#include "support/temporary_folders.hpp"

#include <cstdint>
#include <memory>
#include <utility>

namespace builder {

// The files of one worker. Each contains several sounds, one after the other, has no name, and disappears when the
// build ends.
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

    // The position at which the next sound starts. Fails if no folder is left.
    base::Result<Position> position();

    // Reports the size of the sound that started at position().
    void advance(uint64_t bytes) { mCurrent.end += bytes; }

    // Moves on to the next folder, because the disk of the current file is full. Fails if none is left.
    base::Result<Position> nextFolder();

private:
    TemporaryFolders mFolders;
    Position mCurrent;
};

} // namespace builder
