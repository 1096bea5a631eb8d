// Holds computed samples until they are encoded.
#pragma once

#include "base/file_descriptor.hpp"
#include "source/frame_source.hpp"
#include "support/temporary_folders.hpp"

#include <stop_token>
#include <vector>

namespace tarnok {

// A sound of float samples that is written once, in any order, and then read from any position. A short one stays in
// memory, a long one is stored in a file without a name.
//
// As integers it is rounded with TPDF dither (two uniform random numbers of one step's width added before rounding: the
// least noise that leaves the error free of the signal; Lipshitz, Wannamaker and Vanderkooy 1992). The random numbers
// depend on the position alone, so that the same sound always gives the same bytes wherever reading begins.
class FrameSpool final : public FrameSource
{
public:
    // folders: for the file, the next one when a disk is full.
    static base::Result<std::unique_ptr<FrameSpool>> create(const FrameFacts& facts, TemporaryFolders folders,
                                                            std::stop_token stop);

    const FrameFacts& facts() const override { return mFacts; }

    // Stores count frames from the position `frame` on, all inside the sound.
    base::Result<> write(uint64_t frame, const float* frames, size_t count);

    base::Result<> seek(uint64_t frame) override;
    base::Result<> readFloat(float* frames, size_t count) override;
    base::Result<> readSamples(void* frames, size_t count) override;

    // Longest sound that stays in memory, in bytes.
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

} // namespace tarnok
