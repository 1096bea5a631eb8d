// Samples of a sound between its file and its encoder.
#pragma once

#include "bank/sound.hpp"
#include "support/fault.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace tarnok {

// What is known of a run of samples. Lengths and positions are frames, that is samples of one channel.
struct FrameFacts
{
    int channels = 0; // 1 to bank::kMaximumChannels
    double sampleRate = 0;
    bank::SampleFormat sampleFormat = bank::SampleFormat::None; // of readSamples
    uint64_t length = 0;
};

// A sound that can be read from any place, in one of two forms. Belongs to one thread.
class FrameSource
{
public:
    virtual ~FrameSource() = default;

    virtual const FrameFacts& facts() const = 0;

    // The next read begins at frame, which is at most the length.
    virtual Status seek(uint64_t frame) = 0;

    // Delivers exactly count interleaved frames, which lie inside the sound; full scale is -1 to 1. Samples that are no
    // numbers come as 0.
    virtual Status readFloat(float* frames, size_t count) = 0;

    // The same in the sample format of facts(), to the bit.
    virtual Status readSamples(void* frames, size_t count) = 0;

protected:
    FrameSource() = default;
    FrameSource(const FrameSource&) = delete;
    FrameSource& operator=(const FrameSource&) = delete;
};

// Several sounds of one rate side by side: the channels of the first, then those of the second, and so on. As long as
// the longest; behind the end of a shorter one its channels are silent. The sample format is the widest of all: that of
// the greatest depth, or float if any of them is float. Integers are widened without a change of value.
std::unique_ptr<FrameSource> interleave(std::vector<std::unique_ptr<FrameSource>> parts);

// A short sound held in memory, so that jumping about in it is cheap whatever its file is. A long one is handed back as
// it came.
std::unique_ptr<FrameSource> holdIfShort(std::unique_ptr<FrameSource> source);

// A sound whose loop is held in memory if it is short. Encoders and filters hear a short loop over and over at the end
// of the sound, and some files can't be sought in without being decoded anew. A short sound,
// which holdIfShort() holds, and one with a long loop or none are handed back as they came.
std::unique_ptr<FrameSource> holdLoopIfShort(std::unique_ptr<FrameSource> source,
                                             const std::optional<base::Loop>& loop);

} // namespace tarnok
