// SPDX-License-Identifier: MIT
// Encodes one channel of one superblock of KADPCM with a given step: the part of the encoder that writes bits.
#pragma once

#include "kadpcm/analysis.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace bank::kadpcm {

// How the block is going to be encoded, and what is to be expected of it.
struct Plan
{
    Fit fit;
    int step = 0;
    int order = 0;
    double energy = 0; // of what prediction leaves of the channel, whatever the channel before tells of it
    double meanCode = 0; // of the codes' magnitudes
};

// largestStep is taken unless it is too coarse for what prediction leaves of these samples. energyOfPrevious:
// Plan::energy of the channel before. analysis isn't of constant samples.
[[nodiscard]] Plan planBlock(const Analysis& analysis, int frames, int largestStep, double energyOfPrevious);

// Size of the block in bits, about.
[[nodiscard]] double expectedBits(const Plan& plan, int frames);

// Appends the block of samples to bytes and puts what a decoder makes of it into decoded, which has the same length.
// previous: the channel before as a decoder has it, empty for the first channel. plan isn't looked at for constant
// samples.
void encodeBlock(std::span<const int16_t> samples, std::span<const int16_t> previous, const Analysis& analysis,
                 const Plan& plan, std::span<int16_t> decoded, std::vector<uint8_t>& bytes);

// Steps that double the step size.
inline constexpr int kStepsPerOctave = 16;

} // namespace bank::kadpcm
