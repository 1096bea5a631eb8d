// SPDX-License-Identifier: MIT
#include "encode/correction_layers.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

namespace builder {

namespace {

constexpr auto kSegment = size_t(bank::kCorrectionSegment);

using Values = std::array<float, kSegment>;

// Searches for the scales with which several layers together leave the least error in one segment of one channel.
//
// For a normal distribution the root mean square is the best unit of each layer. An error with a peak, such as a
// pre-echo, needs a first layer that covers the peak; the next layer corrects what the first one does to all other
// samples.
class ScaleSearch
{
public:
    explicit ScaleSearch(size_t layers)
        : mLayers(layers)
    { }

    // Corrects values, and returns the scales of the layers.
    std::array<uint8_t, kMaximumLayers> run(std::span<float> values)
    {
        descend(0, values);
        std::copy_n(mBestRemaining.begin(), values.size(), values.begin());
        return mBestScales;
    }

private:
    static constexpr float kMaximumUnits = 1.51f; // units: the largest value of a layer
    static constexpr int kCoarseStep = 4; // eighths of an octave
    static constexpr int kFineStep = 2;
    static constexpr int kFinestUnits = 4;

    void descend(size_t layer, std::span<const float> values)
    {
        double squares = 0;
        float peak = 0;
        for (const float value : values) {
            squares += double(value) * value;
            peak = std::max(peak, std::abs(value));
        }
        const int usual = bank::nearestCorrectionScale(float(std::sqrt(squares / double(values.size()))));
        if (layer == mLayers || usual == 0) {
            accept(layer, values, squares);
            return;
        }
        if (layer + 1 == mLayers) {
            for (int scale = usual - kFinestUnits; scale <= usual + kFinestUnits; scale += kFineStep)
                attempt(layer, values, scale);
            return;
        }
        for (int scale = usual;; scale += kCoarseStep) {
            attempt(layer, values, scale);
            if (scale >= kMaximumScale || bank::correctionScale(uint8_t(scale)) * kMaximumUnits >= peak)
                return;
        }
    }

    void attempt(size_t layer, std::span<const float> values, int scale)
    {
        mScales[layer] = uint8_t(std::clamp(scale, 1, kMaximumScale));
        const float unit = bank::correctionScale(mScales[layer]);
        std::transform(values.begin(), values.end(), mRemaining[layer].begin(),
                       [unit](float value) { return value - bank::nearestCorrection(value, unit); });
        descend(layer + 1, std::span(mRemaining[layer]).first(values.size()));
    }

    void accept(size_t layer, std::span<const float> values, double squares)
    {
        if (squares >= mLeast)
            return;
        mLeast = squares;
        mBestScales = mScales;
        std::fill(mBestScales.begin() + ptrdiff_t(layer), mBestScales.end(), uint8_t(0));
        std::copy(values.begin(), values.end(), mBestRemaining.begin());
    }

    static constexpr int kMaximumScale = 255;

    size_t mLayers;
    double mLeast = std::numeric_limits<double>::max();
    std::array<uint8_t, kMaximumLayers> mScales{};
    std::array<uint8_t, kMaximumLayers> mBestScales{};
    std::array<Values, kMaximumLayers> mRemaining{};
    Values mBestRemaining{};
};

} // namespace

CorrectionLayers::CorrectionLayers(int64_t first, size_t channels, std::span<const float> missing)
    : mFirst(first)
    , mChannels(channels)
    , mSegments(bank::correctionScales(uint32_t(missing.size() / channels)))
{
    for (size_t i = 0; i < mSegments.size(); ++i) {
        const size_t offset = i * kSegment * channels;
        const std::span<const float> part =
            missing.subspan(offset, std::min(kSegment * channels, missing.size() - offset));
        mSegments[i].corrected[0].remaining.assign(part.begin(), part.end());
    }
}

int64_t CorrectionLayers::first(size_t segment) const
{
    return mFirst + int64_t(segment * kSegment);
}

std::span<const float> CorrectionLayers::remaining(size_t segment, size_t layers)
{
    if (mSegments[segment].corrected[layers].remaining.empty())
        correct(&mSegments[segment], layers);
    return mSegments[segment].corrected[layers].remaining;
}

void CorrectionLayers::correct(Segment* segment, size_t layers) const
{
    const std::vector<float>& missing = segment->corrected[0].remaining;
    Corrected& corrected = segment->corrected[layers];
    corrected.remaining.resize(missing.size());
    for (size_t channel = 0; channel < mChannels; ++channel) {
        Values values{};
        const size_t frames = missing.size() / mChannels;
        for (size_t i = 0; i < frames; ++i)
            values[i] = missing[i * mChannels + channel];
        const std::array<uint8_t, kMaximumLayers> scales = ScaleSearch(layers).run(std::span(values).first(frames));
        for (size_t layer = 0; layer < layers; ++layer)
            corrected.scales[layer].push_back(scales[layer]);
        for (size_t i = 0; i < frames; ++i)
            corrected.remaining[i * mChannels + channel] = values[i];
    }
}

uint8_t CorrectionLayers::scale(size_t segment, size_t layer, size_t channel) const
{
    const Segment& found = mSegments[segment];
    return layer < found.chosen ? found.corrected[found.chosen].scales[layer][channel] : uint8_t(0);
}

void CorrectionLayers::store(bank::Sound* sound) const
{
    std::vector<float> remaining;
    for (const Segment& segment : mSegments)
        remaining.insert(remaining.end(), segment.corrected[0].remaining.begin(), segment.corrected[0].remaining.end());
    for (size_t layer = 0; layer < kMaximumLayers; ++layer) {
        const auto wanted = [layer](const Segment& segment) {
            return segment.chosen > layer;
        };
        const auto from = size_t(std::find_if(mSegments.begin(), mSegments.end(), wanted) - mSegments.begin());
        const auto end = size_t(std::find_if(mSegments.rbegin(), mSegments.rend(), wanted).base() - mSegments.begin());
        if (from >= end)
            return;
        std::vector<uint8_t> scales;
        for (size_t channel = 0; channel < mChannels; ++channel) {
            for (size_t segment = from; segment < end; ++segment)
                scales.push_back(scale(segment, layer, channel));
        }
        const size_t offset = from * kSegment * mChannels;
        const std::span<float> part = std::span(remaining).subspan(
            offset, std::min((end - from) * kSegment * mChannels, remaining.size() - offset));
        sound->corrections.push_back(
            bank::makeCorrection(uint64_t(first(from)), int(mChannels), part, std::move(scales)));
        const std::vector<float> corrected = bank::expandCorrection(sound->corrections.back(), int(mChannels));
        std::transform(part.begin(), part.end(), corrected.begin(), part.begin(), std::minus<float>());
    }
}

} // namespace builder
