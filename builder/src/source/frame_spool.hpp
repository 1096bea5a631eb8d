// SPDX-License-Identifier: MIT
// Stores computed samples until they are encoded.
#pragma once

#include "base/file_descriptor.hpp"
#include "source/frame_source.hpp"
#include "support/temporary_folders.hpp"

#include <stop_token>
#include <vector>

namespace builder {

// A sound of float samples that is written once, in any order, and then read from any position. A short one is stored
// in memory, a long one in an unnamed file.
//
// Read as integers, it is rounded with TPDF dither: two uniform random numbers of one step's width are added before
// rounding, which is the least noise that makes mean and variance of the error independent of the signal (Lipshitz,
// Wannamaker and Vanderkooy 1992). The random numbers depend only on the position, so the same sound always gives the
// same bytes, wherever reading starts.
class FrameSpool final : public FrameSource
{
public:
    // folders: for the file. When a disk is full, the next folder is used.
    static base::Result<std::unique_ptr<FrameSpool>> create(const FrameFacts& facts, TemporaryFolders folders,
                                                            std::stop_token stop);

    const FrameFacts& facts() const override { return mFacts; }

    // Stores count frames starting at `frame`, all inside the sound.
    base::Result<> write(uint64_t frame, const float* frames, size_t count);

    base::Result<> seek(uint64_t frame) override;
    base::Result<> readFloat(float* frames, size_t count) override;
    base::Result<> readSamples(void* frames, size_t count) override;

    // Maximum size of a sound that is stored in memory, in bytes.
    static constexpr uint64_t kMemoryLimit = 4 << 20;

private:
    FrameSpool(const FrameFacts& facts, TemporaryFolders folders, std::stop_token stop)
        : mFacts(facts)
        , mStop(std::move(stop))
        , mFolders(std::move(folders))
    { }

    base::Result<> openNextFolder();
    bool copyTo(int target) const;
    base::Error storingError(const base::Error& error) const;

    FrameFacts mFacts;
    std::stop_token mStop;
    TemporaryFolders mFolders;
    std::vector<float> mMemory;
    base::FileDescriptor mFile;
    uint64_t mPosition = 0;
    std::vector<float> mBuffer;
};

} // namespace builder
