// Holds computed samples until they are encoded.
#pragma once

#include "source/frame_source.hpp"
#include "support/file.hpp"

#include <stop_token>
#include <string>
#include <vector>

namespace tarnok {

// A sound of float samples that is written once, in any order of places, and then read from any place. A short one
// stays in memory, a long one lies in a file without a name.
//
// As integers it is rounded with TPDF dither (two uniform random numbers of one step's width added before rounding: the
// least noise that leaves the error free of the signal; Lipshitz, Wannamaker and Vanderkooy 1992). The random numbers
// depend on the place alone, so that the same sound always gives the same bytes wherever reading begins.
class FrameSpool final : public FrameSource
{
public:
    // folders: where the file may lie, tried in this order, the next one when a disk is full.
    static Result<std::unique_ptr<FrameSpool>> create(const FrameFacts& facts, const std::vector<std::string>& folders,
                                                      std::stop_token stop);

    const FrameFacts& facts() const override { return mFacts; }

    // Stores count frames from the place `frame` on, which lie inside the sound.
    Status write(uint64_t frame, const float* frames, size_t count);

    Status seek(uint64_t frame) override;
    Status readFloat(float* frames, size_t count) override;
    Status readSamples(void* frames, size_t count) override;

    // Longest sound that stays in memory, in bytes.
    static constexpr uint64_t kMemoryLimit = 4 << 20;

private:
    FrameSpool(const FrameFacts& facts, std::stop_token stop)
        : mFacts(facts)
        , mStop(std::move(stop))
    { }

    Status openNextFolder();
    Fault faultOf(int error) const;

    FrameFacts mFacts;
    std::stop_token mStop;
    std::vector<std::string> mFolders;
    size_t mNextFolder = 0; // the first that was not tried yet
    std::vector<float> mMemory;
    FileDescriptor mFile;
    uint64_t mPosition = 0;
    std::vector<float> mRoom;
};

} // namespace tarnok
