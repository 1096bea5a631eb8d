// SPDX-License-Identifier: MIT
#include "kadpcm/analysis.hpp"

#include "kadpcm/format.hpp"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace bank::kadpcm {

namespace {

constexpr size_t kOverlap = 256; // samples that the window of a superblock includes on each side
constexpr size_t kEdgeTaper = 64; // at the ends of the sound, where there are no such samples
constexpr int kFewestCoupledFrames = 64;
constexpr int kCouplingTrialOrder = 8;
constexpr double kCouplingGain = 0.8; // coupling must leave less than this of the energy

constexpr size_t kLagsAtOnce = 12;
constexpr size_t kLags = (kMaximumOrder + kLagsAtOnce) / kLagsAtOnce * kLagsAtOnce;

// The sums of x[i] * x[i - lag - n] for n = 0 to kLagsAtOnce - 1. Several sums are computed at once, because the
// additions of a single sum would have to wait for each other.
void correlateLags(const double* x, size_t length, size_t lag, double* result)
{
    __m128d sums[kLagsAtOnce / 2];
    for (__m128d& sum : sums)
        sum = _mm_setzero_pd();
    for (size_t i = 0; i < length; ++i) {
        const __m128d sample = _mm_set1_pd(x[i]);
        const double* lagged = x + i - lag;
#pragma GCC unroll 6
        for (__m128d& sum : sums) {
            sum = _mm_add_pd(sum, _mm_mul_pd(sample, _mm_loadu_pd(lagged - 1)));
            lagged -= 2;
        }
    }
    for (const __m128d& sum : sums) {
        _mm_storeu_pd(result, _mm_shuffle_pd(sum, sum, 1));
        result += 2;
    }
}

// The samples of a superblock and some of its neighbours, faded in and out at the ends.
class Window
{
public:
    Window(size_t length, size_t begin, int frames)
        : mLow(begin - std::min(begin, kOverlap))
        , mHigh(std::min(length, begin + static_cast<size_t>(frames) + kOverlap))
        , mScale(static_cast<double>(frames) / static_cast<double>(mHigh - mLow))
        , mX(kPadding + mHigh - mLow)
    {
        const size_t half = (mHigh - mLow) / 2;
        mRise = std::min(half, mLow < begin ? begin - mLow : kEdgeTaper);
        mFall = std::min(half, mHigh > begin + static_cast<size_t>(frames) ? kOverlap : kEdgeTaper);
    }

    // sample(n): sample n of the channel.
    template <typename Sample>
    void correlate(Sample sample, std::array<double, kMaximumOrder + 1>& correlation)
    {
        double* const x = mX.data() + kPadding;
        const size_t length = mHigh - mLow;
        for (size_t i = 0; i < length; ++i)
            x[i] = sample(mLow + i);
        for (size_t i = 0; i < mRise; ++i)
            x[i] *= slope(i, mRise);
        for (size_t i = 0; i < mFall; ++i)
            x[length - 1 - i] *= slope(i, mFall);
        std::array<double, kLags> result;
        for (size_t lag = 0; lag < kLags; lag += kLagsAtOnce)
            correlateLags(x, length, lag, result.data() + lag);
        for (size_t lag = 0; lag < correlation.size(); ++lag)
            correlation[lag] = result[lag] * mScale;
    }

private:
    static constexpr size_t kPadding = kLags; // zeros before the samples, for the lags

    static double slope(size_t i, size_t length)
    {
        const double t = (static_cast<double>(i) + 0.5) / static_cast<double>(length);
        return t * (2 - t);
    }

