// SPDX-License-Identifier: MIT
// A prepared sound, as its encoder reads it.
#pragma once

#include "base/result.hpp"
#include "encode/encoder.hpp"
#include "source/frame_source.hpp"

#include <optional>
#include <stop_token>

namespace builder {

// Also delivers frames before the start and after the end, as they are heard while the sound loops.
class LoopedSound final : public PreparedSound
{
public:
    LoopedSound(FrameSource& frames, std::optional<base::Loop> loop, std::stop_token stop);

    [[nodiscard]] const PreparedFacts& facts() const override { return mFacts; }
    base::Result<> seek(int64_t position) override;
    base::Result<> readFloat(float* frames, size_t count) override;
    base::Result<> readSamples(void* frames, size_t count) override;

private:
    template <typename ReadRun>
    base::Result<> read(uint8_t* target, size_t count, size_t sampleBytes, ReadRun readRun);
    uint64_t runLength(std::optional<uint64_t> frame) const;

    FrameSource& mFrames;
    std::stop_token mStop;
    PreparedFacts mFacts;
    int64_t mPosition = 0;
};

} // namespace builder
