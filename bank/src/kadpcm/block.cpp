// SPDX-License-Identifier: MIT
#include "kadpcm/block.hpp"

#include "base/bytes.hpp"
#include "kadpcm/format.hpp"
#include "kadpcm/prediction.hpp"

#include <cmath>
#include <cstring>

namespace bank::kadpcm {

namespace {

// The step is at most this part of what prediction leaves (both as RMS). One step for a whole sound would give the
// least squared error, but a soft passage of a loud sound would drown in noise.
constexpr double kLargestStepShare = 0.5;
// Bits that a coefficient must save: its own, and some for the time it costs the decoder.
constexpr double kCoefficientWorth = 10;
// Where a code's magnitude is rounded up. Below a half, because a code nearer to zero saves more bits than the
// added error is worth.
constexpr double kRounding = 0.53;
// Of the mean magnitude and the root of the mean square, for what prediction usually leaves.
constexpr double kMeanOfRms = 0.75;

// Writes bits, most significant first, into a buffer that has room for any predicted block.
class BitWriter
{
public:
    // count: 0 to 32; value has no more bits than that.
    void put(uint32_t value, int count)
    {
        mBits = mBits << count | value;
        mHeld += count;
        if (mHeld < 32)
            return;
        mHeld -= 32;
        const uint32_t word = __builtin_bswap32(static_cast<uint32_t>(mBits >> mHeld));
        std::memcpy(mBytes.data() + mSize, &word, sizeof word);
        mSize += sizeof word;
    }

    void putSigned(int value, int count) { put(static_cast<uint32_t>(value) & ((1U << count) - 1), count); }

    void putRice(uint32_t u, int parameter)
    {
        const uint32_t zeros = u >> parameter;
        if (zeros >= kEscapeZeros) {
            put(0, kEscapeZeros);
            put(u, kEscapeBits);
            return;
        }
        put(1, static_cast<int>(zeros) + 1);
        put(u & ((1U << parameter) - 1), parameter);
    }

    void putExpGolomb(uint32_t u, int parameter)
    {
        const uint32_t v = u + (1U << parameter);
        const int width = std::bit_width(v);
        put(0, width - 1 - parameter);
        put(v, width);
    }

    // All that was put, padded to a byte.
    std::span<const uint8_t> finish()
    {
        put(0, (8 - mHeld % 8) % 8);
        for (; mHeld > 0; mHeld -= 8)
            mBytes[mSize++] = static_cast<uint8_t>(mBits >> (mHeld - 8));
        return {mBytes.data(), mSize};
    }

private:
    static constexpr size_t kMaximumCodeBits = kEscapeZeros + kEscapeBits;
    static constexpr size_t kMaximumHeaderBits =
        kCouplingBits + kStartBits + kFirstSampleBits + kMaximumOrder * kMaximumCoefficientBits;

    std::array<uint8_t, (kMaximumCodeBits * kSuperblockFrames + kMaximumHeaderBits) / 8 + 8> mBytes;
    size_t mSize = 0;
    uint64_t mBits = 0;
    int mHeld = 0; // of mBits, the low ones
};

// Turns differences into codes, by multiplying with the step's reciprocal in 1/2^32: the next sample waits for this
// one's code, and floating point or a division would make it wait two or three times as long.
class Quantiser
{
public:
    explicit Quantiser(int step)
        : mReciprocal((int64_t{256} << 32) / stepSize(step))
        // The smallest step makes every sample exact, if nothing is rounded away.
        , mRounding(static_cast<int64_t>((step == 0 ? 0.5 : 1 - kRounding) * 4294967296.0))
    { }

    [[nodiscard]] int code(int difference) const
    {
        const int sign = difference >> 31;
        const int64_t magnitude = (difference ^ sign) - sign;
        const auto code = static_cast<int>((magnitude * mReciprocal + mRounding) >> 32);
        return (code ^ sign) - sign;
    }

private:
    int64_t mReciprocal;
    int64_t mRounding;
};

// The start whose first Rice parameter fits that mean.
int startFor(double meanCode)
{
    int start = 0;
    while (start < kHighestStart && (1 << start) < meanCode)
        ++start;
    return start;
}

// Codes the samples of one predicted block.
class SampleCoder
{
public:
    SampleCoder(std::span<const int16_t> samples, std::span<const int16_t> previous, int coupling, int step, int start,
                std::span<int16_t> decoded, BitWriter& bits)
        : mSamples(samples)
        , mPrevious(previous)
        , mCoupling(coupling)
        , mQuantiser(step)
        , mStepSize(stepSize(step))
        , mStart(start)
        , mParameter(start)
        , mDecoded(decoded)
        , mBits(bits)
    { }

