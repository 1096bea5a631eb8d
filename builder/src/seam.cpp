#include "seam.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>

namespace tarnok {

namespace {

// Of a sound shorter than this the error is known as a whole, and where it stands out is corrected.
constexpr int64_t kShortFrames = 4096;

constexpr size_t kLayers = 2; // over the seams of longer sounds
constexpr size_t kMostLayers = 4; // the seams of a sound are two stretches at most, its corrections eight

constexpr auto kSegment = int64_t(bank::kCorrectionSegment);

// A stretch at the seam, and what is missing there once it has been corrected so many times.
struct Seam
{
    int64_t first = 0;
    std::array<std::vector<float>, kMostLayers + 1> missing;
    std::vector<size_t> layers; // of each segment, how often it is to be corrected
};

Seam correctEverywhere(int64_t first, size_t channels, std::vector<float> missing)
{
    Seam seam;
    seam.first = first;
    seam.layers.resize(bank::correctionScales(uint32_t(missing.size() / channels)), kLayers);
    seam.missing[0] = std::move(missing);
    for (size_t layer = 0; layer < kMostLayers; ++layer) {
        const std::vector<float>& before = seam.missing[layer];
        const bank::Correction correction = bank::makeCorrection(uint64_t(first), int(channels), before);
        const std::vector<float> corrected = bank::expandCorrection(correction, int(channels));
        seam.missing[layer + 1].resize(before.size());
        std::transform(before.begin(), before.end(), corrected.begin(), seam.missing[layer + 1].begin(),
                       std::minus<float>());
    }
    return seam;
}

// The squared error that a listener hears in three places: before the seam, behind it, and in the whole sound.
struct Heard
{
    std::array<double, 3> sums{};

    void add(const Heard& other, double sign)
    {
        for (size_t i = 0; i < sums.size(); ++i)
            sums[i] += sign * other.sums[i];
    }
};

// Decides how often each segment is corrected, so that neither side of the seam is much worse than the sound.
class SeamBalance
{
public:
    SeamBalance(int64_t length, const bank::Loop& loop, size_t channels)
        : mLength(length)
        , mStart(int64_t(loop.start))
        , mEnd(int64_t(loop.end))
        , mChannels(channels)
    { }

