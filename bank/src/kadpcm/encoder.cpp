// SPDX-License-Identifier: MIT
#include "kadpcm/block.hpp"
#include "kadpcm/format.hpp"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <numeric>
#include <utility>

namespace bank::kadpcm {

namespace {

// Includes all side information. Together with the seek points that a bank adds, it stays below 4.35.
constexpr double kBitsPerSample = 4.335;
// A short sound gets this many extra bits per channel, minus one bit for every kFramesPerShortSoundBit frames: without
// them its header and first sample would leave too little for the rest.
constexpr double kShortSoundBits = 96;
constexpr double kFramesPerShortSoundBit = 8;
// Bits per sample that may be left of a budget. One step changes the rate by about 1/16.
constexpr double kTolerance = 0.07;
// How much unused budget of earlier segments a segment may get, as a share of its own budget.
constexpr double kMaximumCarry = 0.25;
// Number of superblocks from which the step of a segment is estimated.
constexpr int kSurveyedSuperblocks = 12;

// Mean square of an error that never matters, in steps of 16 bits: -96 dB of full scale, the level of dither.
constexpr double kNoError = 0.25;

double squaredDifference(std::span<const int16_t> a, std::span<const int16_t> b)
{
    int64_t sum = 0;
    for (size_t i = 0; i < a.size(); ++i)
        sum += int64_t{a[i] - b[i]} * (a[i] - b[i]);
    return static_cast<double>(sum);
}

} // namespace

// Collects samples, and encodes them with the one step that fits their budget.
class Encoder::Segment
{
public:
    Segment(int channels, std::stop_token stop, std::optional<Seam> seam)
        : mStop(std::move(stop))
        , mSeam(seam)
        , mSamples(static_cast<size_t>(channels))
        , mFramesOfSegment(kSegmentSamples / channels / kSuperblockFrames * kSuperblockFrames)
    { }

    [[nodiscard]] int channels() const { return static_cast<int>(mSamples.size()); }
    [[nodiscard]] int frames() const { return static_cast<int>(mSamples[0].size()); }
    [[nodiscard]] int framesOfSegment() const { return mFramesOfSegment; }

    void append(std::span<const int16_t> interleaved);

    // Encodes the first frames of the collected samples and removes them.
    void encode(int frames, std::vector<uint8_t>& bytes, std::vector<uint32_t>* sizes);

    void restart()
    {
        mCarry = 0;
        mFirst = 0;
        mSquaredError = 0;
        mSideErrors = {};
    }

private:
    struct Encoded
    {
        std::vector<uint8_t> bytes;
        std::vector<uint32_t> sizes;
        double squaredError = 0;
        int step = 0;

        [[nodiscard]] double bits() const { return 8.0 * static_cast<double>(bytes.size()); }
    };

    // A superblock at the seam.
    struct Protected
    {
        int superblock = 0;
        int step = 0;
        std::vector<uint8_t> bytes;
        double squaredError = 0;
        std::array<double, 2> sideErrors{}; // the part of it on each side
    };

    [[nodiscard]] int superblocks() const { return (mFrames + kSuperblockFrames - 1) / kSuperblockFrames; }
    [[nodiscard]] int superblockFrames(int superblock) const;
    [[nodiscard]] const Analysis& blockAnalysis(int superblock, int channel) const;
    void analyseAll();
    [[nodiscard]] double budget() const;
    [[nodiscard]] double expectedBits(int superblock, int step) const;
    void encodeSuperblock(int superblock, int step, std::vector<uint8_t>& bytes, double* squaredError = nullptr) const;
    template <typename BitCount>
    [[nodiscard]] double surveyedRate(BitCount bitCount) const;
    [[nodiscard]] int stepForRate(double rate, int step) const;
    [[nodiscard]] int estimateStep(double rate) const;
    [[nodiscard]] Encoded encodeAll(int step) const;
    [[nodiscard]] Encoded encodeWithin(double bits) const;
    void protectSeam(Encoded* encoded);
    [[nodiscard]] Protected encodeProtected(int superblock, int step) const;
    [[nodiscard]] bool isAtSeam(int superblock) const;
    [[nodiscard]] uint64_t firstFrame(int superblock) const;

    std::stop_token mStop;
    std::optional<Seam> mSeam;
    std::vector<std::vector<int16_t>> mSamples; // by channel
    int mFramesOfSegment;
    double mCarry = 0; // bits that earlier segments left over; negative if they took too many
    uint64_t mFirst = 0; // first frame of the next segment, counted in the sound
    double mSquaredError = 0; // of earlier segments
    std::array<double, 2> mSideErrors{}; // the part of it on each side of the seam

