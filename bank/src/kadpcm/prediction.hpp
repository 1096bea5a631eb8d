// SPDX-License-Identifier: MIT
// KADPCM's linear prediction, shared by decoder and encoder.
//
// A prediction is a sum over up to 32 older samples, and each sample is needed for the next prediction. But the
// products with samples that are older than a group of kGroup samples can be summed in advance, for all samples of the
// group at once. Double precision is exact for that: a coefficient is at most 2^30 and a difference below 1.5 * 2^16,
// so the sum of 32 products stays below 2^52, in any order of addition.
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

inline constexpr double kHalf = 1 << 19; // rounds a prediction, in 1/2^20
// Added before rounding to the nearest, so that the middle between two numbers is rounded up and nothing else changes:
// predictions are multiples of 2^-20, differences of 2^-8.
inline constexpr double kTieUp = 0x1p-21;

// The coefficients of the taps 1 to 32, then zeros: vector code reads whole vectors.
struct TapTable
{
    std::array<double, kMaximumOrder + 2 * kGroup> coefficients{};
    int order = 0;

    // How many times four ages are summed in advance. The highest may be above the order, where coefficients are zero.
    [[nodiscard]] int foursOfAges(int firstAge) const { return std::max(0, (order - firstAge + 4) / 4); }
};

// The sums of what is older than a group. All three compute the same: PlainCode on any processor and as the reference
// of the others, Avx2Code where Avx2Code::isSupported().
//
// Ages are counted from the first sample of the group, which begins at history[0]. sumOlder: for each sample k, start
// and the products of all taps from FirstAge + k on, those of the samples from FirstAge on.
struct PlainCode
{
    template <int FirstAge>
    static void sumOlder(const TapTable& taps, double start, const double* history, double* sums)
    {
        for (int k = 0; k < kGroup; ++k) {
            sums[k] = start;
            for (int age = FirstAge; age + k <= taps.order; ++age)
                sums[k] += taps.coefficients[static_cast<size_t>(age + k - 1)] * history[-age];
        }
    }
};

#ifdef __x86_64__

