// SPDX-License-Identifier: MIT
#include "source/analysis.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <complex>
#include <numbers>
#include <optional>
#include <span>

namespace builder {

namespace {

constexpr std::array<uint32_t, 13> kUsualRates = {8000,  11025, 12000, 16000, 22050, 24000, 32000,
                                                  44100, 48000, 64000, 88200, 96000, 176400};
constexpr double kKeptBand = 0.9; // of the Nyquist frequency
constexpr double kAudibleRange = 75; // dB below the loudest window
constexpr double kNoiseMargin = 3; // dB
constexpr size_t kBlockFrames = 4096;

double decibels(double ratio)
{
    return std::pow(10.0, ratio / 10);
}

// Energy spectrum of windows of real samples.
class Spectrum
{
public:
    // size is a power of two.
    explicit Spectrum(size_t size)
        : mWindow(size)
        , mTwiddles(size / 2)
        , mData(size)
        , mEnergies(size / 2 + 1)
    {
        // The four-term Blackman-Harris window (Harris 1978). A tone leaks into the band above it at -92 dB, which is
        // below everything that the search looks for.
        double power = 0;
        for (size_t i = 0; i < size; ++i) {
            const double phase = 2 * std::numbers::pi * double(i) / double(size);
            mWindow[i] =
                0.35875 - 0.48829 * std::cos(phase) + 0.14128 * std::cos(2 * phase) - 0.01168 * std::cos(3 * phase);
            power += mWindow[i] * mWindow[i];
        }
        // Normalised so that the energies of a window add up to the mean square of its samples.
        for (double& weight : mWindow)
            weight /= std::sqrt(power * double(size));
        for (size_t i = 0; i < size / 2; ++i)
            mTwiddles[i] = std::polar(1.0, -2 * std::numbers::pi * double(i) / double(size));
    }

    // The energy in each band from 0 to half the rate.
    const std::vector<double>& energies(const float* samples, size_t stride)
    {
        const size_t size = mData.size();
        const auto shift = unsigned(std::countl_zero(size) + 1);
        for (size_t i = 0; i < size; ++i)
            mData[reversed(i, shift)] = double(samples[i * stride]) * mWindow[i];
        for (size_t half = 1; half < size; half *= 2) {
            for (size_t group = 0; group < size; group += 2 * half) {
                for (size_t i = 0; i < half; ++i) {
                    const std::complex<double> odd = times(mData[group + half + i], mTwiddles[i * (size / (2 * half))]);
                    mData[group + half + i] = mData[group + i] - odd;
                    mData[group + i] += odd;
                }
            }
        }
        for (size_t i = 0; i < mEnergies.size(); ++i)
            mEnergies[i] = std::norm(mData[i]) * (i == 0 || i == size / 2 ? 1 : 2);
        return mEnergies;
    }

private:
    // Multiplies without the operator's special handling of infinities.
    static std::complex<double> times(std::complex<double> a, std::complex<double> b)
    {
        return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
    }

    static size_t reversed(size_t number, unsigned shift)
    {
        size_t result = 0;
        for (unsigned bit = 0; bit < 64 - shift; ++bit)
            result |= ((number >> bit) & 1) << (63 - shift - bit);
        return result;
    }

    std::vector<double> mWindow;
    std::vector<std::complex<double>> mTwiddles;
    std::vector<std::complex<double>> mData;
    std::vector<double> mEnergies;
};

// Mean square of the rounding error of a format: a twelfth of the squared step.
double roundingNoise(bank::SampleFormat format)
{
    if (format == bank::SampleFormat::Float)
        return 0;
    const double step = std::ldexp(1.0, 1 - int(8 * bank::bytesPerSample(format)));
    return step * step / 12;
}

// Finds, for each common rate below the sound's own, the maximum energy of any window above the band of that rate.
class RateSearch
{
public:
    explicit RateSearch(const FrameFacts& facts)
        : mFacts(facts)
        , mSize(windowSize(facts))
        , mSpectrum(mSize)
    {
        for (const uint32_t rate : kUsualRates) {
            if (rate < facts.sampleRate)
                mCandidates.push_back({rate, firstBand(rate), 0});
        }
    }

