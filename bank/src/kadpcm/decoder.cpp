// SPDX-License-Identifier: MIT
#include "kadpcm/decoder.hpp"

#include "base/bytes.hpp"
#include "kadpcm/code_reader.hpp"
#include "kadpcm/format.hpp"
#include "kadpcm/prediction.hpp"

#include <cassert>
#include <cstring>

namespace bank::kadpcm {

namespace {

// One channel of the samples that are being decoded.
struct Channel
{
    int16_t* samples;
    int stride;
    int frames;
    bool first;

    [[nodiscard]] int16_t& at(int frame) const { return samples[static_cast<ptrdiff_t>(frame) * stride]; }
};

bool decodePlain(std::span<const uint8_t> bytes, const Channel& channel)
{
    if (bytes.size() != 2 * static_cast<size_t>(channel.frames))
        return false;
    for (int n = 0; n < channel.frames; ++n)
        channel.at(n) = base::loadLittle<int16_t>(bytes.data() + 2 * static_cast<size_t>(n));
    return true;
}

bool decodeConstant(std::span<const uint8_t> bytes, const Channel& channel)
{
    if (bytes.size() != 2)
        return false;
    for (int n = 0; n < channel.frames; ++n)
        channel.at(n) = base::loadLittle<int16_t>(bytes.data());
    return true;
}

// One channel of a predicted block while it is decoded.
class PredictedBlock
{
public:
    // Reads the fields before the codes and decodes the first sample. False: damaged.
    bool open(int order, std::span<const uint8_t> bytes, const Channel& channel)
    {
        if (bytes.empty())
            return false;
        mOrder = order;
        mStep = stepSize(bytes[0]);
        mStepValue = static_cast<double>(mStep) / 256;
        mChannel = channel;
        mPosition = mEnd.open(bytes.subspan(1));
        const auto read = [&](int count) {
            return mEnd.prepare(mPosition) ? mPosition.readSigned(count) : 0;
        };
        mCoupling = channel.first ? 0 : (read(kCouplingBits) & 31) - kCouplingOffset;
        mStart = read(kStartBits) & 31;
        if (mStart > kHighestStart)
            return false;
        mPosition.parameter = RiceParameter(mStart);
        for (int i = 1; i <= order; ++i)
            mReflections[static_cast<size_t>(i - 1)] = reflectionCoefficient(i, read(coefficientBits(i)));
        const int sample = read(kFirstSampleBits);
        mPrediction.add(sample - coupled(0));
        mChannel.at(0) = static_cast<int16_t>(sample);
        return true;
    }

    [[nodiscard]] int order() const { return mOrder; }

    // Decodes the samples from first to end one by one. False: damaged.
    bool decode(int first, int end)
    {
        for (int n = first; n < end; ++n) {
            if (!mEnd.prepare(mPosition))
                return false;
            uint32_t u = 0;
            if (n <= mOrder) {
                mPrediction.grow(mReflections[static_cast<size_t>(n - 1)]);
                if (!mPosition.readExpGolomb(mStart, &u))
                    return false;
            } else {
                u = mPosition.readRice();
            }
            decodeSample(n, u);
        }
        return true;
    }

    // The order is reached: groups may follow.
    void beginGroups() { mPrediction.beginGroups(1 << 20); }

    // Whether all was read but the padding of the last byte, and nothing beyond it.
    [[nodiscard]] bool isAtEnd() const { return mEnd.isReached(mPosition); }

private:
    template <typename Code, size_t Count>
    friend class GroupDecoder;

    // What the previous channel's sample contributes.
    [[nodiscard]] int64_t coupled(int n) const
    {
        return mCoupling == 0 ? 0 : couple(mCoupling, *(&mChannel.at(n) - 1));
    }

    // Decodes sample n, whose code is u.
    void decodeSample(int n, uint32_t u)
    {
        const int64_t c = coupled(n);
        const int64_t predicted = clampSample(c + mPrediction.next());
        const int64_t sample = clampSample(predicted + dequantised(unfold(u), mStep));
        mChannel.at(n) = static_cast<int16_t>(sample);
        mPrediction.add(sample - c);
    }

