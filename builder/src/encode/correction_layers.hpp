// SPDX-License-Identifier: MIT
// Corrects a range of samples in several layers, each of which corrects what the previous ones have left.
#pragma once

#include "bank/sound.hpp"

#include <array>
#include <span>
#include <vector>

namespace builder {

// The seams of a sound are at most two ranges, so it has at most eight corrections.
inline constexpr size_t kMaximumLayers = 4;

// The segments of one range. choose() sets the number of layers of each; initially there are none.
class CorrectionLayers
{
public:
    // missing: source minus decoded samples, interleaved, starting at the frame `first` of the sound.
    CorrectionLayers(int64_t first, size_t channels, std::span<const float> missing);

    [[nodiscard]] size_t segments() const { return mSegments.size(); }
    [[nodiscard]] int64_t first(size_t segment) const; // frame of the sound

    // The difference that remains in a segment after a number of layers, interleaved.
    [[nodiscard]] std::span<const float> remaining(size_t segment, size_t layers);

    void choose(size_t segment, size_t layers) { mSegments[segment].chosen = layers; }

    // Adds the corrections to sound.
    void store(bank::Sound* sound) const;

private:
    // A segment corrected with a certain number of layers. The scales of all layers depend on that number.
    struct Corrected
    {
        std::vector<float> remaining; // empty until it is requested
        std::array<std::vector<uint8_t>, kMaximumLayers> scales; // by channel
    };
    struct Segment
    {
        size_t chosen = 0;
        std::array<Corrected, kMaximumLayers + 1> corrected; // by number of layers
    };

    void correct(Segment* segment, size_t layers) const;
    [[nodiscard]] uint8_t scale(size_t segment, size_t layer, size_t channel) const;

    int64_t mFirst;
    size_t mChannels;
    std::vector<Segment> mSegments;
};

} // namespace builder
