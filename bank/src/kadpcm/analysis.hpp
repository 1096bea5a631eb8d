// SPDX-License-Identifier: MIT
// How the KADPCM encoder analyses samples before it encodes them. The arithmetic uses double precision in a fixed order
// and no mathematical library, so that every processor gets the same results.
#pragma once

#include "bank/kadpcm.hpp"

#include <array>
#include <span>

namespace bank::kadpcm {

// What linear prediction needs to know about one channel of one superblock.
struct Analysis
{
    // The autocorrelation of the samples after coupling has been subtracted, the sum of squares first. It is scaled as
    // if it covered only the superblock's own samples.
    std::array<double, kMaximumOrder + 1> correlation{};
    int coupling = 0; // to the previous channel, in eighths, -16 to 15
    bool constant = false; // all samples are equal; the other members aren't set
};

// samples: those of the channel. The superblock consists of frames of them from begin on; the samples around it allow a
// smooth window. previous: the samples of the previous channel, as many; empty for the first channel.
[[nodiscard]] Analysis analyse(std::span<const int16_t> samples, std::span<const int16_t> previous, size_t begin,
                               int frames);

// The predictors of all orders up to a maximum, computed by Levinson's recursion.
struct Fit
{
    std::array<double, kMaximumOrder + 1> reflection; // by number, from 1 on
    std::array<double, kMaximumOrder + 1> energy; // by order: the energy that the prediction leaves, noise included
};

// noise: energy of the white noise in the decoded samples that the predictor gets.
[[nodiscard]] Fit fitPredictors(const Analysis& analysis, double noise, int highestOrder);

// The index at which the reflection coefficient of that number is nearest to value.
[[nodiscard]] int nearestCoefficient(int number, double value);

// Binary logarithm with an error below 0.001; -1074 for 0 and less.
[[nodiscard]] double approximateLog2(double value);

} // namespace bank::kadpcm