    CodeEnd mEnd;
    CodePosition mPosition; // of the next sample's code
    Channel mChannel{};
    int mOrder = 0;
    int64_t mStep = 0; // its size, in 1/256
    double mStepValue = 0;
    int64_t mCoupling = 0;
    int mStart = 0;
    std::array<int32_t, kMaximumOrder> mReflections{};
    Prediction mPrediction;
};

#ifdef __x86_64__

// Decodes the blocks of one channel or of two adjacent ones together, kGroup samples of each at a time. Lane i of a
// vector of doubles belongs to block i.
//
// A sample's difference needs that of the sample before it: a multiplication and a rounding. Everything else is done
// before or after this chain, for all samples of the group at once. Before it, the codes are read and become
// differences from the prediction, which are added to the sums of the taps that are older than the previous group.
// After it, the other channel's share is added. Clipping would be part of the chain, but is rare. So it is left out,
// and a group in which a prediction or a sample has to be clipped is decoded again, sample by sample. Up to the first
// such sample of a group all numbers are exact, so it is noticed; what follows it may be anything.
template <typename Code, size_t Count>
class GroupDecoder
{
public:
    explicit GroupDecoder(std::array<PredictedBlock, Count>& blocks)
        : mBlocks(blocks)
    { }

    // Decodes from sample n on, as long as whole groups remain. All samples up to the orders were decoded. Returns the
    // first sample after them, or 0 for damage.
    [[gnu::always_inline]] int decode(int n, int frames)
    {
        for (size_t tap = 0; tap < std::size(mTaps); ++tap) {
            mTaps[tap] = lanes(
                [tap](PredictedBlock& block) { return block.mPrediction.coefficient(static_cast<int>(tap) + 1); });
        }
        // These stay in registers.
        std::array<CodePosition, Count> positions;
        unrolled<Count>([&](auto i) { positions[i] = mBlocks[i].mPosition; });
        Differences newest = newestDifferences();

        for (; n + kGroup <= frames; n += kGroup) {
            bool isReadable = true;
            unrolled<Count>([&](auto i) __attribute__((always_inline)) {
                isReadable = isReadable && mBlocks[i].mEnd.prepare(positions[i]);
            });
            if (!isReadable) [[unlikely]]
                return 0;
            double sums[2][kGroup];
            __m128i codes[Count];
            __m128i added[Count];
            unrolled<Count>([&](auto i) __attribute__((always_inline)) {
                PredictedBlock& block = mBlocks[i];
                block.mPrediction.template sumOlder<Code, kGroup + 1>(kTieUp, sums[i]);
                uint32_t read[kGroup];
                positions[i].readRiceGroup(read);
                codes[i] = _mm_setr_epi32(static_cast<int>(read[0]), static_cast<int>(read[1]),
                                          static_cast<int>(read[2]), static_cast<int>(read[3]));
                added[i] = Code::addCodes(codes[i], block.mStepValue, sums[i]);
            });
            newest = predict(sums[0], sums[Count - 1], newest);
            if (!finish(n, newest, added)) [[unlikely]] {
                decodeClipped(n, codes);
                newest = newestDifferences();
            }
        }
        unrolled<Count>([&](auto i) { mBlocks[i].mPosition = positions[i]; });
        return n;
    }

private:
    struct Differences
    {
        __m128d of[kGroup];
    };

    template <typename Value>
    [[nodiscard, gnu::always_inline]] __m128d lanes(const Value& value) const
    {
        return _mm_setr_pd(value(mBlocks[0]), value(mBlocks[Count - 1]));
    }

    [[nodiscard, gnu::always_inline]] Differences newestDifferences() const
    {
        Differences newest;
        unrolled<kGroup>([&](auto k) __attribute__((always_inline)) {
            newest.of[k] = lanes([k](PredictedBlock & block) __attribute__((always_inline)) {
                return block.mPrediction.difference(kGroup - k);
            });
        });
        return newest;
    }

    // The differences of a group. sums: what doesn't depend on newest, those of the group before.
    [[nodiscard, gnu::always_inline]] Differences predict(const double* sums0, const double* sums1,
                                                          const Differences& newest) const
    {
        __m128d differences[2 * kGroup];
        unrolled<kGroup>([&](auto k) { differences[k] = newest.of[k]; });
        unrolled<kGroup>([&](auto k) __attribute__((always_inline)) {
            const __m128d pair0 = _mm_loadu_pd(sums0 + k / 2 * 2);
            const __m128d pair1 = _mm_loadu_pd(sums1 + k / 2 * 2);
            // The group before, which is known first, then the codes, then this group.
            __m128d sum = _mm_mul_pd(mTaps[k + kGroup - 1], differences[0]);
            unrolled<kGroup - 1>([&](auto i) __attribute__((always_inline)) {
                sum = Code::multiplyAdd(mTaps[k + kGroup - 2 - i], differences[i + 1], sum);
            });
            sum = _mm_add_pd(sum, k % 2 == 0 ? _mm_unpacklo_pd(pair0, pair1) : _mm_unpackhi_pd(pair0, pair1));
            unrolled<k>([&](auto i) __attribute__((always_inline)) {
                sum = Code::multiplyAdd(mTaps[k - 1 - i], differences[kGroup + i], sum);
            });
            differences[kGroup + k] = Code::nearest(sum);
        });
        Differences result;
        unrolled<kGroup>([&](auto k) { result.of[k] = differences[kGroup + k]; });
        return result;
    }

