// Corrections of decoded samples around the seam of a loop.
//
// A lossy codec's error is nowhere the same: it rises and falls from block to block, and where a loop jumps two blocks
// meet that were never neighbours. So the error of the samples on both sides of the seam is stored beside the encoded
// data in two bits a sample, and the decoder takes off about two thirds of it. What then remains can be corrected
// again.
//
// Every segment of kCorrectionSegment frames of a channel has a scale, such as the root mean square of the error, and
// every sample a code of two bits, for the four levels by which a normal distribution is told best (Max 1960, table I).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace bank {

inline constexpr uint32_t kCorrectionSegment = 64;

// Of one correction. A few times what is of use around a seam, and little enough for every sound of a bank.
inline constexpr uint32_t kMostCorrectedFrames = 1024;

// What is to be added to the decoded frames first to first + frames - 1.
struct Correction
{
    uint64_t first = 0; // frame of the sound
    uint32_t frames = 0; // 1 to kMostCorrectedFrames
    std::vector<uint8_t> scales; // correctionScales() for each channel, channel after channel; see correctionScale()
    std::vector<uint8_t> codes; // correctionCodeBytes() for each channel, four samples a byte, the lowest bits first

    bool operator==(const Correction&) const = default;
};

[[nodiscard]] size_t correctionScales(uint32_t frames); // of one channel
[[nodiscard]] size_t correctionCodeBytes(uint32_t frames); // of one channel

// The root mean square that a scale stands for: none for 0, otherwise 2^((scale - 256) / 8) of full scale.
[[nodiscard]] float correctionScale(uint8_t scale);

// The scale that is nearest to a root mean square.
[[nodiscard]] uint8_t nearestCorrectionScale(float rootMeanSquare);

// Of the four values that a sample can be corrected by, the one that comes closest to what is missing. unit is above 0.
[[nodiscard]] float nearestCorrection(float missing, float unit);

// The correction with these scales that comes closest to what is missing: source minus decoded, interleaved.
[[nodiscard]] Correction makeCorrection(uint64_t first, int channels, std::span<const float> missing,
                                        std::vector<uint8_t> scales);

// The interleaved values to be added.
[[nodiscard]] std::vector<float> expandCorrection(const Correction& correction, int channels);

} // namespace bank
