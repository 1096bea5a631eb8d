// SPDX-License-Identifier: MIT
#include "base/bytes.hpp"
#include "kadpcm/format.hpp"
#include "kadpcm/prediction.hpp"

#include <cassert>
#include <cstring>

namespace bank::kadpcm {

namespace {

// Reads bits, most significant first. Beyond the end there are zeros, so that the end needs no check before everything
// was read.
class BitReader
{
public:
    BitReader() = default;
    BitReader(const BitReader&) = delete;
    BitReader& operator=(const BitReader&) = delete;

    // What reading changes: a copy of it stays in registers.
    struct State
    {
        const uint8_t* bytes = nullptr;
        uint64_t position = 0; // in bits, from bytes on

        // The next 57 bits or more, from the top.
        [[nodiscard, gnu::always_inline]] uint64_t bits() const
        {
            uint64_t word;
            std::memcpy(&word, bytes + (position >> 3), sizeof word);
            return __builtin_bswap64(word) << (position & 7);
        }

        // count: 1 to 32.
        uint32_t read(int count)
        {
            const auto value = static_cast<uint32_t>(bits() >> (64 - count));
            position += static_cast<unsigned>(count);
            return value;
        }

        int readSigned(int count)
        {
            const uint32_t sign = 1U << (count - 1);
            return static_cast<int>(read(count) ^ sign) - static_cast<int>(sign);
        }

        // False: more zeros than the code has.
        bool readExpGolomb(int parameter, uint32_t* u)
        {
            const int zeros = std::countl_zero(bits());
            if (zeros > kEscapeBits - parameter)
                return false;
            position += static_cast<unsigned>(zeros);
            *u = read(zeros + parameter + 1) - (1U << parameter);
            return true;
        }

        [[gnu::always_inline]] uint32_t readRice(int parameter)
        {
            const uint64_t next = bits();
            const auto zeros = static_cast<unsigned>(std::countl_zero(next));
            if (zeros >= kEscapeZeros) [[unlikely]] {
                position += kEscapeZeros;
                return read(kEscapeBits);
            }
            // The one that ends the zeros is read as a bit above the low ones.
            position += zeros + 1 + static_cast<unsigned>(parameter);
            return ((zeros - 1) << parameter) + static_cast<uint32_t>(next << zeros >> (63 ^ parameter));
        }
    };

    [[nodiscard]] State open(std::span<const uint8_t> bytes)
    {
        mEnd = bytes.data() + bytes.size();
        return {bytes.data(), 0};
    }

    // Before a group of codes, or a field of the header: makes as many bytes readable as those can take. False: more was
    // read than there was.
    [[nodiscard, gnu::always_inline]] bool prepare(State& state)
    {
        const ptrdiff_t left = mEnd - state.bytes - static_cast<ptrdiff_t>(state.position >> 3);
        return left >= kGroupBytes || enterTail(state, left);
    }

    // Whether all was read but the padding of the last byte, and nothing beyond it.
    [[nodiscard]] bool atEnd(const State& state) const
    {
        const ptrdiff_t left = (mEnd - state.bytes) * 8 - static_cast<ptrdiff_t>(state.position);
        return left >= 0 && left < 8;
    }

private:
    static constexpr ptrdiff_t kGroupBytes = (kGroup * (kEscapeZeros + kEscapeBits) + 7) / 8 + 8;

    [[gnu::noinline]] bool enterTail(State& state, ptrdiff_t left)
    {
        if (mInTail)
            return left >= 0;
        const uint8_t* next = mEnd - left;
        std::copy_n(next, left, mTail.begin());
        state.bytes = mTail.data();
        state.position &= 7;
        mEnd = mTail.data() + left;
        mInTail = true;
        return true;
    }

