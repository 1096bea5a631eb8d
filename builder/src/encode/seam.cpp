// SPDX-License-Identifier: MIT
#include "encode/seam.hpp"

#include "encode/correction_layers.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>

namespace builder {

namespace {

// For a sound shorter than this the whole error is known, and is corrected where it stands out.
constexpr int64_t kShortFrames = 4096;

constexpr size_t kLayers = 2; // minimum for the seams of longer sounds

// Squared errors.
struct SeamError
{
    double before = 0; // the seam
    double after = 0; // the seam
    double sound = 0; // the whole sound

    void add(const SeamError& other, double sign)
    {
        before += sign * other.before;
        after += sign * other.after;
        sound += sign * other.sound;
    }
};

// Decides how often each segment is corrected, so that neither side of the seam is much worse than the sound.
class SeamBalance
{
public:
    SeamBalance(int64_t length, const base::Loop& loop, size_t channels)
        : mLength(length)
        , mStart(int64_t(loop.start))
        , mEnd(int64_t(loop.end))
        , mChannels(channels)
    { }

    // squaredError: of the whole sound, or a lower bound of it.
    void balance(std::vector<CorrectionLayers>* seams, double squaredError)
    {
        collect(seams);
        mTotal.sound = squaredError;
        for (Segment& segment : mSegments) {
            const SeamError first = remainingError(segment, 0);
            mTotal.before += first.before;
            mTotal.after += first.after;
            for (size_t layer = 0; layer < minimumLayers(); ++layer)
                addLayer(&segment);
        }
        std::vector<Segment> best = mSegments;
        double least = worseSide(mTotal);
        while (least > kGoodEnough) {
            Segment* const next = mostHelpful();
            if (!next)
                break;
            addLayer(next);
            if (const double error = worseSide(mTotal); error < least) {
                least = error;
                best = mSegments;
            }
        }
        for (const Segment& segment : best)
            segment.seam->choose(segment.index, segment.layers);
    }

private:
    static constexpr double kGoodEnough = 1.04; // times the error of the sound
    static constexpr double kInaudible = 1e-9; // mean square of an inaudible error: -90 dB of full scale

    struct Segment
    {
        CorrectionLayers* seam = nullptr;
        size_t index = 0;
        size_t layers = 0;
    };

    // If nearly the whole sound is close to its seam, only differences between the errors matter, so this is 0.
    size_t minimumLayers() const { return mLength >= kShortFrames ? kLayers : mLength > 2 * kSeamFrames ? 1 : 0; }

    // The error that remains in a segment after a number of layers.
    SeamError remainingError(const Segment& segment, size_t layers) const
    {
        SeamError sum;
        const std::span<const float> remaining = segment.seam->remaining(segment.index, layers);
        const int64_t first = segment.seam->first(segment.index);
        for (size_t i = 0; i < remaining.size(); ++i) {
            const int64_t frame = first + int64_t(i / mChannels);
            const double square = double(remaining[i]) * remaining[i];
            sum.before += square * (frame < mEnd && frame >= mEnd - kSeamFrames);
            sum.after += square * double(timesAfter(frame));
            sum.sound += square;
        }
        return sum;
    }

    // How often a frame of the loop is heard within kSeamFrames after the seam.
    int64_t timesAfter(int64_t frame) const
    {
        const int64_t into = frame - mStart;
        return frame < mStart || frame >= mEnd || into >= kSeamFrames
            ? 0
            : (kSeamFrames - into + mEnd - mStart - 1) / (mEnd - mStart);
    }

    void collect(std::vector<CorrectionLayers>* seams)
    {
        for (CorrectionLayers& seam : *seams) {
            for (size_t index = 0; index < seam.segments(); ++index)
                mSegments.push_back({&seam, index, 0});
        }
    }

    void addLayer(Segment* segment)
    {
        mTotal.add(remainingError(*segment, segment->layers), -1);
        mTotal.add(remainingError(*segment, ++segment->layers), 1);
    }

    Segment* mostHelpful()
    {
        Segment* found = nullptr;
        double least = std::numeric_limits<double>::max();
        for (Segment& segment : mSegments) {
            if (segment.layers == kMaximumLayers)
                continue;
            SeamError total = mTotal;
            total.add(remainingError(segment, segment.layers), -1);
            total.add(remainingError(segment, segment.layers + 1), 1);
            if (const double error = worseSide(total); error < least) {
                least = error;
                found = &segment;
            }
        }
        return found;
    }

