// SPDX-License-Identifier: MIT
// KADPCM's linear prediction, shared by decoder and encoder.
//
// A prediction is a sum over up to 32 older samples, and each sample is needed for the next prediction. But the
// products with samples that are at least kNewestTaps older than a group of kGroup samples can be summed in advance,
// for all samples of the group at once. Double precision is exact for that: a coefficient is at most 2^30 and a
// difference below 2^17, so the sum of 32 products stays below 2^52, in any order of addition.
#pragma once

#include "kadpcm/format.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#ifdef __x86_64__
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace bank::kadpcm {

inline constexpr int kNewestTaps = 1; // of the first sample of a group that aren't summed in advance
inline constexpr int kFirstAge = kNewestTaps + 1; // ages are counted from the first sample of a group
inline constexpr int kHistoryFrames = kMaximumOrder + kGroup; // differences that must be readable before a group

// Calls function with 0 to Count - 1 as constants: what it indexes by them can stay in registers.
template <size_t Count, typename Function>
[[gnu::always_inline]] inline void unrolled(const Function& function)
{
    [&]<size_t... Index>(std::index_sequence<Index...>) __attribute__((always_inline))
    {
        (function(std::integral_constant<size_t, Index>()), ...);
    }
    (std::make_index_sequence<Count>());
}

// The coefficients of the taps 1 to 32 in 1/2^20, then zeros: vector code reads whole vectors.
struct TapTable
{
    std::array<double, kMaximumOrder + 2 * kGroup> coefficients{};
    int order = 0;

    // How many times four ages are summed in advance. The highest may be above the order, where coefficients are zero.
    [[nodiscard]] int foursOfAges() const { return std::max(0, (order - kNewestTaps + 3) / 4); }
};

inline constexpr double kHalf = 1 << 19; // rounds a prediction, in 1/2^20

// The size of a quantiser's step.
struct Step
{
    int64_t size = 0; // in 1/256
    double value = 0;
};

// PlainCode, Sse2Code and Avx2Code compute the same: the first on any processor and as the reference of the others,
// Avx2Code where Avx2Code::isSupported().
//
// sumOlder: for each sample k of the group that begins at history[0], the sum of the products of all taps above
// k + kNewestTaps, plus kHalf. dequantise: the differences that the codes of a group stand for, in samples; those of
// codes that no encoder writes are cut at 2^17, which the sample's own limits make equal.
struct PlainCode
{
    [[gnu::always_inline]] static void sumOlder(const TapTable& taps, const double* history, double* sums)
    {
        for (int k = 0; k < kGroup; ++k) {
            sums[k] = kHalf;
            for (int age = kFirstAge; age + k <= taps.order; ++age)
                sums[k] += taps.coefficients[static_cast<size_t>(age + k - 1)] * history[-age];
        }
    }

    [[gnu::always_inline]] static void dequantise(const std::array<uint32_t, kGroup>& codes, const Step& step,
                                                  int64_t* differences)
    {
        for (const uint32_t code : codes)
            *differences++ = dequantised(unfold(code), step.size);
    }
};

#ifdef __x86_64__

struct Sse2Code : PlainCode
{
    [[gnu::always_inline]] static void sumOlder(const TapTable& taps, const double* history, double* sums)
    {
        // Two ages at a time, so that the additions don't wait for each other.
        __m128d low0 = _mm_set1_pd(kHalf);
        __m128d high0 = low0;
        __m128d low1 = _mm_setzero_pd();
        __m128d high1 = low1;
        for (int age = kFirstAge + 4 * taps.foursOfAges() - 2; age >= kFirstAge; age -= 2) {
            const double* coefficients = taps.coefficients.data() + age - 1;
            const double* sample = history - age;
            const __m128d older0 = _mm_set1_pd(sample[0]);
            const __m128d older1 = _mm_set1_pd(sample[-1]);
            low0 = _mm_add_pd(low0, _mm_mul_pd(_mm_loadu_pd(coefficients), older0));
            high0 = _mm_add_pd(high0, _mm_mul_pd(_mm_loadu_pd(coefficients + 2), older0));
            low1 = _mm_add_pd(low1, _mm_mul_pd(_mm_loadu_pd(coefficients + 1), older1));
            high1 = _mm_add_pd(high1, _mm_mul_pd(_mm_loadu_pd(coefficients + 3), older1));
        }
        _mm_storeu_pd(sums, _mm_add_pd(low0, low1));
        _mm_storeu_pd(sums + 2, _mm_add_pd(high0, high1));
    }
};

#define KADPCM_AVX2 gnu::target("avx2,fma,bmi,bmi2,lzcnt,movbe")

struct Avx2Code
{
    static bool isSupported()
    {
        static const bool isSupported = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")
            && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2") && hasMovbeAndLzcnt();
        return isSupported;
    }

    [[KADPCM_AVX2]] static void sumOlder(const TapTable& taps, const double* history, double* sums)
    {
        __m256d sum0 = _mm256_set1_pd(kHalf);
        __m256d sum1 = _mm256_setzero_pd();
        __m256d sum2 = sum1;
        __m256d sum3 = sum1;
        const double* coefficients = taps.coefficients.data();
        const auto product = [&](__m256d sum, int age) __attribute__((always_inline, target("avx2,fma")))
        {
            return _mm256_fmadd_pd(_mm256_loadu_pd(coefficients + age - 1), _mm256_broadcast_sd(history - age), sum);
        };
        const auto addFour = [&](int age) __attribute__((always_inline, target("avx2,fma")))
        {
            sum0 = product(sum0, age + 3);
            sum1 = product(sum1, age + 2);
            sum2 = product(sum2, age + 1);
            sum3 = product(sum3, age);
        };
        switch (taps.foursOfAges()) { // the oldest first
        case 8:
            addFour(kFirstAge + 28);
            [[fallthrough]];
        case 7:
            addFour(kFirstAge + 24);
            [[fallthrough]];
        case 6:
            addFour(kFirstAge + 20);
            [[fallthrough]];
        case 5:
            addFour(kFirstAge + 16);
            [[fallthrough]];
        case 4:
            addFour(kFirstAge + 12);
            [[fallthrough]];
        case 3:
            addFour(kFirstAge + 8);
            [[fallthrough]];
        case 2:
            addFour(kFirstAge + 4);
            [[fallthrough]];
        case 1:
            addFour(kFirstAge);
            [[fallthrough]];
        default:
            break;
        }
        _mm256_storeu_pd(sums, _mm256_add_pd(_mm256_add_pd(sum0, sum1), _mm256_add_pd(sum2, sum3)));
    }

    [[KADPCM_AVX2]] static void dequantise(const std::array<uint32_t, kGroup>& codes, const Step& step,
                                           int64_t* differences)
    {
        const __m128i u = _mm_setr_epi32(static_cast<int>(codes[0]), static_cast<int>(codes[1]),
                                         static_cast<int>(codes[2]), static_cast<int>(codes[3]));
        const __m128i sign = _mm_sub_epi32(_mm_setzero_si128(), _mm_and_si128(u, _mm_set1_epi32(1)));
        const __m256d q = _mm256_cvtepi32_pd(_mm_xor_si128(_mm_srli_epi32(u, 1), sign));
        const __m256d exact = _mm256_fmadd_pd(q, _mm256_set1_pd(step.value), _mm256_set1_pd(0.5));
        const __m256d limit = _mm256_set1_pd(1 << 17);
        const __m256d limited = _mm256_max_pd(_mm256_min_pd(_mm256_floor_pd(exact), limit), -limit);
        const __m256i whole = _mm256_cvtepi32_epi64(_mm256_cvttpd_epi32(limited));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(differences), whole);
    }

private:
    // Not every compiler knows these two by name.
    static bool hasMovbeAndLzcnt()
    {
        unsigned a = 0;
        unsigned b = 0;
        unsigned basic = 0;
        unsigned extended = 0;
        unsigned d = 0;
        return __get_cpuid(1, &a, &b, &basic, &d) && __get_cpuid(0x80000001, &a, &b, &extended, &d)
            && (basic & bit_MOVBE) && (extended & bit_LZCNT);
    }
};

