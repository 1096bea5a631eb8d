// SPDX-License-Identifier: MIT
// Corrections of decoded samples around the seam of a loop.
//
// The error of a lossy codec varies from block to block. Where a loop jumps, two blocks meet that weren't neighbours in
// the source, and their errors don't match. So the error of the samples on both sides of the seam is stored in the
// bank, in two bits per sample, and the decoder removes about two thirds of it. A second correction can reduce the
// remaining error further.
//
// Each segment of kCorrectionSegment frames of a channel has a scale, such as the root mean square of the error. Each
// sample has a code of two bits, which selects one of four levels: those of the optimum quantiser for a normal
// distribution (Max 1960, table I).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace bank {

inline constexpr uint32_t kCorrectionSegment = 64;

// The maximum length of one correction: a few times what is useful around a seam, and small enough for every sound of a
// bank to have one.
inline constexpr uint32_t kMaximumCorrectedFrames = 1024;

// What the decoder adds to the decoded frames first to first + frames - 1.
struct Correction
{
    uint64_t first = 0; // frame of the sound
    uint32_t frames = 0; // 1 to kMaximumCorrectedFrames
    std::vector<uint8_t> scales; // correctionScales() per channel, channel by channel; see correctionScale()
    std::vector<uint8_t> codes; // correctionCodeBytes() per channel, four samples per byte, lowest bits first

    bool operator==(const Correction&) const = default;
};

[[nodiscard]] size_t correctionScales(uint32_t frames); // of one channel
[[nodiscard]] size_t correctionCodeBytes(uint32_t frames); // of one channel

// The root mean square that a scale stands for: 0 for scale 0, otherwise 2^((scale - 256) / 8) of full scale.
[[nodiscard]] float correctionScale(uint8_t scale);

// The scale nearest to a root mean square.
[[nodiscard]] uint8_t nearestCorrectionScale(float rootMeanSquare);

// Returns the one of the four possible corrections of a sample that is nearest to missing. unit, the root mean square
// of the segment's scale, is above 0.
[[nodiscard]] float nearestCorrection(float missing, float unit);

// The correction with these scales that is nearest to missing, which is source minus decoded, interleaved.
[[nodiscard]] Correction makeCorrection(uint64_t first, int channels, std::span<const float> missing,
                                        std::vector<uint8_t> scales);

// The interleaved values to add.
[[nodiscard]] std::vector<float> expandCorrection(const Correction& correction, int channels);

} // namespace bank