    size_t mLow;
    size_t mHigh;
    size_t mRise;
    size_t mFall;
    double mScale;
    std::vector<double> mX;
};

// The share of the previous channel whose subtraction leaves the least energy. It is computed from differences of
// adjacent samples: otherwise the low frequencies would dominate, which are predicted well anyway.
int bestCoupling(std::span<const int16_t> samples, std::span<const int16_t> previous)
{
    int64_t product = 0;
    int64_t square = 0;
    for (size_t n = 1; n < samples.size(); ++n) {
        const int64_t other = previous[n] - previous[n - 1];
        product += other * (samples[n] - samples[n - 1]);
        square += other * other;
    }
    if (square == 0)
        return 0;
    const double share = 8 * static_cast<double>(product) / static_cast<double>(square);
    return static_cast<int>(std::floor(std::clamp(share, -16.0, 15.0) + 0.5));
}

double energyLeft(const Analysis& analysis)
{
    return fitPredictors(analysis, 0, kCouplingTrialOrder).energy[kCouplingTrialOrder];
}

} // namespace

Analysis analyse(std::span<const int16_t> samples, std::span<const int16_t> previous, size_t begin, int frames)
{
    const auto own = samples.subspan(begin, static_cast<size_t>(frames));
    Analysis plain;
    plain.constant = std::all_of(own.begin(), own.end(), [&](int16_t sample) { return sample == own[0]; });
    if (plain.constant)
        return plain;
    Window window(samples.size(), begin, frames);
    window.correlate([&](size_t n) { return samples[n]; }, plain.correlation);

    if (previous.empty() || frames < kFewestCoupledFrames)
        return plain;
    Analysis coupled;
    coupled.coupling = bestCoupling(own, previous.subspan(begin, static_cast<size_t>(frames)));
    if (coupled.coupling == 0)
        return plain;
    window.correlate([&](size_t n) { return samples[n] - couple(coupled.coupling, previous[n]); }, coupled.correlation);
    return energyLeft(coupled) < kCouplingGain * energyLeft(plain) ? coupled : plain;
}

Fit fitPredictors(const Analysis& analysis, double noise, int highestOrder)
{
    // The tiny additions keep the recursion from dividing by rounding errors where the prediction is almost perfect.
    constexpr double kRelativeFloor = 1e-9;
    constexpr double kAbsoluteFloor = 1e-3;
    const auto& r = analysis.correlation;
    Fit fit;
    std::array<double, kMaximumOrder + 1> predictor;
    double energy = r[0] * (1 + kRelativeFloor) + noise + kAbsoluteFloor;
    fit.energy[0] = energy;
    for (size_t i = 1; i <= static_cast<size_t>(highestOrder); ++i) {
        double sum = r[i];
        for (size_t j = 1; j < i; ++j)
            sum -= predictor[j] * r[i - j];
        const double reflection = sum / energy;
        for (size_t j = 1, k = i - 1; j <= k; ++j, --k) {
            const double low = predictor[j];
            const double high = predictor[k];
            predictor[j] = low - reflection * high;
            predictor[k] = high - reflection * low;
        }
        predictor[i] = reflection;
        energy *= std::max(1 - reflection * reflection, kRelativeFloor);
        fit.reflection[i] = reflection;
        fit.energy[i] = energy;
    }
    return fit;
}

int nearestCoefficient(int number, double value)
{
    const double magnitude = std::fabs(value) * (1 << 20);
    int low = 0;
    int high = (1 << (coefficientBits(number) - 1)) - 1;
    while (low < high) {
        const int middle = (low + high + 1) / 2;
        if (2 * magnitude < reflectionCoefficient(number, middle) + reflectionCoefficient(number, middle - 1))
            high = middle - 1;
        else
            low = middle;
    }
    return value < 0 ? -low : low;
}

double approximateLog2(double value)
{
    if (!(value > 0))
        return -1074;
    int exponent = 0;
    const double mantissa = std::frexp(value, &exponent);
    // The series of 2 / ln 2 * artanh(t) around the middle of the mantissa's range of 0.5 to 1.
    const double t = (mantissa - 0.70710678118654752) / (mantissa + 0.70710678118654752);
    const double t2 = t * t;
    return exponent - 0.5 + t * (2.8853900817779268 + t2 * (0.9617966939259756 + t2 * 0.5770780163555854));
}

} // namespace bank::kadpcm
