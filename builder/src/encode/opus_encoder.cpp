// SPDX-License-Identifier: MIT
#include "encode/data_stream.hpp"
#include "encode/encoders.hpp"
#include "encode/opus_seeking.hpp"
#include "encode/seam.hpp"

#include <opus/opus_multistream.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace builder {

using base::Error;
using base::ErrorCode;

namespace {

constexpr int64_t kFramesPerSecond = 50; // packets of 20 ms

// Decoding can start at the start of the sound, about once a second, and before both ends of a loop.
constexpr int64_t kSeekPointInterval = kFramesPerSecond;
constexpr int64_t kConvergence = OpusSeekPoints::kConvergence;

// A seek point for an end of a loop is first tried this many packets before the last possible one. If a trial fails,
// the next packet is tried.
constexpr int64_t kSpareTrials = 4;

// The encoder adapts to a loop during this many packets before the first that is kept.
constexpr int64_t kWarmUp = 4;

constexpr size_t kMaximumPacketBytesPerStream = 1275 * 3 + 7;

struct DestroyEncoder
{
    void operator()(OpusMSEncoder* encoder) const { opus_multistream_encoder_destroy(encoder); }
};
using OpusLibraryEncoder = std::unique_ptr<OpusMSEncoder, DestroyEncoder>;

// One or two channels share a stream; of more channels, each has its own stream. The meaning of the channels isn't
// known (they may be six stems of a piece of music), so none is treated as a subwoofer and none are coupled.
OpusMapping streamMapping(int channels)
{
    static constexpr auto kInOrder = [] {
        std::array<uint8_t, bank::kMaximumChannels> table{};
        std::iota(table.begin(), table.end(), uint8_t(0));
        return table;
    }();
    return {channels, channels == 2 ? 1 : channels, channels == 2 ? 1 : 0, kInOrder.data()};
}

std::vector<uint8_t> packed(const OpusMapping& mapping)
{
    std::vector<uint8_t> setup = {uint8_t(mapping.streams), uint8_t(mapping.coupled)};
    setup.insert(setup.end(), mapping.table, mapping.table + mapping.channels);
    return setup;
}

base::Result<OpusLibraryEncoder> start(const PreparedFacts& facts, const OpusMapping& mapping, int quality)
{
    int failed = OPUS_OK;
    OpusLibraryEncoder library(opus_multistream_encoder_create(int(facts.sampleRate), facts.channels, mapping.streams,
                                                               mapping.coupled, mapping.table,
                                                               OPUS_APPLICATION_RESTRICTED_LOWDELAY, &failed));
    if (!library)
        return Error{failed == OPUS_ALLOC_FAIL ? ErrorCode::Memory : ErrorCode::Unsupported};
    const int bits = opusBitsPerChannel(quality, facts.sampleRate) * facts.channels;
    if (opus_multistream_encoder_ctl(library.get(), OPUS_SET_BITRATE(bits)) != OPUS_OK
        || opus_multistream_encoder_ctl(library.get(), OPUS_SET_VBR(1)) != OPUS_OK
        || opus_multistream_encoder_ctl(library.get(), OPUS_SET_VBR_CONSTRAINT(0)) != OPUS_OK
        || opus_multistream_encoder_ctl(library.get(), OPUS_SET_COMPLEXITY(10)) != OPUS_OK)
        return Error{ErrorCode::Codec};
    return library;
}

// Determines the number and the purposes of the packets. Packets are counted from the first that is encoded.
class Schedule
{
public:
    // lookahead: the delay of the encoder, in samples.
    Schedule(const PreparedFacts& facts, int64_t lookahead)
        : mFrame(int64_t(facts.sampleRate) / kFramesPerSecond)
        , mFirstKept(loopsAtStart(facts) ? kWarmUp : 0)
        , mStart(loopsAtStart(facts) ? -(kWarmUp + kConvergence) * mFrame : 0)
        , mSound(lookahead - mStart)
        , mPackets((mSound + int64_t(facts.sampleCount) + mFrame - 1) / mFrame)
    {
        if (facts.loop) {
            mLoopStartPoint = seekPointBefore(int64_t(facts.loop->start));
            mLoopEndPoint = seekPointBefore(std::max<int64_t>(0, int64_t(facts.loop->end) - kSeamFrames));
        }
    }