    const uint8_t* mEnd = nullptr;
    bool mInTail = false;
    std::array<uint8_t, 2 * kGroupBytes> mTail{}; // the last bytes, and zeros for whatever is read beyond them
};

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
    // Reads what precedes the codes and decodes the first sample. False: damaged.
    bool open(int order, std::span<const uint8_t> bytes, const Channel& channel)
    {
        if (bytes.empty())
            return false;
        mOrder = order;
        mStepSize = stepSize(bytes[0]);
        mStride = channel.stride;
        mPrevious = channel.first ? 0 : -1;
        mState.sample = channel.samples;
        BitReader::State& bits = mState.bits = mReader.open(bytes.subspan(1));
        const auto read = [&](int count) {
            return mReader.prepare(bits) ? bits.readSigned(count) : 0;
        };
        mCoupling = channel.first ? 0 : static_cast<int>(static_cast<uint32_t>(read(kCouplingBits)) & 31) - kCouplingOffset;
        mStart = read(kStartBits) & 31;
        if (mStart > kHighestStart)
            return false;
        mState.parameter = RiceParameter(mStart);
        for (int i = 1; i <= order; ++i)
            mReflections[static_cast<size_t>(i - 1)] = reflectionCoefficient(i, read(coefficientBits(i)));
        const int sample = read(kFirstSampleBits);
        mPrediction.add(sample - coupled(mState));
        *mState.sample = static_cast<int16_t>(sample);
        mState.sample += mStride;
        return true;
    }

    [[nodiscard]] int order() const { return mOrder; }

    // Decodes the samples from first to end one by one. False: damaged.
    bool decode(int first, int end)
    {
        for (int n = first; n < end; ++n) {
            if (!mReader.prepare(mState.bits))
                return false;
            uint32_t u = 0;
            if (n <= mOrder) {
                mPrediction.grow(mReflections[static_cast<size_t>(n - 1)]);
                if (!mState.bits.readExpGolomb(mStart, &u))
                    return false;
            } else {
                u = mState.nextCode();
            }
            mPrediction.add(put(mState, mPrediction.next(), unfold(u)));
        }
        return true;
    }

    // Prepares for groups: all samples up to the order were decoded.
    void beginGroups()
    {
        mPrediction.beginGroups();
        mGroup = mPrediction.firstGroup();
    }

    // Decodes the blocks of adjacent channels in step, in groups from sample n on, as long as whole groups remain; returns
    // the first sample after them, or 0 for damage. A sample waits for the one before it, but not for that of another channel. What the
    // loop changes is copied, so that it stays in registers.
    template <typename Sums, size_t Count>
    [[gnu::always_inline]] static int decodeGroups(std::array<PredictedBlock, Count>& blocks, int n, int frames)
    {
        std::array<State, Count> states;
        std::array<Prediction::Group, Count> groups;
        unrolled<Count>([&](auto i) __attribute__((always_inline)) {
            states[i] = blocks[i].mState;
            groups[i] = blocks[i].mGroup;
        });
        for (; n + kGroup <= frames; n += kGroup) {
            bool isDamaged = false;
            unrolled<Count>([&](auto i) __attribute__((always_inline)) {
                PredictedBlock& block = blocks[i];
                isDamaged |= !block.mReader.prepare(states[i].bits);
                double sums[kGroup];
                block.mPrediction.template nextGroup<Sums>(groups[i], sums);
                int64_t codes[kGroup];
                unrolled<kGroup>([&](auto k) __attribute__((always_inline)) {
                    codes[k] = unfold(states[i].nextCode());
                });
                unrolled<kGroup>([&](auto k) __attribute__((always_inline)) {
                    const int64_t predicted = block.mPrediction.template inGroup<k>(groups[i], sums);
                    const int64_t difference = block.put(states[i], predicted, codes[k]);
                    block.mPrediction.template addInGroup<k>(groups[i], difference);
                });
                block.mPrediction.endGroup();
            });
            if (isDamaged) [[unlikely]]
                return 0;
        }
        unrolled<Count>([&](auto i) { blocks[i].mState = states[i]; });
        return n;
    }

    // Whether all was read but the padding of the last byte, and nothing beyond it.
    [[nodiscard]] bool atEnd() const { return mReader.atEnd(mState.bits); }

private:
    // What decoding a sample changes beside the prediction: a copy of it stays in registers.
    struct State
    {
        BitReader::State bits;
        RiceParameter parameter{0};
        int16_t* sample = nullptr; // the next one

