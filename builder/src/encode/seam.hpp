// SPDX-License-Identifier: MIT
// Measures and corrects the errors of a lossy codec on both sides of a loop's seam.
//
// During encoding, SeamRecorder receives every frame that goes into the encoder, and the decoded frames of some
// packets, including those around the seam. The result is a set of corrections, see bank/correction.hpp. The aim is a
// seam that is no worse than the rest of the sound. In a short sound the whole error is known, and only as much is
// corrected as the aim requires. In longer sounds only the error of some packets is known, which is a lower bound of
// the sound's error. There the seam is corrected twice, which leaves about a ninth of its error. It is corrected more
// often if that still exceeds the lower bound.
#pragma once

#include "encode/encoder.hpp"

#include <span>
#include <vector>

namespace builder {

// Number of frames that are corrected on each side of a seam.
inline constexpr int64_t kSeamFrames = 256;

// The largest number of frames that a codec's packets lag behind its input.
inline constexpr int64_t kRecentFrames = 32'768;

class SeamRecorder
{
public:
    // Does nothing for a sound that doesn't loop. beginning: number of frames at the start of the sound that are
    // decoded as well, for a better estimate of the sound's error. Most sounds for which this matters are loudest
    // there.
    explicit SeamRecorder(const PreparedFacts& facts, int64_t beginning = 0);

    // Receives interleaved frames that go into the encoder, starting at position. Frames outside the sound are ignored.
    void encoded(int64_t position, std::span<const float> frames);

    // Whether any of the frames first to end - 1 must be passed to decoded().
    [[nodiscard]] bool wants(int64_t first, int64_t end) const;

    // Receives decoded interleaved frames, starting at position. No frame may be passed twice, or more than
    // kRecentFrames after it was encoded.
    void decoded(int64_t position, std::span<const float> frames);

    // Stores the corrections in sound.
    void finish(bank::Sound* sound) const;

private:
    // A range of frames whose errors are recorded.
    struct Range
    {
        int64_t first = 0;
        int64_t end = 0;
        std::vector<float> missing;
    };

    void addRange(int64_t first, int64_t end);
    std::vector<float> missing(int64_t first, int64_t end) const;

    size_t mChannels;
    int64_t mLength;
    base::Loop mLoop;
    std::vector<std::pair<int64_t, int64_t>> mSeams; // to be corrected: first frame and end, in whole segments
    std::vector<Range> mRanges;
    std::vector<float> mRecent; // the last frames that went into the encoder, a ring of kRecentFrames
    double mSquaredError = 0; // of all frames of the sound that were decoded
};

} // namespace builder
