// SPDX-License-Identifier: MIT
#include "bank/correction.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace bank {

namespace {

// Levels of the quantiser in units of the root mean square, and the boundary between the inner and the outer levels.
constexpr std::array<float, 4> kLevels = {-1.510f, -0.4528f, 0.4528f, 1.510f};
constexpr float kBorder = 0.9816f;

constexpr int kScaleSteps = 8; // per doubling
constexpr int kScaleZero = 256;

uint8_t nearestLevel(float value)
{
    if (value < 0)
        return value < -kBorder ? 0 : 1;
    return value < kBorder ? 2 : 3;
}

} // namespace

size_t correctionScales(uint32_t frames)
{
    return frames / kCorrectionSegment + (frames % kCorrectionSegment != 0);
}

size_t correctionCodeBytes(uint32_t frames)
{
    return frames / 4 + (frames % 4 != 0);
}

float correctionScale(uint8_t scale)
{
    return scale == 0 ? 0 : std::exp2(static_cast<float>(scale - kScaleZero) / kScaleSteps);
}

uint8_t nearestCorrectionScale(float rootMeanSquare)
{
    if (!(rootMeanSquare > 0))
        return 0;
    const float exact = kScaleZero + kScaleSteps * std::log2(rootMeanSquare);
    return static_cast<uint8_t>(std::lround(std::clamp(exact, 0.0f, 255.0f)));
}

float nearestCorrection(float missing, float unit)
{
    return unit * kLevels[nearestLevel(missing / unit)];
}

Correction makeCorrection(uint64_t first, int channels, std::span<const float> missing, std::vector<uint8_t> scales)
{
    const auto width = static_cast<size_t>(channels);
    Correction made;
    made.first = first;
    made.frames = static_cast<uint32_t>(missing.size() / width);
    made.scales = std::move(scales);
    const size_t segments = correctionScales(made.frames);
    const size_t codeBytes = correctionCodeBytes(made.frames);
    made.codes.resize(codeBytes * width);
    for (size_t channel = 0; channel < width; ++channel) {
        for (size_t i = 0; i < made.frames; ++i) {
            const float unit = correctionScale(made.scales[channel * segments + i / kCorrectionSegment]);
            if (unit > 0)
                made.codes[channel * codeBytes + i / 4] |=
                    static_cast<uint8_t>(nearestLevel(missing[i * width + channel] / unit) << i % 4 * 2);
        }
    }
    return made;
}

std::vector<float> expandCorrection(const Correction& correction, int channels)
{
    const auto width = static_cast<size_t>(channels);
    const size_t segments = correctionScales(correction.frames);
    const size_t codeBytes = correctionCodeBytes(correction.frames);
    std::vector<float> values(correction.frames * width);
    for (size_t channel = 0; channel < width; ++channel) {
        for (size_t i = 0; i < correction.frames; ++i) {
            const uint8_t code = correction.codes[channel * codeBytes + i / 4] >> i % 4 * 2 & 3;
            const uint8_t scale = correction.scales[channel * segments + i / kCorrectionSegment];
            values[i * width + channel] = correctionScale(scale) * kLevels[code];
        }
    }
    return values;
}

} // namespace bank