    [[nodiscard]] int64_t frame() const { return mFrame; } // samples of one packet
    [[nodiscard]] int64_t start() const { return mStart; } // position of the first sample encoded
    [[nodiscard]] int64_t packets() const { return mPackets; } // up to the sound's last sample
    [[nodiscard]] bool isKept(int64_t packet) const { return packet >= mFirstKept; }
    // Whether this is the first packet that is kept, or the next one. They must not depend on earlier packets, which
    // the decoder doesn't have.
    [[nodiscard]] bool standsAlone(int64_t packet) const { return packet >= mFirstKept && packet < mFirstKept + 2; }
    // Whether decoding should be able to start at a packet.
    [[nodiscard]] bool wantsSeekPoint(int64_t packet) const
    {
        if (packet <= mFirstKept)
            return false;
        const bool isDue = (packet - mFirstKept) % kSeekPointInterval == 0;
        return packet == mLoopStartPoint || packet == mLoopEndPoint || (isDue && !isNear(packet, mLoopEndPoint));
    }
    [[nodiscard]] bool wantsSeekPointSoon(int64_t packet) const
    {
        for (int64_t next = packet; next <= packet + OpusSeekPoints::kHistory; ++next) {
            if (wantsSeekPoint(next))
                return true;
        }
        return false;
    }
    // How many packets before an end of a loop must be decoded, so that the samples are correct there in spite of
    // failed trials.
    [[nodiscard]] static int64_t loopEndPackets() { return OpusSeekPoints::kHistory + kSpareTrials + kConvergence; }
    // The first frame of the sound that a packet decodes to; negative before the sound.
    [[nodiscard]] int64_t soundPosition(int64_t packet) const { return packet * mFrame - mSound; }
    // The position of the first sample of a packet, counted from the first packet that is kept.
    [[nodiscard]] int64_t position(int64_t packet) const { return (packet - mFirstKept) * mFrame; }
    [[nodiscard]] int64_t preSkip() const { return mSound - mFirstKept * mFrame; }

private:
    // Whether a packet is so close to a seek point that it needn't be one. Each seek point costs processor time.
    [[nodiscard]] static bool isNear(int64_t packet, int64_t seekPoint)
    {
        return seekPoint >= 0 && std::abs(packet - seekPoint) < kSeekPointInterval / 2;
    }

    // The packet of the first trial, so that decoding from there is correct at a frame of the sound.
    [[nodiscard]] int64_t seekPointBefore(int64_t frame) const
    {
        return (mSound + frame) / mFrame - kConvergence - kSpareTrials;
    }

    int64_t mFrame;
    int64_t mFirstKept;
    int64_t mStart;
    int64_t mSound; // decoded samples before the sound's first
    int64_t mPackets;
    int64_t mLoopStartPoint = -1; // packet of the seek point for the loop's start, -1 for none
    int64_t mLoopEndPoint = -1;
};

// Decodes packets to test seek points, and to record the samples around the seam of the loop.
//
// One decoder serves both purposes and skips the packets that neither needs. It isn't reset after a gap: its state then
// comes from another part of the sound, and is at least as wrong as the state of any decoder that has decoded from the
// start.
class PacketChecks
{
public:
    PacketChecks(const PreparedFacts& facts, const OpusMapping& mapping, const Schedule& schedule, SeamRecorder& seam)
        : mSchedule(schedule)
        , mSeam(seam)
        , mSeekPoints(mapping, facts.sampleRate, size_t(schedule.frame()))
        , mDecoder(mapping, facts.sampleRate, size_t(schedule.frame()))
    { }

    // Announces the next packet. Returns whether it must be encoded without prediction.
    [[nodiscard]] bool announce(int64_t packet)
    {
        mSeekPoints.announce(packet, mSchedule.wantsSeekPoint(packet));
        return mSchedule.standsAlone(packet) || mSeekPoints.disablesPrediction();
    }