    void code(std::span<const int32_t> reflections)
    {
        mDecoded[0] = mSamples[0];
        mPrediction.add(mSamples[0] - coupled(0));
        for (mNext = 1; mNext < mSamples.size() && mNext <= reflections.size(); ++mNext) {
            mPrediction.grow(reflections[mNext - 1]);
            mBits.putExpGolomb(quantise(mNext, mPrediction.next()), mStart);
            mPrediction.add(mDifference);
        }
        mPrediction.beginGroups(1);
        codeGroups();
        for (; mNext < mSamples.size(); ++mNext) {
            putRice(quantise(mNext, mPrediction.next()));
            mPrediction.add(mDifference);
        }
    }

private:
    [[nodiscard]] int coupled(size_t n) const
    {
        return mCoupling == 0 ? 0 : static_cast<int>(couple(mCoupling, mPrevious[n]));
    }

    // The code of sample n. Sets what the decoder makes of it.
    [[gnu::always_inline]] uint32_t quantise(size_t n, int64_t predicted)
    {
        const int c = coupled(n);
        const int expected = static_cast<int>(clampSample(c + predicted));
        const int q = mQuantiser.code(mSamples[n] - expected);
        const int sample = static_cast<int>(clampSample(expected + dequantised(q, mStepSize)));
        mDecoded[n] = static_cast<int16_t>(sample);
        mDifference = sample - c;
        return fold(q);
    }

    [[gnu::always_inline]] void putRice(uint32_t u)
    {
        mBits.putRice(u, mParameter.value());
        mParameter.follow(u);
    }

    // All but the newest tap of a group's first sample is summed in advance.
    template <typename Code>
    [[gnu::always_inline]] void codeGroupsWith()
    {
        std::array<int64_t, kGroup> newestTaps;
        std::array<int64_t, kGroup + 1> differences; // the newest before the group, then those of the group
        unrolled<kGroup>([&](auto i) { newestTaps[i] = static_cast<int64_t>(mPrediction.coefficient(i + 1)); });
        differences[0] = static_cast<int64_t>(mPrediction.difference(1));
        for (; mNext + kGroup <= mSamples.size(); mNext += kGroup) {
            double sums[kGroup];
            mPrediction.sumOlder<Code, 2>(kHalf, sums);
            unrolled<kGroup>([&](auto k) __attribute__((always_inline)) {
                auto sum = static_cast<int64_t>(sums[k]);
                unrolled<k + 1>([&](auto i)
                                    __attribute__((always_inline)) { sum += newestTaps[k - i] * differences[i]; });
                putRice(quantise(mNext + k, sum >> 20));
                mPrediction.add(mDifference);
                differences[k + 1] = mDifference;
            });
            differences[0] = differences[kGroup];
        }
    }

#ifdef __x86_64__
    [[KADPCM_AVX2]] void codeGroupsAvx2()
    {
        codeGroupsWith<Avx2Code>();
    }

    void codeGroups()
    {
        if (Avx2Code::isSupported())
            codeGroupsAvx2();
        else
            codeGroupsWith<Sse2Code>();
    }
#else
    void codeGroups()
    {
        codeGroupsWith<PlainCode>();
    }
#endif