// multiplyAdd: a * b + c of two doubles each. nearest: rounds values below 2^51 to whole numbers. addCodes: adds the
// differences that the codes of a group stand for, in samples, to kGroup sums, and returns them. A difference that an
// integer can't hold, which no encoder writes, is returned as the least integer.
struct Sse2Code
{
    template <int FirstAge>
    [[gnu::always_inline]] static void sumOlder(const TapTable& taps, double start, const double* history, double* sums)
    {
        // Two ages at a time, so that the additions don't wait for each other.
        __m128d low0 = _mm_set1_pd(start);
        __m128d high0 = low0;
        __m128d low1 = _mm_setzero_pd();
        __m128d high1 = low1;
        for (int age = FirstAge + 4 * taps.foursOfAges(FirstAge) - 2; age >= FirstAge; age -= 2) {
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

    static __m128d multiplyAdd(__m128d a, __m128d b, __m128d c) { return _mm_add_pd(_mm_mul_pd(a, b), c); }

    static __m128d nearest(__m128d value)
    {
        const __m128d unit = _mm_set1_pd(3.0 * (int64_t{1} << 51)); // a double of this size has no fraction
        return _mm_sub_pd(_mm_add_pd(value, unit), unit);
    }

    static __m128i addCodes(__m128i codes, double step, double* sums)
    {
        const __m128i q = unfold(codes);
        const __m128i low = addTwo(q, step, sums);
        return _mm_unpacklo_epi64(low, addTwo(_mm_unpackhi_epi64(q, q), step, sums + 2));
    }

protected:
    static __m128i unfold(__m128i codes)
    {
        const __m128i sign = _mm_sub_epi32(_mm_setzero_si128(), _mm_and_si128(codes, _mm_set1_epi32(1)));
        return _mm_xor_si128(_mm_srli_epi32(codes, 1), sign);
    }

private:
    static __m128i addTwo(__m128i q, double step, double* sums)
    {
        const __m128d exact = multiplyAdd(_mm_cvtepi32_pd(q), _mm_set1_pd(step), _mm_set1_pd(kTieUp));
        const __m128d differences = nearest(exact);
        _mm_storeu_pd(sums, _mm_add_pd(_mm_loadu_pd(sums), differences));
        return _mm_cvttpd_epi32(differences);
    }
};

#define KADPCM_AVX2 gnu::target("avx2,fma,bmi,bmi2,lzcnt,movbe")

struct Avx2Code : private Sse2Code
{
    static bool isSupported()
    {
        static const bool isSupported = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")
            && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2") && hasMovbeAndLzcnt();
        return isSupported;
    }

    template <int FirstAge>
    [[KADPCM_AVX2]] static void sumOlder(const TapTable& taps, double start, const double* history, double* sums)
    {
        __m256d sum0 = _mm256_set1_pd(start);
        __m256d sum1 = _mm256_setzero_pd();
        __m256d sum2 = sum1;
        __m256d sum3 = sum1;
        const double* coefficients = taps.coefficients.data();
        const auto product = [&](__m256d sum, int age) __attribute__((always_inline, target("avx2,fma")))
        {
            return _mm256_fmadd_pd(_mm256_loadu_pd(coefficients + age - 1), _mm256_broadcast_sd(history - age), sum);
        };
        for (int age = FirstAge + 4 * (taps.foursOfAges(FirstAge) - 1); age >= FirstAge; age -= 4) { // the oldest first
            sum0 = product(sum0, age + 3);
            sum1 = product(sum1, age + 2);
            sum2 = product(sum2, age + 1);
            sum3 = product(sum3, age);
        }
        _mm256_storeu_pd(sums, _mm256_add_pd(_mm256_add_pd(sum0, sum1), _mm256_add_pd(sum2, sum3)));
    }

    [[KADPCM_AVX2]] static __m128d multiplyAdd(__m128d a, __m128d b, __m128d c) { return _mm_fmadd_pd(a, b, c); }

    [[KADPCM_AVX2]] static __m128d nearest(__m128d value)
    {
        return _mm_round_pd(value, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    }

    [[KADPCM_AVX2]] static __m128i addCodes(__m128i codes, double step, double* sums)
    {
        const __m256d exact =
            _mm256_fmadd_pd(_mm256_cvtepi32_pd(unfold(codes)), _mm256_set1_pd(step), _mm256_set1_pd(kTieUp));
        const __m256d differences = _mm256_round_pd(exact, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
        _mm256_storeu_pd(sums, _mm256_add_pd(_mm256_loadu_pd(sums), differences));
        return _mm256_cvttpd_epi32(differences);
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
        const auto grown = [&](int32_t tap, int32_t opposite) {
            const int64_t product = static_cast<int64_t>(reflection) * opposite;
            return static_cast<int32_t>(std::clamp<int64_t>(tap - ((product + (1 << 19)) >> 20), -(1 << 30), 1 << 30));
        };
        for (int j = 1, k = order - 1; j <= k; ++j, --k) {
            const int32_t low = mCoefficients[at(j)];
            const int32_t high = mCoefficients[at(k)];
            mCoefficients[at(j)] = grown(low, high);
            mCoefficients[at(k)] = grown(high, low);
        }
        mCoefficients[at(order)] = reflection;
    }

    // The prediction of the next sample.
    [[nodiscard]] int64_t next()
    {
        makeRoom(1);
        const double* newest = &mWindow[mEnd];
        const auto product = [&](int j) {
            return mCoefficients[at(j)] * newest[-j];
        };
        double sum = kHalf;
        double odd = 0; // two sums, so that the additions don't wait for each other
        int j = mTaps.order;
        for (; j > 1; j -= 2) {
            sum += product(j);
            odd += product(j - 1);
        }
        if (j > 0)
            sum += product(j);
        return static_cast<int64_t>(sum + odd) >> 20;
    }

    // The order is final: groups may follow. unit: of the sums, in 1/2^20.
    void beginGroups(double unit)
    {
        std::transform(mCoefficients.begin(), mCoefficients.end(), mTaps.coefficients.begin(),
                       [unit](int32_t coefficient) { return coefficient / unit; });
    }

    // For each sample of the next group, start and the products of its taps from FirstAge on, see PlainCode.
    template <typename Code, int FirstAge>
    [[gnu::always_inline]] void sumOlder(double start, double* sums)
    {
        makeRoom(kGroup);
        Code::template sumOlder<FirstAge>(mTaps, start, &mWindow[mEnd], sums);
    }

    // In units.
    [[nodiscard]] double coefficient(int tap) const { return mTaps.coefficients[at(tap)]; }

    // The difference of that age: 1 is the newest.
    [[nodiscard]] double difference(size_t age) const { return mWindow[mEnd - age]; }

    void add(int64_t difference) { mWindow[mEnd++] = static_cast<double>(difference); }

#ifdef __x86_64__
    [[gnu::always_inline]] void addGroup(__m128d low, __m128d high)
    {
        double* const next = &mWindow[mEnd];
        mEnd += kGroup;
        _mm_storeu_pd(next, low);
        _mm_storeu_pd(next + 2, high);
    }
#endif

private:
    static constexpr size_t at(int tap)
    {
        return static_cast<size_t>(tap - 1);
    }

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
    std::array<double, kHistoryFrames + 64 * kGroup> mWindow{}; // the latest differences
    size_t mEnd = kHistoryFrames;
};

} // namespace bank::kadpcm
