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

// The squared error before the seam, after it, and in the whole sound.
struct SeamError
{
    std::array<double, 3> sums{};

    void add(const SeamError& other, double sign)
    {
        for (size_t i = 0; i < sums.size(); ++i)
            sums[i] += sign * other.sums[i];
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
        mTotal.sums[2] = squaredError;
        for (Segment& segment : mSegments) {
            const SeamError first = remainingError(segment, 0);
            mTotal.sums[0] += first.sums[0];
            mTotal.sums[1] += first.sums[1];
            for (size_t layer = 0; layer < minimumLayers(); ++layer)
                raise(&segment);
        }
        std::vector<Segment> best = mSegments;
        double least = worst(mTotal);
        while (least > kGoodEnough) {
            Segment* const next = mostHelpful();
            if (!next)
                break;
            raise(next);
            if (const double now = worst(mTotal); now < least) {
                least = now;
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
        const std::span<const float> left = segment.seam->left(segment.index, layers);
        const int64_t first = segment.seam->first(segment.index);
        for (size_t i = 0; i < left.size(); ++i) {
            const int64_t frame = first + int64_t(i / mChannels);
            const double square = double(left[i]) * left[i];
            sum.sums[0] += square * (frame < mEnd && frame >= mEnd - kSeamFrames);
            sum.sums[1] += square * double(timesAfter(frame));
            sum.sums[2] += square;
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

    void raise(Segment* segment)
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
            if (const double now = worst(total); now < least) {
                least = now;
                found = &segment;
            }
        }
        return found;
    }

    // Root mean square of the worse side, relative to that of the whole sound.
    double worst(const SeamError& total) const
    {
        const double sound = std::max(total.sums[2] / double(mLength * int64_t(mChannels)), kInaudible);
        const double before = total.sums[0] / double(std::min(mEnd, kSeamFrames) * int64_t(mChannels));
        const double after = total.sums[1] / double(kSeamFrames * int64_t(mChannels));
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
        const auto at = size_t(position & (kRecentFrames - 1));
        const size_t count = std::min(size_t(kRecentFrames) - at, frames.size() / mChannels);
        std::copy_n(frames.begin(), count * mChannels, mRecent.begin() + ptrdiff_t(at * mChannels));
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
        for (Range& stretch : mRanges) {
            if (frame >= stretch.first && frame < stretch.end)
                std::transform(wanted, wanted + mChannels, got,
                               stretch.missing.begin() + ptrdiff_t(size_t(frame - stretch.first) * mChannels),
                               std::minus<float>());
        }
    }
}

bool SeamRecorder::wants(int64_t first, int64_t end) const
{
    return std::any_of(mRanges.begin(), mRanges.end(),
                       [&](const Range& stretch) { return first < stretch.end && end > stretch.first; });
}

std::vector<float> SeamRecorder::missing(int64_t first, int64_t end) const
{
    const auto holds = [&](const Range& stretch) {
        return stretch.first <= first && end <= stretch.end;
    };
    const Range& stretch = *std::find_if(mRanges.begin(), mRanges.end(), holds);
    const auto begin = stretch.missing.begin() + ptrdiff_t(size_t(first - stretch.first) * mChannels);
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