    void balance(std::vector<Seam>* seams, std::span<const float> missing)
    {
        mTotal = heard(0, missing);
        collect(*seams);
        // Where nearly all of the sound is at its seam, only the differences matter.
        if (mLength > 2 * kSeamFrames) {
            for (Segment& segment : mSegments)
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
            (*seams)[segment.seam].layers[segment.index] = segment.layers;
    }

private:
    static constexpr double kGoodEnough = 1.04; // times the error of the sound

    struct Segment
    {
        size_t seam = 0;
        size_t index = 0;
        size_t layers = 0;
        std::array<Heard, kMostLayers + 1> heard; // with so many layers
    };

    Heard heard(int64_t first, std::span<const float> missing) const
    {
        Heard sum;
        for (size_t i = 0; i < missing.size(); ++i) {
            const int64_t frame = first + int64_t(i / mChannels);
            const double square = double(missing[i]) * missing[i];
            sum.sums[0] += square * (frame < mEnd && frame >= mEnd - kSeamFrames);
            sum.sums[1] += square * double(timesBehind(frame));
            sum.sums[2] += square;
        }
        return sum;
    }

    // How often a frame of the loop is heard within kSeamFrames behind the seam.
    int64_t timesBehind(int64_t frame) const
    {
        const int64_t into = frame - mStart;
        return frame < mStart || frame >= mEnd || into >= kSeamFrames
            ? 0
            : (kSeamFrames - into + mEnd - mStart - 1) / (mEnd - mStart);
    }

    void collect(const std::vector<Seam>& seams)
    {
        for (size_t seam = 0; seam < seams.size(); ++seam) {
            for (size_t index = 0; index < seams[seam].layers.size(); ++index) {
                Segment segment{seam, index, 0, {}};
                const int64_t first = int64_t(index) * kSegment;
                for (size_t layers = 0; layers <= kMostLayers; ++layers) {
                    const std::span<const float> missing = seams[seam].missing[layers];
                    const size_t at = size_t(first) * mChannels;
                    const size_t count = std::min(size_t(kSegment) * mChannels, missing.size() - at);
                    segment.heard[layers] = heard(seams[seam].first + first, missing.subspan(at, count));
                }
                mSegments.push_back(segment);
            }
        }
    }

    void raise(Segment* segment)
    {
        mTotal.add(segment->heard[segment->layers], -1);
        mTotal.add(segment->heard[++segment->layers], 1);
    }

    Segment* mostHelpful()
    {
        Segment* found = nullptr;
        double least = std::numeric_limits<double>::max();
        for (Segment& segment : mSegments) {
            if (segment.layers == kMostLayers)
                continue;
            Heard total = mTotal;
            total.add(segment.heard[segment.layers], -1);
            total.add(segment.heard[segment.layers + 1], 1);
            if (const double now = worst(total); now < least) {
                least = now;
                found = &segment;
            }
        }
        return found;
    }

    // Root mean square of the worse side, times that of the sound.
    double worst(const Heard& total) const
    {
        const double sound = total.sums[2] / double(mLength);
        const double before = total.sums[0] / double(std::min(mEnd, kSeamFrames));
        const double behind = total.sums[1] / double(kSeamFrames);
        return sound > 0 ? std::sqrt(std::max({before, behind, 0.0}) / sound) : 0;
    }

    int64_t mLength;
    int64_t mStart;
    int64_t mEnd;
    size_t mChannels;
    Heard mTotal;
    std::vector<Segment> mSegments;
};

// The corrections of one layer: what lies in other segments is left alone.
void storeLayer(const Seam& seam, size_t layer, size_t channels, bank::Sound* sound)
{
    const auto wanted = [layer](size_t layers) {
        return layers > layer;
    };
    const auto first = std::find_if(seam.layers.begin(), seam.layers.end(), wanted);
    if (first == seam.layers.end())
        return;
    const auto last = std::find_if(seam.layers.rbegin(), seam.layers.rend(), wanted).base();
    const size_t segmentSamples = size_t(kSegment) * channels;
    std::vector<float> missing = seam.missing[layer];
    for (size_t segment = 0; segment < seam.layers.size(); ++segment) {
        const size_t end = std::min(missing.size(), (segment + 1) * segmentSamples);
        if (!wanted(seam.layers[segment]))
            std::fill(missing.begin() + ptrdiff_t(segment * segmentSamples), missing.begin() + ptrdiff_t(end), 0.0f);
    }
    const size_t from = size_t(first - seam.layers.begin());
    const size_t end = std::min(missing.size(), size_t(last - seam.layers.begin()) * segmentSamples);
    sound->corrections.push_back(
        bank::makeCorrection(uint64_t(seam.first + int64_t(from) * kSegment), int(channels),
                             std::span(missing).subspan(from * segmentSamples, end - from * segmentSamples)));
}

} // namespace

SeamRecorder::SeamRecorder(const PreparedFacts& facts)
    : mChannels(size_t(facts.channels))
    , mLength(int64_t(facts.sampleCount))
{
    if (!facts.loop)
        return;
    mLoop = *facts.loop;
    const auto start = int64_t(mLoop.start);
    const auto end = int64_t(mLoop.end);
    const int64_t before = std::max<int64_t>(0, end - kSeamFrames);
    if (before <= start + kSeamFrames)
        mSeams = {{std::min(before, start), end}};
    else
        mSeams = {{start, start + kSeamFrames}, {before, end}};
    if (mLength < kShortFrames) {
        addStretch(0, mLength);
    } else {
        for (const auto& [first, last] : mSeams)
            addStretch(first, last);
    }
}

void SeamRecorder::addStretch(int64_t first, int64_t end)
{
    const size_t samples = size_t(end - first) * mChannels;
    mStretches.push_back({first, end, std::vector<float>(samples), std::vector<float>(samples)});
}

void SeamRecorder::encoded(int64_t position, std::span<const float> frames)
{
    keep(position, frames, &Stretch::encoded);
}

void SeamRecorder::decoded(int64_t position, std::span<const float> frames)
{
    keep(position, frames, &Stretch::decoded);
}

bool SeamRecorder::wants(int64_t first, int64_t end) const
{
    return std::any_of(mStretches.begin(), mStretches.end(),
                       [&](const Stretch& stretch) { return first < stretch.end && end > stretch.first; });
}

void SeamRecorder::keep(int64_t position, std::span<const float> frames, std::vector<float> Stretch::*kept)
{
    const int64_t end = position + int64_t(frames.size() / mChannels);
    for (Stretch& stretch : mStretches) {
        const int64_t from = std::max(position, stretch.first);
        const int64_t to = std::min(end, stretch.end);
        if (from < to) {
            const std::span<const float> part =
                frames.subspan(size_t(from - position) * mChannels, size_t(to - from) * mChannels);
            std::copy(part.begin(), part.end(),
                      (stretch.*kept).begin() + ptrdiff_t(size_t(from - stretch.first) * mChannels));
        }
    }
}

std::vector<float> SeamRecorder::missing(int64_t first, int64_t end) const
{
    const auto holds = [&](const Stretch& stretch) {
        return stretch.first <= first && end <= stretch.end;
    };
    const Stretch& stretch = *std::find_if(mStretches.begin(), mStretches.end(), holds);
    const size_t at = size_t(first - stretch.first) * mChannels;
    std::vector<float> missing(size_t(end - first) * mChannels);
    for (size_t i = 0; i < missing.size(); ++i)
        missing[i] = stretch.encoded[at + i] - stretch.decoded[at + i];
    return missing;
}

void SeamRecorder::finish(bank::Sound* sound) const
{
    std::vector<Seam> seams;
    for (const auto& [first, end] : mSeams)
        seams.push_back(correctEverywhere(first, mChannels, missing(first, end)));
    if (!seams.empty() && mLength < kShortFrames)
        SeamBalance(mLength, mLoop, mChannels).balance(&seams, missing(0, mLength));
    for (const Seam& seam : seams) {
        for (size_t layer = 0; layer < kMostLayers; ++layer)
            storeLayer(seam, layer, mChannels, sound);
    }
}

} // namespace tarnok