    // Stores the group from sample n on. added: the part of the differences that isn't predicted. False, with nothing
    // stored: something has to be clipped.
    [[nodiscard, gnu::always_inline]] bool finish(int n, const Differences& differences, const __m128i* added)
    {
        __m128d low[Count];
        __m128d high[Count];
        __m128i samples[Count];
        __m128i outside = _mm_setzero_si128(); // not 0 in an upper half: something isn't 16 bits
        unrolled<Count>([&](auto i) __attribute__((always_inline)) {
            low[i] = i == 0 ? _mm_unpacklo_pd(differences.of[0], differences.of[1])
                            : _mm_unpackhi_pd(differences.of[0], differences.of[1]);
            high[i] = i == 0 ? _mm_unpacklo_pd(differences.of[2], differences.of[3])
                             : _mm_unpackhi_pd(differences.of[2], differences.of[3]);
            samples[i] = _mm_unpacklo_epi64(_mm_cvttpd_epi32(low[i]), _mm_cvttpd_epi32(high[i]));
            if (mBlocks[i].mCoupling != 0)
                samples[i] = _mm_add_epi32(samples[i], coupled(mBlocks[i], n, i == 0 ? nullptr : &samples[0]));
            const __m128i fromLowest = _mm_add_epi32(samples[i], _mm_set1_epi32(32'768));
            outside = _mm_or_si128(outside, _mm_or_si128(fromLowest, _mm_sub_epi32(fromLowest, added[i])));
        });
        const __m128i isInside = _mm_cmpeq_epi32(_mm_srli_epi32(outside, 16), _mm_setzero_si128());
        if (_mm_movemask_epi8(isInside) != 0xffff) [[unlikely]]
            return false;
        unrolled<Count>([&](auto i)
                            __attribute__((always_inline)) { mBlocks[i].mPrediction.addGroup(low[i], high[i]); });
        store(n, samples);
        return true;
    }

    // What the previous channel's samples from n on contribute. known: these samples, if they aren't stored yet. Those
    // that have to be clipped may give anything: the group is decoded again.
    [[nodiscard, gnu::always_inline]] static __m128i coupled(const PredictedBlock& block, int n, const __m128i* known)
    {
        const int16_t* previous = &block.mChannel.at(n) - 1;
        const auto stride = static_cast<ptrdiff_t>(block.mChannel.stride);
        const __m128i y =
            known ? *known : _mm_setr_epi32(previous[0], previous[stride], previous[2 * stride], previous[3 * stride]);
        const __m128i product = _mm_madd_epi16(y, _mm_set1_epi32(static_cast<int>(block.mCoupling) & 0xffff));
        return _mm_srai_epi32(_mm_add_epi32(product, _mm_set1_epi32(4)), 3);
    }

    [[gnu::always_inline]] void store(int n, const __m128i* samples)
    {
        constexpr size_t kFrameBytes = Count * sizeof(int16_t);
        const __m128i packed = _mm_packs_epi32(samples[0], samples[Count - 1]);
        alignas(16) std::array<uint8_t, 16> frames;
        _mm_store_si128(reinterpret_cast<__m128i*>(frames.data()),
                        Count == 1 ? packed : _mm_unpacklo_epi16(packed, _mm_unpackhi_epi64(packed, packed)));
        const Channel& channel = mBlocks[0].mChannel;
        if (channel.stride == Count) {
            std::memcpy(&channel.at(n), frames.data(), kGroup * kFrameBytes);
            return;
        }
        for (int k = 0; k < kGroup; ++k)
            std::memcpy(&channel.at(n + k), frames.data() + static_cast<size_t>(k) * kFrameBytes, kFrameBytes);
    }

    [[gnu::noinline, gnu::cold]] void decodeClipped(int n, const __m128i* codes)
    {
        for (size_t i = 0; i < Count; ++i) {
            std::array<uint32_t, kGroup> values;
            std::memcpy(values.data(), &codes[i], sizeof values);
            for (size_t k = 0; k < kGroup; ++k)
                mBlocks[i].decodeSample(n + static_cast<int>(k), values[k]);
        }
    }

    std::array<PredictedBlock, Count>& mBlocks;
    __m128d mTaps[2 * kGroup - 1]; // the newest
};

template <size_t Count>
[[KADPCM_AVX2]] int decodeGroupsAvx2(std::array<PredictedBlock, Count>& blocks, int n, int frames)
{
    return GroupDecoder<Avx2Code, Count>(blocks).decode(n, frames);
}

template <size_t Count>
int decodeGroups(std::array<PredictedBlock, Count>& blocks, int n, int frames, VectorCode code)
{
    switch (code) {
    case VectorCode::Avx2:
        return decodeGroupsAvx2(blocks, n, frames);
    case VectorCode::Sse2:
        return GroupDecoder<Sse2Code, Count>(blocks).decode(n, frames);
    case VectorCode::None:
        break;
    }
    return n;
}

#else

template <size_t Count>
int decodeGroups(std::array<PredictedBlock, Count>&, int n, int, VectorCode)
{
    return n;
}

#endif

// Decodes blocks of adjacent channels.
template <size_t Count>
bool decodePredicted(std::array<PredictedBlock, Count>& blocks, int frames, VectorCode code)
{
    int first = 1;
    for (const PredictedBlock& block : blocks)
        first = std::max(first, block.order() + 1);
    first = std::min(first, frames);
    for (PredictedBlock& block : blocks) {
        if (!block.decode(1, first))
            return false;
        block.beginGroups();
    }
    const int n = decodeGroups(blocks, first, frames, code);
    if (n == 0)
        return false;
    return std::all_of(blocks.begin(), blocks.end(),
                       [&](PredictedBlock& block) { return block.decode(n, frames) && block.isAtEnd(); });
}

bool isPredicted(std::span<const uint8_t> block)
{
    return !block.empty() && block[0] <= kMaximumOrder;
}

bool decodeBlock(std::span<const uint8_t> bytes, const Channel& channel, VectorCode code)
{
    if (bytes.empty())
        return false;
    const auto rest = bytes.subspan(1);
    if (bytes[0] == kPlainMode)
        return decodePlain(rest, channel);
    if (bytes[0] == kConstantMode)
        return decodeConstant(rest, channel);
    std::array<PredictedBlock, 1> block;
    return isPredicted(bytes) && block[0].open(bytes[0], rest, channel) && decodePredicted(block, channel.frames, code);
}

// Two blocks that are both predicted.
bool decodeBlockPair(std::span<const uint8_t> bytes, const Channel& channel, std::span<const uint8_t> nextBytes,
                     const Channel& nextChannel, VectorCode code)
{
    std::array<PredictedBlock, 2> blocks;
    return blocks[0].open(bytes[0], bytes.subspan(1), channel)
        && blocks[1].open(nextBytes[0], nextBytes.subspan(1), nextChannel)
        && decodePredicted(blocks, channel.frames, code);
}

// The channel block at the start of bytes, without its size, which is 2 bytes more. Empty: there is none.
std::span<const uint8_t> firstBlock(std::span<const uint8_t> bytes)
{
    if (bytes.size() < 2)
        return {};
    const size_t size = base::loadLittle<uint16_t>(bytes.data());
    return size <= bytes.size() - 2 ? bytes.subspan(2, size) : std::span<const uint8_t>();
}

} // namespace

size_t superblockBytes(std::span<const uint8_t> bytes, int channels)
{
    size_t total = 0;
    for (int channel = 0; channel < channels; ++channel) {
        const auto block = firstBlock(bytes.subspan(total));
        if (block.empty())
            return 0;
        total += 2 + block.size();
    }
    return total;
}

VectorCode bestVectorCode()
{
#ifdef __x86_64__
    return Avx2Code::isSupported() ? VectorCode::Avx2 : VectorCode::Sse2;
#else
    return VectorCode::None;
#endif
}

size_t decodeSuperblock(std::span<const uint8_t> bytes, int channels, int frames, int16_t* interleaved)
{
    return decodeSuperblock(bytes, channels, frames, interleaved, bestVectorCode());
}

size_t decodeSuperblock(std::span<const uint8_t> bytes, int channels, int frames, int16_t* interleaved, VectorCode code)
{
    assert(channels >= 1 && channels <= kMaximumChannels && frames >= 1 && frames <= kSuperblockFrames);
    const auto channelAt = [&](int number) {
        return Channel{interleaved + number, channels, frames, number == 0};
    };
    size_t total = 0;
    for (int number = 0; number < channels; ++number) {
        const auto block = firstBlock(bytes.subspan(total));
        if (block.empty())
            return 0;
        total += 2 + block.size();
        const auto next = number + 1 < channels ? firstBlock(bytes.subspan(total)) : std::span<const uint8_t>();
        if (isPredicted(block) && isPredicted(next)) {
            if (!decodeBlockPair(block, channelAt(number), next, channelAt(number + 1), code))
                return 0;
            total += 2 + next.size();
            ++number;
        } else if (!decodeBlock(block, channelAt(number), code)) {
            return 0;
        }
    }
    return total;
}

} // namespace bank::kadpcm
