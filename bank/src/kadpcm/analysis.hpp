// What the encoder of KADPCM finds out about samples before it encodes them. Arithmetic is in double precision in a
// fixed order and without the mathematical library, so that every processor finds the same.
#pragma once

#include "bank/kadpcm.hpp"

#include <array>
#include <span>

namespace bank::kadpcm {

// How one channel of one superblock looks to linear prediction.
struct Analysis
{
    // Of the samples, or of what coupling leaves of them; scaled as if of the superblock's samples alone, the sum of
    // squares first.
    std::array<double, kMaximumOrder + 1> correlation{};
    int coupling = 0; // to the channel before, in eighths, -16 to 15
    bool constant = false; // all samples are equal; the rest isn't filled in
};

// samples: the channel's, of which frames from begin on are the superblock; those around it lend the analysis a smooth
// window. previous: the channel before, of the same length, empty for the first channel.
[[nodiscard]] Analysis analyse(std::span<const int16_t> samples, std::span<const int16_t> previous, size_t begin,
                               int frames);

// Predictors of all orders up to a highest one, by Levinson's recursion.
struct Fit
{
    std::array<double, kMaximumOrder + 1> reflection; // by number, from 1 on
    std::array<double, kMaximumOrder + 1> energy; // by order: what the prediction leaves, noise included
};

// noise: energy of the white noise in the decoded samples from which the predictor will have to predict.
[[nodiscard]] Fit fitPredictors(const Analysis& analysis, double noise, int highestOrder);

// Index of the reflection coefficient of that number nearest to value.
[[nodiscard]] int nearestCoefficient(int number, double value);

// Binary logarithm, within 0.001; -1074 for 0 and less.
[[nodiscard]] double approximateLog2(double value);

} // namespace bank::kadpcm