    // Passes the packet that was announced, with its offset in the data.
    [[nodiscard]] base::Result<> take(int64_t packet, std::span<const uint8_t> bytes, uint64_t offset,
                                      std::vector<bank::SeekPoint>* points)
    {
        const int64_t first = mSchedule.soundPosition(packet);
        const int64_t end = first + (Schedule::loopEndPackets() + 1) * mSchedule.frame();
        if (!mSeekPoints.isOnTrial() && !mSchedule.wantsSeekPointSoon(packet) && !mSeam.wants(first, end))
            return {};
        if (const base::Result<> result = mDecoder.decode(bytes); !result)
            return result.error();
        // Soon after a gap, the decoder's state is wrong, and differences aren't errors of the encoder.
        const bool isGap = packet != mNext && mSchedule.position(packet) > 0;
        mUnsettled = isGap ? OpusSeekPoints::kHistory + kConvergence : std::max<int64_t>(mUnsettled - 1, 0);
        mNext = packet + 1;
        if (mUnsettled == 0)
            mSeam.decoded(first, mDecoder.frames());
        return mSeekPoints.take(bytes, {uint64_t(mSchedule.position(packet)), offset}, mDecoder.frames(), points);
    }

private:
    const Schedule& mSchedule;
    SeamRecorder& mSeam;
    OpusSeekPoints mSeekPoints;
    OpusPacketDecoder mDecoder;
    int64_t mNext = -1; // the packet that the decoder expects
    int64_t mUnsettled = 0; // packets until the decoded samples are correct
};

} // namespace

int opusBitsPerChannel(int quality, uint32_t sampleRate)
{
    constexpr std::array<std::pair<uint32_t, double>, 5> kFactors = {
        {{8'000, 0.4}, {12'000, 0.5}, {16'000, 0.6}, {24'000, 0.75}, {48'000, 1.0}}};
    double share = 1;
    for (const auto& [rate, factor] : kFactors) {
        if (rate == sampleRate)
            share = factor;
    }
    return int(std::lround(share * 48'000 * std::exp2((std::clamp(quality, 1, 100) - 50) / 25.0)));
}

base::Result<> OpusEncoder::encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                                   bank::Sound* encoded)
{
    const PreparedFacts& facts = sound.facts();
    const OpusMapping mapping = streamMapping(facts.channels);
    base::Result<OpusLibraryEncoder> started = start(facts, mapping, quality);
    if (!started)
        return started.error();
    OpusMSEncoder* library = started->get();
    opus_int32 lookahead = 0;
    if (opus_multistream_encoder_ctl(library, OPUS_GET_LOOKAHEAD(&lookahead)) != OPUS_OK)
        return Error{ErrorCode::Codec};

    const Schedule schedule(facts, lookahead);
    *encoded = describe(bank::Codec::Opus, facts);
    encoded->quality = uint8_t(quality);
    encoded->setup = packed(mapping);
    encoded->preSkip = uint32_t(schedule.preSkip());
    if (const base::Result<> result = sound.seek(schedule.start()); !result)
        return result.error();

    DataStream data(sink);
    SeamRecorder seam(facts);
    PacketChecks checks(facts, mapping, schedule, seam);
    std::vector<float> frames(size_t(schedule.frame()) * size_t(facts.channels));
    std::vector<uint8_t> packet(kMaximumPacketBytesPerStream * size_t(mapping.streams));
    for (int64_t index = 0; index < schedule.packets(); ++index) {
        if (stop.stop_requested())
            return Error{ErrorCode::Cancelled};
        if (const base::Result<> result = sound.readFloat(frames.data(), size_t(schedule.frame())); !result)
            return result.error();
        seam.encoded(schedule.start() + index * schedule.frame(), frames);
        const opus_int32 disablesPrediction = checks.announce(index);
        if (opus_multistream_encoder_ctl(library, OPUS_SET_PREDICTION_DISABLED(disablesPrediction)) != OPUS_OK)
            return Error{ErrorCode::Codec};
        const int bytes = opus_multistream_encode_float(library, frames.data(), int(schedule.frame()), packet.data(),
                                                        opus_int32(packet.size()));
        if (bytes <= 0)
            return Error{ErrorCode::Codec};
        if (!schedule.isKept(index))
            continue;
        const std::span<const uint8_t> made = std::span(packet).first(size_t(bytes));
        if (const base::Result<> result = checks.take(index, made, data.bytes(), &encoded->seekPoints); !result)
            return result.error();
        if (const base::Result<> result = data.writePacket(made); !result)
            return result.error();
    }
    seam.finish(encoded);
    return data.finish(encoded);
}

} // namespace builder