#endif

// Predicts the samples of one block in order. Each prediction is followed by add(). Predictions are rounded, and are
// those of differences, see bank/kadpcm.hpp.
class Prediction
{
public:
    // Raises the order by one.
    void grow(int32_t reflection)
    {
        const int order = ++mTaps.order;
        const auto previous = mCoefficients;
        for (int j = 1; j < order; ++j) {
            const int64_t product = static_cast<int64_t>(reflection) * previous[at(order - j)];
            mCoefficients[at(j)] = static_cast<int32_t>(
                std::clamp<int64_t>(previous[at(j)] - ((product + (1 << 19)) >> 20), -(1 << 30), 1 << 30));
        }
        mCoefficients[at(order)] = reflection;
    }

    // The prediction of the next sample.
    [[nodiscard]] int64_t next()
    {
        makeRoom(1);
        double sum = kHalf;
        for (int j = mTaps.order; j > 0; --j)
            sum += mCoefficients[at(j)] * mWindow[mEnd - static_cast<size_t>(j)];
        return static_cast<int64_t>(sum) >> 20;
    }

    // The order is final: groups may follow.
    void beginGroups()
    {
        std::copy(mCoefficients.begin(), mCoefficients.end(), mTaps.coefficients.begin());
        std::copy_n(mCoefficients.begin(), mNewest.size(), mNewest.begin());
    }