        [[gnu::always_inline]] uint32_t nextCode()
        {
            const uint32_t u = bits.readRice(parameter.value());
            parameter.follow(u);
            return u;
        }
    };

    // What the previous channel's sample contributes. The first channel has a coupling of 0, and takes its own.
    [[nodiscard, gnu::always_inline]] int64_t coupled(const State& state) const
    {
        return mCoupling == 0 ? 0 : couple(mCoupling, state.sample[mPrevious]);
    }

    // Stores the next sample; returns its difference.
    [[gnu::always_inline]] int64_t put(State& state, int64_t predicted, int64_t q) const
    {
        const int64_t c = coupled(state);
        const int64_t sample = reconstruct(clampSample(c + predicted), q, mStepSize);
        *state.sample = static_cast<int16_t>(sample);
        state.sample += mStride;
        return sample - c;
    }

    BitReader mReader;
    State mState;
    ptrdiff_t mStride = 0;
    ptrdiff_t mPrevious = 0; // offset of the previous channel
    int mOrder = 0;
    int64_t mStepSize = 0;
    int64_t mCoupling = 0;
    int mStart = 0;
    std::array<int32_t, kMaximumOrder> mReflections{};
    Prediction mPrediction;
    Prediction::Group mGroup;
};

template <size_t Count>
int decodeGroups(std::array<PredictedBlock, Count>& blocks, int n, int frames)
{
#ifdef __x86_64__
    return PredictedBlock::decodeGroups<Sse2Sums>(blocks, n, frames);
#else
    return PredictedBlock::decodeGroups<PlainSums>(blocks, n, frames);
#endif
}

#ifdef __x86_64__
template <size_t Count>
[[gnu::target("avx2,bmi,bmi2,lzcnt")]] int decodeGroupsAvx2(std::array<PredictedBlock, Count>& blocks, int n,
                                                             int frames)
{
    return PredictedBlock::decodeGroups<Avx2Sums>(blocks, n, frames);
}
#endif

// Decodes blocks of adjacent channels.
template <size_t Count>
bool decodePredicted(std::array<PredictedBlock, Count>& blocks, int frames)
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
#ifdef __x86_64__
    static const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("bmi");
    const int n = hasAvx2 ? decodeGroupsAvx2(blocks, first, frames) : decodeGroups(blocks, first, frames);
#else
    const int n = decodeGroups(blocks, first, frames);
#endif
    if (n == 0)
        return false;
    for (PredictedBlock& block : blocks) {
        if (!block.decode(n, frames) || !block.atEnd())
            return false;
    }
    return true;
}

bool isPredicted(std::span<const uint8_t> block)
{
    return !block.empty() && block[0] <= kMaximumOrder;
}

bool decodeBlock(std::span<const uint8_t> bytes, const Channel& channel)
{
    if (bytes.empty())
        return false;
    const auto rest = bytes.subspan(1);
    if (bytes[0] == kPlainMode)
        return decodePlain(rest, channel);
    if (bytes[0] == kConstantMode)
        return decodeConstant(rest, channel);
    std::array<PredictedBlock, 1> block;
    return isPredicted(bytes) && block[0].open(bytes[0], rest, channel) && decodePredicted(block, channel.frames);
}

// Two blocks that are both predicted.
bool decodeBlockPair(std::span<const uint8_t> bytes, const Channel& channel, std::span<const uint8_t> nextBytes,
                     const Channel& nextChannel)
{
    std::array<PredictedBlock, 2> blocks;
    return blocks[0].open(bytes[0], bytes.subspan(1), channel)
        && blocks[1].open(nextBytes[0], nextBytes.subspan(1), nextChannel) && decodePredicted(blocks, channel.frames);
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

size_t decodeSuperblock(std::span<const uint8_t> bytes, int channels, int frames, int16_t* interleaved)
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
            if (!decodeBlockPair(block, channelAt(number), next, channelAt(number + 1)))
                return 0;
            total += 2 + next.size();
            ++number;
        } else if (!decodeBlock(block, channelAt(number))) {
            return 0;
        }
    }
    return total;
}

} // namespace bank::kadpcm
