// SPDX-License-Identifier: MIT
#include "decode/float_decoder.hpp"

#include "decode/sample_convert.hpp"

#include <algorithm>
#include <array>

namespace engine {

base::Result<size_t> FloatDecoder::read(void* buffer, size_t count)
{
    constexpr size_t kChunkFrames = 4096;
    const auto channels = static_cast<size_t>(mFacts.channels);
    auto* samples = static_cast<int16_t*>(buffer);
    mScratch.resize(kChunkFrames * channels);
    size_t done = 0;
    while (done < count) {
        const size_t got = decode(mScratch.data(), std::min(count - done, kChunkFrames));
        if (got == 0)
            break;
        floatToInt16(mScratch.data(), samples + done * channels, got * channels);
        done += got;
    }
    return done;
}

base::Result<size_t> FloatDecoder::readFloat(float* buffer, size_t count)
{
    size_t done = 0;
    while (done < count) {
        const size_t got = decode(buffer + done * static_cast<size_t>(mFacts.channels), count - done);
        if (got == 0)
            break;
        done += got;
    }
    return done;
}

void reorderXiphChannels(float* frames, size_t count, int channels)
{
    constexpr int kMaximumChannels = 8;
    static constexpr std::array<std::array<uint8_t, kMaximumChannels>, kMaximumChannels + 1> kOrder{{
        {},
        {},
        {},
        {0, 2, 1},
        {},
        {0, 2, 1, 3, 4},
        {0, 2, 1, 5, 3, 4},
        {0, 2, 1, 6, 5, 3, 4},
        {0, 2, 1, 7, 5, 6, 3, 4},
    }};
    if (channels < 3 || channels == 4 || channels > kMaximumChannels)
        return;
    const auto& order = kOrder[static_cast<size_t>(channels)];
    const auto width = static_cast<size_t>(channels);
    std::array<float, kMaximumChannels> frame{};
    for (size_t i = 0; i < count; ++i, frames += width) {
        std::copy_n(frames, width, frame.begin());
        for (size_t channel = 0; channel < width; ++channel)
            frames[channel] = frame[order[channel]];
    }
}

} // namespace engine
