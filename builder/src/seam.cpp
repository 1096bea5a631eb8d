#include "seam.hpp"

#include <algorithm>
#include <functional>

namespace tarnok {

namespace {

// Where the seam is a good part of the sound, a correction of the usual fineness may leave it worse than the rest.
constexpr uint64_t kShortFrames = 4096;

} // namespace

SeamRecorder::SeamRecorder(const PreparedFacts& facts)
    : mChannels(size_t(facts.channels))
    , mLayers(facts.sampleCount < kShortFrames ? 2 : 1)
{
    if (!facts.loop || facts.sampleCount <= 2 * uint64_t(kSeamFrames))
        return;
    const auto start = int64_t(facts.loop->start);
    const auto end = int64_t(facts.loop->end);
    if (end - start <= 2 * kSeamFrames) {
        addStretch(start, end);
    } else {
        addStretch(start, start + kSeamFrames);
        addStretch(end - kSeamFrames, end);
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

void SeamRecorder::finish(bank::Sound* sound) const
{
    for (const Stretch& stretch : mStretches) {
        std::vector<float> missing(stretch.encoded.size());
        std::transform(stretch.encoded.begin(), stretch.encoded.end(), stretch.decoded.begin(), missing.begin(),
                       [](float wanted, float got) { return wanted - got; });
        for (int layer = 0; layer < mLayers; ++layer) {
            bank::Correction correction = bank::makeCorrection(uint64_t(stretch.first), int(mChannels), missing);
            const std::vector<float> corrected = bank::expandCorrection(correction, int(mChannels));
            std::transform(missing.begin(), missing.end(), corrected.begin(), missing.begin(), std::minus<float>());
            sound->corrections.push_back(std::move(correction));
        }
    }
}

} // namespace tarnok
