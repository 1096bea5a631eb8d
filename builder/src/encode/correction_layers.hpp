// Corrects a stretch of samples again and again, each time what the layers before have left.
#pragma once

#include "bank/sound.hpp"

#include <array>
#include <span>
#include <vector>

namespace tarnok {

inline constexpr size_t kMaximumLayers = 4; // the seams of a sound are two stretches at most, its corrections eight

// The segments of one stretch. Each has as many layers as are chosen for it, at first none.
class CorrectionLayers
{
public:
    // missing: source minus decoded, interleaved, from that frame of the sound on.
    CorrectionLayers(int64_t first, size_t channels, std::span<const float> missing);

    [[nodiscard]] size_t segments() const { return mSegments.size(); }
    [[nodiscard]] int64_t first(size_t segment) const; // frame of the sound

    // What is missing in a segment after so many layers, interleaved.
    [[nodiscard]] std::span<const float> left(size_t segment, size_t layers);

    void choose(size_t segment, size_t layers) { mSegments[segment].chosen = layers; }

    // Adds the corrections to sound.
    void store(bank::Sound* sound) const;

private:
    // A segment that is corrected a number of times. The scales of all layers depend on how many there are.
    struct Corrected
    {
        std::vector<float> left; // empty until it is asked for
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

} // namespace tarnok
