// Finds out what a lossy codec does to the samples on both sides of a loop's seam, so that it can be corrected.
//
// While a sound is being encoded it is told of every frame that goes in, and is handed what some of the packets decode
// to, those around the seam among them; see bank/correction.hpp for what comes of it. The aim is a seam that is no
// worse than the rest of the sound. Of a short sound everything is known, and just as much is corrected as that takes.
// Of others the seam is corrected twice, which leaves about a ninth of its error; and further where that is still more
// than the sound's own, of which the error of the packets that were decoded is the least that it can be.
#pragma once

#include "encode/encoder.hpp"

#include <span>
#include <vector>

namespace tarnok {

// Frames on each side of a seam that are corrected.
inline constexpr int64_t kSeamFrames = 256;

// How far the packets of a codec may lag behind what it is given.
inline constexpr int64_t kRecentFrames = 32'768;

class SeamRecorder
{
public:
    // Has nothing to do for a sound that doesn't loop. beginning: frames at the start of the sound that are to be
    // decoded as well, so that more is known of its error; of most sounds that matter here the start is the loudest
    // part.
    explicit SeamRecorder(const PreparedFacts& facts, int64_t beginning = 0);

    // Interleaved frames that go into the encoder, the first of them at position; those outside the sound are ignored.
    void encoded(int64_t position, std::span<const float> frames);

    // Whether any of the frames first to end - 1 is to be handed to decoded().
    [[nodiscard]] bool wants(int64_t first, int64_t end) const;

    // Interleaved frames as they are decoded, the first of them at position; none of them twice, and not more than
    // kRecentFrames behind what has gone in.
    void decoded(int64_t position, std::span<const float> frames);

    // Stores the corrections in sound.
    void finish(bank::Sound* sound) const;

private:
    // Frames that are recorded: what is missing from them once they are decoded.
    struct Stretch
    {
        int64_t first = 0;
        int64_t end = 0;
        std::vector<float> missing;
    };

    void addStretch(int64_t first, int64_t end);
    std::vector<float> missing(int64_t first, int64_t end) const;

    size_t mChannels;
    int64_t mLength;
    base::Loop mLoop;
    std::vector<std::pair<int64_t, int64_t>> mSeams; // to be corrected: first frame and end, in stretches of segments
    std::vector<Stretch> mStretches;
    std::vector<float> mRecent; // frames that went in, in a ring of kRecentFrames
    double mSquaredError = 0; // of all frames of the sound that have been decoded
};

} // namespace tarnok
