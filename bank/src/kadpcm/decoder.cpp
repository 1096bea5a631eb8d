// SPDX-License-Identifier: MIT
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
        mStep.size = stepSize(bytes[0]);
        mStep.value = static_cast<double>(mStep.size) / 256;
        mStride = channel.stride;
        mPrevious = channel.first ? 0 : -1;
        mNext.sample = channel.samples;
        mNext.code = mEnd.open(bytes.subspan(1));
        const auto read = [&](int count) {
            return mEnd.prepare(mNext.code) ? mNext.code.readSigned(count) : 0;
        };
        mCoupling = channel.first ? 0 : (read(kCouplingBits) & 31) - kCouplingOffset;
        mStart = read(kStartBits) & 31;
        if (mStart > kHighestStart)
            return false;
        mNext.code.parameter = RiceParameter(mStart);
        for (int i = 1; i <= order; ++i)
            mReflections[static_cast<size_t>(i - 1)] = reflectionCoefficient(i, read(coefficientBits(i)));
        const int sample = read(kFirstSampleBits);
        mPrediction.add(sample - coupled(mNext));
        *mNext.sample = static_cast<int16_t>(sample);
        mNext.sample += mStride;
        return true;
    }

    [[nodiscard]] int order() const { return mOrder; }

    // Decodes the samples from first to end one by one. False: damaged.
    bool decode(int first, int end)
    {
        for (int n = first; n < end; ++n) {
            if (!mEnd.prepare(mNext.code))
                return false;
            uint32_t u = 0;
            if (n <= mOrder) {
                mPrediction.grow(mReflections[static_cast<size_t>(n - 1)]);
                if (!mNext.code.readExpGolomb(mStart, &u))
                    return false;
            } else {
                u = mNext.code.readRice();
            }
            mPrediction.add(store(mNext, mPrediction.next(), dequantised(unfold(u), mStep.size)));
        }
        return true;
    }

    // Prepares for groups: all samples up to the order were decoded.
    void beginGroups()
    {
        mPrediction.beginGroups();
        mGroup = mPrediction.firstGroup();
    }

    // Decodes the blocks of adjacent channels together, in groups from sample n on, as long as whole groups remain.
    // Returns the first sample after them, or 0 for damage. A sample waits for the one before it, but hardly for that
    // of another channel. The loop works on copies of what it changes, which stay in registers.
    template <typename Code, size_t Count>
    [[gnu::always_inline]] static int decodeGroups(std::array<PredictedBlock, Count>& blocks, int n, int frames)
    {
        std::array<Next, Count> next;
        std::array<Prediction::Group, Count> groups;
        unrolled<Count>([&](auto i) __attribute__((always_inline)) {
            next[i] = blocks[i].mNext;
            groups[i] = blocks[i].mGroup;
        });
        for (; n + kGroup <= frames; n += kGroup) {
            bool isDamaged = false;
            unrolled<Count>([&](auto i) __attribute__((always_inline)) {
                isDamaged |= !blocks[i].template decodeGroup<Code>(next[i], groups[i]);
            });
            if (isDamaged) [[unlikely]]
                return 0;
        }
        unrolled<Count>([&](auto i) { blocks[i].mNext = next[i]; });
        return n;
    }

    // Whether all was read but the padding of the last byte, and nothing beyond it.
    [[nodiscard]] bool isAtEnd() const { return mEnd.isReached(mNext.code); }

private:
    // The next sample, and the code that it is made from.
    struct Next
    {
        CodePosition code;
        int16_t* sample = nullptr;
    };

    // False: there are no bits left.
    template <typename Code>
    [[gnu::always_inline]] bool decodeGroup(Next& next, Prediction::Group& group)
    {
        if (!mEnd.prepare(next.code)) [[unlikely]]
            return false;
        double sums[kGroup];
        mPrediction.nextGroup<Code>(group, sums);
        int64_t differences[kGroup];
        Code::dequantise(next.code.readRiceGroup(), mStep, differences);
        unrolled<kGroup>([&](auto k) __attribute__((always_inline)) {
            const int64_t predicted = mPrediction.inGroup<k>(group, sums);
            mPrediction.addInGroup<k>(group, store(next, predicted, differences[k]));
        });
        mPrediction.endGroup();
        return true;
    }

    // What the previous channel's sample contributes. The first channel has a coupling of 0, and takes its own.
    [[nodiscard, gnu::always_inline]] int64_t coupled(const Next& next) const
    {
        return mCoupling == 0 ? 0 : couple(mCoupling, next.sample[mPrevious]);
    }

    // Stores the next sample. Returns what the prediction of later samples needs of it.
    [[gnu::always_inline]] int64_t store(Next& next, int64_t predicted, int64_t difference) const
    {
        const int64_t c = coupled(next);
        const int64_t sample = clampSample(clampSample(c + predicted) + difference);
        *next.sample = static_cast<int16_t>(sample);
        next.sample += mStride;
        return sample - c;
    }

    CodeEnd mEnd;
    Next mNext;
    ptrdiff_t mStride = 0;
    ptrdiff_t mPrevious = 0; // offset of the previous channel
    int mOrder = 0;
    Step mStep;
    int64_t mCoupling = 0;
    int mStart = 0;
    std::array<int32_t, kMaximumOrder> mReflections{};
    Prediction mPrediction;
    Prediction::Group mGroup;
};

#ifdef __x86_64__

template <size_t Count>
[[KADPCM_AVX2]] int decodeGroupsAvx2(std::array<PredictedBlock, Count>& blocks, int n, int frames)
{
    return PredictedBlock::decodeGroups<Avx2Code>(blocks, n, frames);
}

template <size_t Count>
int decodeGroups(std::array<PredictedBlock, Count>& blocks, int n, int frames)
{
    return Avx2Code::isSupported() ? decodeGroupsAvx2(blocks, n, frames)
                                   : PredictedBlock::decodeGroups<Sse2Code>(blocks, n, frames);
}

#else

template <size_t Count>
int decodeGroups(std::array<PredictedBlock, Count>& blocks, int n, int frames)
{
    return PredictedBlock::decodeGroups<PlainCode>(blocks, n, frames);
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
    const int n = decodeGroups(blocks, first, frames);
    if (n == 0)
        return false;
    return std::all_of(blocks.begin(), blocks.end(),
                       [&](PredictedBlock& block) { return block.decode(n, frames) && block.isAtEnd(); });
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