    // What the prediction of a group needs at hand: a local variable, so that it stays in registers.
    struct Group
    {
        std::array<int64_t, kNewestTaps + kGroup> differences{}; // the newest before the group, then those of the group
    };

    // The state before the first group.
    [[nodiscard]] Group firstGroup() const
    {
        Group group;
        for (size_t i = 0; i < kNewestTaps; ++i)
            group.differences[kGroup + i] = static_cast<int64_t>(mWindow[mEnd - kNewestTaps + i]);
        return group;
    }

    // Goes on to the next group of kGroup samples. sums: kGroup values, for inGroup().
    template <typename Code>
    [[gnu::always_inline]] void nextGroup(Group& group, double* sums)
    {
        makeRoom(kGroup);
        Code::sumOlder(mTaps, &mWindow[mEnd], sums);
        unrolled<kNewestTaps>([&](auto i) __attribute__((always_inline)) {
            group.differences[i] = group.differences[kGroup + i];
        });
    }

    // The prediction of sample k of the group.
    template <size_t k>
    [[nodiscard, gnu::always_inline]] int64_t inGroup(const Group& group, const double* sums) const
    {
        auto sum = static_cast<int64_t>(sums[k]);
        unrolled<k + kNewestTaps>([&](auto i) __attribute__((always_inline)) {
            sum += mNewest[k + kNewestTaps - 1 - i] * group.differences[i];
        });
        return sum >> 20;
    }

    template <size_t k>
    [[gnu::always_inline]] void addInGroup(Group& group, int64_t difference)
    {
        group.differences[kNewestTaps + k] = difference;
        mWindow[mEnd + k] = static_cast<double>(difference);
    }

    // After the last sample of a group.
    void endGroup() { mEnd += kGroup; }

    void add(int64_t difference) { mWindow[mEnd++] = static_cast<double>(difference); }

private:
    static constexpr size_t at(int tap) { return static_cast<size_t>(tap - 1); }

    // Moves the latest differences to the front of the window when it is full.
    void makeRoom(size_t count)
    {
        if (mEnd + count <= mWindow.size())
            return;
        std::copy_n(mWindow.begin() + static_cast<ptrdiff_t>(mEnd - kHistoryFrames), kHistoryFrames, mWindow.begin());
        mEnd = kHistoryFrames;
    }

    std::array<int32_t, kMaximumOrder> mCoefficients{}; // in 1/2^20
    TapTable mTaps;
    std::array<int64_t, kNewestTaps + kGroup - 1> mNewest{}; // coefficients
    std::array<double, kHistoryFrames + 64 * kGroup> mWindow{}; // the latest differences
    size_t mEnd = kHistoryFrames;
};

} // namespace bank::kadpcm
