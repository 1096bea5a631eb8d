// SPDX-License-Identifier: MIT
// The samples of a sound between its files and its encoder.
#pragma once

#include "bank/sound.hpp"
#include "base/result.hpp"

#include <cstddef>
#include <cstdint>

namespace builder {

// The properties of a sequence of samples. Lengths and positions are in frames, that is, samples of one channel.
struct FrameFacts
{
    int channels = 0; // 1 to bank::kMaximumChannels
    double sampleRate = 0;
    bank::SampleFormat sampleFormat = bank::SampleFormat::None; // of readSamples
    uint64_t length = 0;
};

// A sound that can be read from any position, in one of two forms. Used by one thread.
class FrameSource
{
public:
    virtual ~FrameSource() = default;

    virtual const FrameFacts& facts() const = 0;

    // The next read starts at frame, which is at most the length.
    virtual base::Result<> seek(uint64_t frame) = 0;

    // Delivers exactly count interleaved frames, all inside the sound; full scale is -1 to 1. NaN is delivered as 0.
    virtual base::Result<> readFloat(float* frames, size_t count) = 0;

    // The same in the sample format of facts(), bit-exact.
    virtual base::Result<> readSamples(void* frames, size_t count) = 0;

protected:
    FrameSource() = default;
    FrameSource(const FrameSource&) = delete;
    FrameSource& operator=(const FrameSource&) = delete;
};

} // namespace builder
