// Finds out what a lossy codec does to the samples on both sides of a loop's seam, so that it can be corrected.
//
// While a sound is being encoded it is told of every frame that goes in, and is handed what the packets around the seam
// decode to; see bank/correction.hpp for what comes of it. The aim is a seam that is no worse than the rest of the
// sound. Of a short sound everything is known, and just as much is corrected as that takes; of others, the seam is
// corrected twice, which leaves about a ninth of its error.
#pragma once

#include "encoder.hpp"

#include <span>
#include <vector>

namespace tarnok {

// Frames on each side of a seam that are corrected.
inline constexpr int64_t kSeamFrames = 256;

class SeamRecorder
{
public:
    // Has nothing to do for a sound that doesn't loop.
    explicit SeamRecorder(const PreparedFacts& facts);

    // Interleaved frames that go into the encoder, the first of them at position; those outside the sound are ignored.
    void encoded(int64_t position, std::span<const float> frames);

    // Whether any of the frames first to end - 1 is to be handed to decoded().
    [[nodiscard]] bool wants(int64_t first, int64_t end) const;

    // Interleaved frames as they are decoded, the first of them at position.
    void decoded(int64_t position, std::span<const float> frames);

    // Stores the corrections in sound.
    void finish(bank::Sound* sound) const;

private:
    // Frames that are recorded: what they were, and what they became.
    struct Stretch
    {
        int64_t first = 0;
        int64_t end = 0;
        std::vector<float> encoded;
        std::vector<float> decoded;
    };

    void addStretch(int64_t first, int64_t end);
    void keep(int64_t position, std::span<const float> frames, std::vector<float> Stretch::*kept);
    std::vector<float> missing(int64_t first, int64_t end) const;

    size_t mChannels;
    int64_t mLength;
    bank::Loop mLoop;
    std::vector<std::pair<int64_t, int64_t>> mSeams; // to be corrected: first frame and end, in stretches of segments
    std::vector<Stretch> mStretches;
};

} // namespace tarnok