    // Root mean square of the worse side, relative to that of the whole sound.
    double worseSide(const SeamError& total) const
    {
        const double sound = std::max(total.sound / double(mLength * int64_t(mChannels)), kInaudible);
        const double before = total.before / double(std::min(mEnd, kSeamFrames) * int64_t(mChannels));
        const double after = total.after / double(kSeamFrames * int64_t(mChannels));
        return std::sqrt(std::max({before, after, 0.0}) / sound);
    }

    int64_t mLength;
    int64_t mStart;
    int64_t mEnd;
    size_t mChannels;
    SeamError mTotal;
    std::vector<Segment> mSegments;
};

} // namespace

SeamRecorder::SeamRecorder(const PreparedFacts& facts, int64_t beginning)
    : mChannels(size_t(facts.channels))
    , mLength(int64_t(facts.sampleCount))
{
    if (!facts.loop)
        return;
    mLoop = *facts.loop;
    mRecent.resize(size_t(kRecentFrames) * mChannels);
    const auto start = int64_t(mLoop.start);
    const auto end = int64_t(mLoop.end);
    const int64_t before = std::max<int64_t>(0, end - kSeamFrames);
    if (before <= start + kSeamFrames)
        mSeams = {{std::min(before, start), end}};
    else
        mSeams = {{start, start + kSeamFrames}, {before, end}};
    addRange(0, mLength < kShortFrames ? mLength : std::min(mLength, beginning));
    for (const auto& [first, last] : mSeams)
        addRange(first, last);
}

void SeamRecorder::addRange(int64_t first, int64_t end)
{
    mRanges.push_back({first, end, std::vector<float>(size_t(end - first) * mChannels)});
}

void SeamRecorder::encoded(int64_t position, std::span<const float> frames)
{
    if (mRanges.empty())
        return;
    // The ring wraps, so this may take several pieces.
    while (!frames.empty()) {
        const auto offset = size_t(position & (kRecentFrames - 1));
        const size_t count = std::min(size_t(kRecentFrames) - offset, frames.size() / mChannels);
        std::copy_n(frames.begin(), count * mChannels, mRecent.begin() + ptrdiff_t(offset * mChannels));
        frames = frames.subspan(count * mChannels);
        position += int64_t(count);
    }
}

void SeamRecorder::decoded(int64_t position, std::span<const float> frames)
{
    if (mRanges.empty())
        return;
    const int64_t from = std::max<int64_t>(position, 0);
    const int64_t end = std::min(position + int64_t(frames.size() / mChannels), mLength);
    for (int64_t frame = from; frame < end; ++frame) {
        const float* const wanted = mRecent.data() + size_t(frame & (kRecentFrames - 1)) * mChannels;
        const float* const got = frames.data() + size_t(frame - position) * mChannels;
        for (size_t channel = 0; channel < mChannels; ++channel)
            mSquaredError += (double(wanted[channel]) - got[channel]) * (double(wanted[channel]) - got[channel]);
        for (Range& range : mRanges) {
            if (frame >= range.first && frame < range.end)
                std::transform(wanted, wanted + mChannels, got,
                               range.missing.begin() + ptrdiff_t(size_t(frame - range.first) * mChannels),
                               std::minus<float>());
        }
    }
}

bool SeamRecorder::wants(int64_t first, int64_t end) const
{
    return std::any_of(mRanges.begin(), mRanges.end(),
                       [&](const Range& range) { return first < range.end && end > range.first; });
}

std::vector<float> SeamRecorder::missing(int64_t first, int64_t end) const
{
    const auto holds = [&](const Range& range) {
        return range.first <= first && end <= range.end;
    };
    const Range& range = *std::find_if(mRanges.begin(), mRanges.end(), holds);
    const auto begin = range.missing.begin() + ptrdiff_t(size_t(first - range.first) * mChannels);
    return {begin, begin + ptrdiff_t(size_t(end - first) * mChannels)};
}

void SeamRecorder::finish(bank::Sound* sound) const
{
    std::vector<CorrectionLayers> seams;
    for (const auto& [first, end] : mSeams)
        seams.emplace_back(first, mChannels, missing(first, end));
    if (!seams.empty())
        SeamBalance(mLength, mLoop, mChannels).balance(&seams, mSquaredError);
    for (const CorrectionLayers& seam : seams)
        seam.store(sound);
}

} // namespace builder