    void add(const float* frames, size_t count)
    {
        const auto channels = size_t(mFacts.channels);
        mRecent.insert(mRecent.end(), frames, frames + count * channels);
        for (; mNext + mSize * channels <= mRecent.size(); mNext += mSize / 2 * channels)
            addWindow(mRecent.data() + mNext);
        // Keeps at least one whole window for the end, see lowestRate().
        const size_t spare = std::min(mNext, mRecent.size() - std::min(mRecent.size(), mSize * channels));
        mRecent.erase(mRecent.begin(), mRecent.begin() + std::ptrdiff_t(spare));
        mNext -= spare;
    }

    uint32_t lowestRate()
    {
        // The last window ends exactly with the sound. Padded with silence it would contain the click of a sudden end,
        // which isn't in the recording.
        const auto channels = size_t(mFacts.channels);
        if (mRecent.size() >= mSize * channels)
            addWindow(mRecent.data() + mRecent.size() - mSize * channels);
        else
            return uint32_t(std::lround(mFacts.sampleRate));
        const double ownBand = mFacts.sampleRate / 2;
        for (const Candidate& candidate : mCandidates) {
            const double noiseShare = 1 - kKeptBand * candidate.rate / 2 / ownBand;
            const double noise = roundingNoise(mFacts.sampleFormat) * noiseShare * decibels(kNoiseMargin);
            if (candidate.maximumAbove <= std::max(noise, mLoudest * decibels(-kAudibleRange)))
                return candidate.rate;
        }
        return uint32_t(std::lround(mFacts.sampleRate));
    }

private:
    struct Candidate
    {
        uint32_t rate;
        size_t firstBand; // the lowest band that this rate doesn't keep
        double maximumAbove;
    };

    // Sounds shorter than a window get a shorter one, down to a length at which nothing can be saved.
    static size_t windowSize(const FrameFacts& facts)
    {
        size_t size = 2048;
        for (double rate = facts.sampleRate; rate > 50'000 && size < 32'768; rate /= 2)
            size *= 2;
        while (size > facts.length && size > 64)
            size /= 2;
        return size;
    }

    size_t firstBand(uint32_t rate) const
    {
        return size_t(std::ceil(kKeptBand * rate / 2 / mFacts.sampleRate * double(mSize)));
    }

    void addWindow(const float* frames)
    {
        for (int channel = 0; channel < mFacts.channels; ++channel) {
            const std::vector<double>& energies = mSpectrum.energies(frames + channel, size_t(mFacts.channels));
            double above = 0;
            size_t band = energies.size();
            for (auto candidate = mCandidates.rbegin(); candidate != mCandidates.rend(); ++candidate) {
                while (band > candidate->firstBand)
                    above += energies[--band];
                candidate->maximumAbove = std::max(candidate->maximumAbove, above);
            }
            while (band > 0)
                above += energies[--band];
            mLoudest = std::max(mLoudest, above);
        }
    }

    FrameFacts mFacts;
    size_t mSize;
    Spectrum mSpectrum;
    std::vector<Candidate> mCandidates; // in ascending order of rate
    double mLoudest = 0;
    std::vector<float> mRecent;
    size_t mNext = 0; // index in mRecent at which the next window begins
};

} // namespace

base::Result<float> analyse(FrameSource& source, uint32_t* lowestRate, const std::stop_token& stop)
{
    const FrameFacts& facts = source.facts();
    std::optional<RateSearch> search;
    if (lowestRate)
        search.emplace(facts);
    if (base::Result<> status = source.seek(0); !status)
        return status.error();

    float peak = 0;
    std::vector<float> block(kBlockFrames * size_t(facts.channels));
    for (uint64_t remaining = facts.length; remaining > 0;) {
        if (stop.stop_requested())
            return base::cancelled();
        const size_t count = size_t(std::min<uint64_t>(remaining, kBlockFrames));
        if (base::Result<> status = source.readFloat(block.data(), count); !status)
            return status.error();
        for (const float sample : std::span(block.data(), count * size_t(facts.channels)))
            peak = std::max(peak, std::abs(sample));
        if (search)
            search->add(block.data(), count);
        remaining -= count;
    }
    if (lowestRate)
        *lowestRate = search->lowestRate();
    return peak;
}

} // namespace builder
