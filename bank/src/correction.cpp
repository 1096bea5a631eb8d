#include "bank/correction.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace bank {

namespace {

// Levels of the quantiser in units of the root mean square, and the value where the inner two meet the outer two.
constexpr std::array<float, 4> kLevels = {-1.510f, -0.4528f, 0.4528f, 1.510f};
constexpr float kBorder = 0.9816f;

constexpr int kScaleSteps = 8; // to each doubling
constexpr int kScaleZero = 256;

uint8_t nearestScale(float rootMeanSquare)
{
    if (!(rootMeanSquare > 0))
        return 0;
    const float exact = kScaleZero + kScaleSteps * std::log2(rootMeanSquare);
    return static_cast<uint8_t>(std::lround(std::clamp(exact, 0.0f, 255.0f)));
}

uint8_t nearestLevel(float value)
{
    if (value < 0)
        return value < -kBorder ? 0 : 1;
    return value < kBorder ? 2 : 3;
}

// One segment of one channel; missing begins at its first sample, whose neighbours are channels apart.
void makeSegment(std::span<const float> missing, size_t channels, size_t frames, uint8_t* scale, uint8_t* codes)
{
    double sum = 0;
    for (size_t i = 0; i < frames; ++i)
        sum += static_cast<double>(missing[i * channels]) * missing[i * channels];
    *scale = nearestScale(static_cast<float>(std::sqrt(sum / static_cast<double>(frames))));
    if (*scale == 0)
        return;
    const float unit = correctionScale(*scale);
    for (size_t i = 0; i < frames; ++i)
        codes[i / 4] |= static_cast<uint8_t>(nearestLevel(missing[i * channels] / unit) << i % 4 * 2);
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

Correction makeCorrection(uint64_t first, int channels, std::span<const float> missing)
{
    const auto width = static_cast<size_t>(channels);
    Correction made;
    made.first = first;
    made.frames = static_cast<uint32_t>(missing.size() / width);
    const size_t segments = correctionScales(made.frames);
    const size_t codeBytes = correctionCodeBytes(made.frames);
    made.scales.resize(segments * width);
    made.codes.resize(codeBytes * width);
    for (size_t channel = 0; channel < width; ++channel) {
        for (size_t segment = 0; segment < segments; ++segment) {
            const size_t begin = segment * kCorrectionSegment;
            makeSegment(missing.subspan(begin * width + channel), width,
                        std::min<size_t>(kCorrectionSegment, made.frames - begin),
                        &made.scales[channel * segments + segment], &made.codes[channel * codeBytes + begin / 4]);
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