    std::span<const int16_t> mSamples;
    std::span<const int16_t> mPrevious;
    int mCoupling;
    Quantiser mQuantiser;
    int mStepSize;
    int mStart;
    RiceParameter mParameter;
    std::span<int16_t> mDecoded;
    BitWriter& mBits;
    Prediction mPrediction;
    size_t mNext = 0;
    int mDifference = 0; // of the sample that was coded last
};

void putPredicted(std::span<const int16_t> samples, std::span<const int16_t> previous, const Analysis& analysis,
                  const Plan& plan, std::span<int16_t> decoded, BitWriter& bits)
{
    if (!previous.empty())
        bits.put(static_cast<uint32_t>(analysis.coupling + kCouplingOffset), kCouplingBits);
    const int start = startFor(plan.meanCode);
    bits.put(static_cast<uint32_t>(start), kStartBits);
    std::array<int32_t, kMaximumOrder> reflections;
    for (int i = 1; i <= plan.order; ++i) {
        const int index = nearestCoefficient(i, plan.fit.reflection[static_cast<size_t>(i)]);
        bits.putSigned(index, coefficientBits(i));
        reflections[static_cast<size_t>(i - 1)] = reflectionCoefficient(i, index);
    }
    bits.putSigned(samples[0], kFirstSampleBits);
    SampleCoder(samples, previous, analysis.coupling, plan.step, start, decoded, bits)
        .code(std::span(reflections).first(static_cast<size_t>(plan.order)));
}

void appendConstant(std::span<const int16_t> samples, std::span<int16_t> decoded, std::vector<uint8_t>& bytes)
{
    bytes.push_back(kConstantMode);
    base::appendLittle(bytes, samples[0]);
    std::copy(samples.begin(), samples.end(), decoded.begin());
}

void appendPlain(std::span<const int16_t> samples, std::span<int16_t> decoded, std::vector<uint8_t>& bytes)
{
    bytes.push_back(kPlainMode);
    for (const int16_t sample : samples)
        base::appendLittle(bytes, sample);
    std::copy(samples.begin(), samples.end(), decoded.begin());
}

} // namespace

Plan planBlock(const Analysis& analysis, int frames, int largestStep, double energyOfPrevious)
{
    const int highestOrder = std::min(kMaximumOrder, frames - 1);
    const double share = analysis.coupling * analysis.coupling / 64.0; // of the previous channel's energy
    Plan plan;
    double noise = 0;
    // The noise of the channel itself and of the one before are both in what the predictor sees. Of what it leaves, the
    // first is no part.
    const auto left = [&](int order) {
        return std::max(plan.fit.energy[static_cast<size_t>(order)] - noise, 0.01 * frames);
    };
    const auto fitTo = [&](int step) {
        const double size = stepSize(step) / 256.0;
        plan.step = step;
        noise = frames * size * size / 12; // of an error that is spread evenly over a step
        plan.fit = fitPredictors(analysis, noise * (1 + share), highestOrder);
        plan.energy = left(highestOrder) + share * energyOfPrevious;
    };
    fitTo(largestStep);
    const double limit = std::sqrt(plan.energy / frames) * kLargestStepShare;
    const int limitStep = std::max(0, static_cast<int>(kStepsPerOctave * approximateLog2(limit)));
    if (limitStep < largestStep)
        fitTo(limitStep);

    double least = 0;
    for (int order = 0; order <= highestOrder; ++order) {
        const double cost = 0.5 * frames * approximateLog2(left(order) + noise) + kCoefficientWorth * order;
        if (order == 0 || cost < least) {
            least = cost;
            plan.order = order;
        }
    }
    plan.meanCode = kMeanOfRms * std::sqrt(left(plan.order) / frames) / (stepSize(plan.step) / 256.0);
    return plan;
}

double expectedBits(const Plan& plan, int frames)
{
    // Measured on all kinds of sounds: a Rice code takes some 2 bits more than the logarithm of the RMS.
    constexpr double kHeaderBits = 60;
    constexpr double kBitsOfCoefficient = 7;
    constexpr double kBitsOfUnitRms = 2;
    constexpr double kLeastBitsOfCode = 1.05;
    const double code = std::max(kLeastBitsOfCode, approximateLog2(plan.meanCode / kMeanOfRms) + kBitsOfUnitRms);
    return kHeaderBits + kBitsOfCoefficient * plan.order + frames * code;
}

void encodeBlock(std::span<const int16_t> samples, std::span<const int16_t> previous, const Analysis& analysis,
                 const Plan& plan, std::span<int16_t> decoded, std::vector<uint8_t>& bytes)
{
    const size_t begin = bytes.size();
    base::appendLittle(bytes, uint16_t{0});
    if (analysis.constant) {
        appendConstant(samples, decoded, bytes);
    } else {
        BitWriter bits;
        putPredicted(samples, previous, analysis, plan, decoded, bits);
        const auto coded = bits.finish();
        if (coded.size() + 1 < 2 * samples.size()) {
            bytes.push_back(static_cast<uint8_t>(plan.order));
            bytes.push_back(static_cast<uint8_t>(plan.step));
            bytes.insert(bytes.end(), coded.begin(), coded.end());
        } else {
            appendPlain(samples, decoded, bytes);
        }
    }
    const size_t size = bytes.size() - begin - 2;
    bytes[begin] = static_cast<uint8_t>(size);
    bytes[begin + 1] = static_cast<uint8_t>(size >> 8);
}

} // namespace bank::kadpcm