    // The segment that is being encoded.
    int mFrames = 0;
    std::vector<Analysis> mAnalyses;
};

void Encoder::Segment::append(std::span<const int16_t> interleaved)
{
    const size_t stride = mSamples.size();
    for (size_t channel = 0; channel < stride; ++channel) {
        auto& samples = mSamples[channel];
        const size_t begin = samples.size();
        samples.resize(begin + interleaved.size() / stride);
        for (size_t n = begin, i = channel; n < samples.size(); ++n, i += stride)
            samples[n] = interleaved[i];
    }
}

void Encoder::Segment::encode(int frames, std::vector<uint8_t>& bytes, std::vector<uint32_t>* sizes)
{
    mFrames = frames;
    analyseAll();
    if (!mStop.stop_requested()) {
        const double bits = budget();
        Encoded encoded = encodeWithin(bits);
        mCarry = bits - encoded.bits();
        if (mSeam && !mStop.stop_requested())
            protectSeam(&encoded);
        bytes.insert(bytes.end(), encoded.bytes.begin(), encoded.bytes.end());
        if (sizes)
            sizes->insert(sizes->end(), encoded.sizes.begin(), encoded.sizes.end());
    }
    for (auto& samples : mSamples)
        samples.erase(samples.begin(), samples.begin() + frames);
    mFirst += static_cast<uint64_t>(frames);
}

int Encoder::Segment::superblockFrames(int superblock) const
{
    return std::min(kSuperblockFrames, mFrames - superblock * kSuperblockFrames);
}

const Analysis& Encoder::Segment::blockAnalysis(int superblock, int channel) const
{
    return mAnalyses[static_cast<size_t>(superblock) * mSamples.size() + static_cast<size_t>(channel)];
}

void Encoder::Segment::analyseAll()
{
    mAnalyses.clear();
    for (int superblock = 0; superblock < superblocks() && !mStop.stop_requested(); ++superblock) {
        const size_t begin = static_cast<size_t>(superblock) * kSuperblockFrames;
        std::span<const int16_t> previous;
        for (const auto& samples : mSamples) {
            mAnalyses.push_back(analyse(samples, previous, begin, superblockFrames(superblock)));
            previous = samples;
        }
    }
}

double Encoder::Segment::budget() const
{
    const double regular = kBitsPerSample * mFrames * channels();
    const double shortSound = channels() * std::max(0.0, kShortSoundBits - mFrames / kFramesPerShortSoundBit);
    return regular + shortSound + std::min(mCarry, kMaximumCarry * regular);
}

double Encoder::Segment::expectedBits(int superblock, int step) const
{
    constexpr double kConstantBits = 40;
    double bits = 0;
    double energyOfPrevious = 0;
    for (int channel = 0; channel < channels(); ++channel) {
        const Analysis& analysis = blockAnalysis(superblock, channel);
        if (analysis.constant) {
            bits += kConstantBits;
            energyOfPrevious = 0;
            continue;
        }
        const Plan plan = planBlock(analysis, superblockFrames(superblock), step, energyOfPrevious);
        bits += kadpcm::expectedBits(plan, superblockFrames(superblock));
        energyOfPrevious = plan.energy;
    }
    return bits;
}

void Encoder::Segment::encodeSuperblock(int superblock, int step, std::vector<uint8_t>& bytes,
                                        double* squaredError) const
{
    const auto begin = static_cast<size_t>(superblock) * kSuperblockFrames;
    const auto frames = static_cast<size_t>(superblockFrames(superblock));
    std::array<std::array<int16_t, kSuperblockFrames>, 2> decoded; // of this channel and the previous one, alternately
    std::span<const int16_t> previous;
    double energyOfPrevious = 0;
    for (int channel = 0; channel < channels(); ++channel) {
        const Analysis& analysis = blockAnalysis(superblock, channel);
        Plan plan;
        if (!analysis.constant)
            plan = planBlock(analysis, superblockFrames(superblock), step, energyOfPrevious);
        const std::span<int16_t> own(decoded[channel % 2].data(), frames);
        const auto samples = std::span(mSamples[static_cast<size_t>(channel)]).subspan(begin, frames);
        encodeBlock(samples, previous, analysis, plan, own, bytes);
        if (squaredError)
            *squaredError += squaredDifference(samples, own);
        previous = own;
        energyOfPrevious = plan.energy;
    }
}

// The average of bitCount(superblock) per sample, over superblocks that are spread evenly over the segment.
template <typename BitCount>
double Encoder::Segment::surveyedRate(BitCount bitCount) const
{
    const int stride = std::max(1, superblocks() / kSurveyedSuperblocks);
    double bits = 0;
    double samples = 0;
    for (int superblock = stride / 2; superblock < superblocks(); superblock += stride) {
        bits += bitCount(superblock);
        samples += superblockFrames(superblock) * channels();
    }
    return bits / samples;
}

// The step that is expected to give that rate, in bits per sample. The search begins at step.
int Encoder::Segment::stepForRate(double rate, int step) const
{
    constexpr int kMaximumRounds = 4;
    for (int round = 0; round < kMaximumRounds; ++round) {
        const double expected = surveyedRate([&](int superblock) { return expectedBits(superblock, step); });
        const int change = static_cast<int>(std::lrint(kStepsPerOctave * (expected - rate)));
        step = std::clamp(step + change, 0, kHighestStep);
        if (change == 0)
            break;
    }
    return step;
}

int Encoder::Segment::estimateStep(double rate) const
{
    constexpr int kUsualStep = 112;
    constexpr int kMaximumCorrections = 2;
    constexpr int kCloseEnough = 2;
    int step = stepForRate(rate, kUsualStep);
    if (superblocks() < 2 * kSurveyedSuperblocks)
        return step; // encoding the whole segment is as fast as a survey
    for (int i = 0; i < kMaximumCorrections; ++i) {
        const double expected = surveyedRate([&](int superblock) { return expectedBits(superblock, step); });
        std::vector<uint8_t> bytes;
        const double real = surveyedRate([&](int superblock) {
            bytes.clear();
            encodeSuperblock(superblock, step, bytes);
            return 8.0 * static_cast<double>(bytes.size());
        });
        const int former = std::exchange(step, stepForRate(rate - (real - expected), step));
        if (std::abs(step - former) <= kCloseEnough)
            break;
    }
    return step;
}

Encoder::Segment::Encoded Encoder::Segment::encodeAll(int step) const
{
    Encoded encoded;
    encoded.step = step;
    for (int superblock = 0; superblock < superblocks() && !mStop.stop_requested(); ++superblock) {
        const size_t begin = encoded.bytes.size();
        encodeSuperblock(superblock, step, encoded.bytes, mSeam ? &encoded.squaredError : nullptr);
        encoded.sizes.push_back(static_cast<uint32_t>(encoded.bytes.size() - begin));
    }
    return encoded;
}

// Encodes with the smallest step that stays within bits, or nearly the smallest; with the largest step if none does.
// Each attempt narrows the range between the two limits.
Encoder::Segment::Encoded Encoder::Segment::encodeWithin(double bits) const
{
    const double samples = static_cast<double>(mFrames) * channels();
    int tooSmall = -1;
    int largeEnough = kHighestStep + 1;
    int step = estimateStep(bits / samples - kTolerance / 2);
    Encoded best;
    for (;;) {
        Encoded attempt = encodeAll(step);
        const double excess = (attempt.bits() - bits) / samples;
        const bool fits = excess <= 0;
        (fits ? largeEnough : tooSmall) = step;
        if (fits || step == kHighestStep)
            best = std::move(attempt);
        if ((fits && excess >= -kTolerance) || largeEnough - tooSmall <= 1 || mStop.stop_requested())
            return best;
        const int change = fits ? std::min(-1, static_cast<int>(kStepsPerOctave * excess))
                                : std::max(1, static_cast<int>(std::ceil(kStepsPerOctave * excess)));
        step = std::clamp(step + change, tooSmall + 1, largeEnough - 1);
    }
}

uint64_t Encoder::Segment::firstFrame(int superblock) const
{
    return mFirst + static_cast<uint64_t>(superblock) * kSuperblockFrames;
}

bool Encoder::Segment::isAtSeam(int superblock) const
{
    const uint64_t first = firstFrame(superblock);
    const uint64_t end = first + static_cast<uint64_t>(superblockFrames(superblock));
    return std::any_of(mSeam->sides.begin(), mSeam->sides.end(),
                       [&](const Seam::Side& side) { return side.first < end && side.end > first; });
}

Encoder::Segment::Protected Encoder::Segment::encodeProtected(int superblock, int step) const
{
    Protected made;
    made.superblock = superblock;
    made.step = step;
    encodeSuperblock(superblock, step, made.bytes, &made.squaredError);
    const auto frames = static_cast<size_t>(superblockFrames(superblock));
    std::vector<int16_t> decoded(frames * mSamples.size());
    (void)decodeSuperblock(made.bytes, channels(), superblockFrames(superblock), decoded.data());
    for (size_t i = 0; i < decoded.size(); ++i) {
        const size_t frame = i / mSamples.size();
        const double error =
            mSamples[i % mSamples.size()][static_cast<size_t>(superblock) * kSuperblockFrames + frame] - decoded[i];
        for (size_t side = 0; side < mSeam->sides.size(); ++side) {
            const uint64_t position = firstFrame(superblock) + frame;
            if (position >= mSeam->sides[side].first && position < mSeam->sides[side].end)
                made.sideErrors[side] += error * error;
        }
    }
    return made;
}

// Encodes superblocks at the seam again with smaller steps, while the error of either side is too large. The extra bits
// aren't taken from the budget: that would make the rest of the sound worse instead of the seam better.
void Encoder::Segment::protectSeam(Encoded* encoded)
{
    std::vector<Protected> atSeam;
    for (int superblock = 0; superblock < superblocks(); ++superblock) {
        if (isAtSeam(superblock))
            atSeam.push_back(encodeProtected(superblock, encoded->step));
    }
    mSquaredError += encoded->squaredError;
    for (const Protected& superblock : atSeam) {
        for (size_t side = 0; side < mSideErrors.size(); ++side)
            mSideErrors[side] += superblock.sideErrors[side];
    }

    const auto excess = [this](size_t side) {
        const auto frames = static_cast<double>(mSeam->sides[side].end - mSeam->sides[side].first);
        const double ofSound = mSquaredError / static_cast<double>(mSeam->soundFrames) / channels();
        return mSideErrors[side] / frames / channels() / std::max(ofSound, kNoError);
    };
    while (!mStop.stop_requested()) {
        const size_t side = excess(1) > excess(0) ? 1 : 0;
        const auto worst =
            std::max_element(atSeam.begin(), atSeam.end(), [side](const Protected& a, const Protected& b) {
                return a.sideErrors[side] < b.sideErrors[side];
            });
        if (excess(side) <= 1 || worst == atSeam.end() || worst->sideErrors[side] == 0 || worst->step == 0)
            break;
        const int octaves = static_cast<int>(std::ceil(kStepsPerOctave * std::log2(excess(side)) / 2));
        Protected finer = encodeProtected(worst->superblock, std::max(0, worst->step - std::max(1, octaves)));
        mSquaredError += finer.squaredError - worst->squaredError;
        for (size_t i = 0; i < mSideErrors.size(); ++i)
            mSideErrors[i] += finer.sideErrors[i] - worst->sideErrors[i];
        *worst = std::move(finer);
    }

    // From the last one to the first, so that the offsets of the earlier ones stay valid.
    for (auto superblock = atSeam.rbegin(); superblock != atSeam.rend(); ++superblock) {
        const auto index = static_cast<size_t>(superblock->superblock);
        const auto begin = encoded->bytes.begin()
            + std::accumulate(encoded->sizes.begin(), encoded->sizes.begin() + superblock->superblock, ptrdiff_t{0});
        const auto end = begin + static_cast<ptrdiff_t>(encoded->sizes[index]);
        encoded->bytes.insert(encoded->bytes.erase(begin, end), superblock->bytes.begin(), superblock->bytes.end());
        encoded->sizes[index] = static_cast<uint32_t>(superblock->bytes.size());
    }
}

Encoder::Encoder(int channels, std::stop_token stop, std::optional<Seam> seam)
{
    assert(channels >= 1 && channels <= kMaximumChannels);
    mSegment = std::make_unique<Segment>(channels, std::move(stop), seam);
}

Encoder::~Encoder() = default;

void Encoder::encode(std::span<const int16_t> interleaved, std::vector<uint8_t>& bytes, std::vector<uint32_t>* sizes)
{
    const auto channels = static_cast<size_t>(mSegment->channels());
    assert(interleaved.size() % channels == 0);
    // A segment is encoded when the next one is complete, so that the last one is never short.
    const int framesToKeep = 2 * mSegment->framesOfSegment();
    while (!interleaved.empty()) {
        const auto room = static_cast<size_t>(framesToKeep - mSegment->frames()) * channels;
        const auto part = interleaved.first(std::min(room, interleaved.size()));
        mSegment->append(part);
        interleaved = interleaved.subspan(part.size());
        if (mSegment->frames() == framesToKeep)
            mSegment->encode(mSegment->framesOfSegment(), bytes, sizes);
    }
}

void Encoder::finish(std::vector<uint8_t>& bytes, std::vector<uint32_t>* sizes)
{
    if (mSegment->frames() > 0)
        mSegment->encode(mSegment->frames(), bytes, sizes);
    mSegment->restart();
}

} // namespace bank::kadpcm
