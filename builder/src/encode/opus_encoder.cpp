#include "encode/data_stream.hpp"
#include "encode/encoders.hpp"
#include "encode/opus_seeking.hpp"
#include "encode/seam.hpp"

#include <opus/opus_multistream.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace tarnok {

using base::Error;
using base::ErrorCode;

namespace {

constexpr int64_t kFramesPerSecond = 50; // packets of 20 ms

// Decoding can begin at the start, about once a second, and before both ends of a loop.
constexpr int64_t kKeyInterval = kFramesPerSecond;
constexpr int64_t kConvergence = OpusSeekPoints::kConvergence;

// Packets before the last from which an end of a loop could be reached: so that there is time for another trial.
constexpr int64_t kSpareTrial = 4;

// The encoder gets used to a loop during this many packets before the first that is kept.
constexpr int64_t kWarmUp = 4;

constexpr size_t kMaximumPacketBytesPerStream = 1275 * 3 + 7;

struct Destroy
{
    void operator()(OpusMSEncoder* encoder) const { opus_multistream_encoder_destroy(encoder); }
};
using Library = std::unique_ptr<OpusMSEncoder, Destroy>;

// One or two channels share a stream, more have one each. What channels mean isn't known (they may be six stems of a
// music), so none is treated as a subwoofer and none are coupled.
OpusMapping mappingOf(int channels)
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

base::Result<Library> start(const PreparedFacts& facts, const OpusMapping& mapping, int quality)
{
    int failed = OPUS_OK;
    Library library(opus_multistream_encoder_create(int(facts.sampleRate), facts.channels, mapping.streams,
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

// Which packets there are, counted from the first that is encoded, and what each of them is for.
class Schedule
{
public:
    // lookahead: samples by which the encoder's output lags behind its input.
    Schedule(const PreparedFacts& facts, int64_t lookahead)
        : mFrame(int64_t(facts.sampleRate) / kFramesPerSecond)
        , mFirstKept(loopsAtStart(facts) ? kWarmUp : 0)
        , mStart(loopsAtStart(facts) ? -(kWarmUp + kConvergence) * mFrame : 0)
        , mSound(lookahead - mStart)
        , mPackets((mSound + int64_t(facts.sampleCount) + mFrame - 1) / mFrame)
    {
        if (facts.loop) {
            mStartKey = keyBefore(int64_t(facts.loop->start));
            mEndKey = keyBefore(std::max<int64_t>(0, int64_t(facts.loop->end) - kSeamFrames));
        }
    }

    [[nodiscard]] int64_t frame() const { return mFrame; } // samples of one packet
    [[nodiscard]] int64_t start() const { return mStart; } // position of the first sample encoded
    [[nodiscard]] int64_t packets() const { return mPackets; } // that reach to the sound's last sample
    [[nodiscard]] bool kept(int64_t packet) const { return packet >= mFirstKept; }
    // The first packet kept and the next one have nothing behind them that a decoder could know.
    [[nodiscard]] bool begins(int64_t packet) const { return packet >= mFirstKept && packet < mFirstKept + 2; }
    // Whether decoding should be able to begin at a packet.
    [[nodiscard]] bool wantsKey(int64_t packet) const
    {
        if (packet <= mFirstKept)
            return false;
        const bool isDue = (packet - mFirstKept) % kKeyInterval == 0;
        return packet == mStartKey || packet == mEndKey || (isDue && !isNear(packet, mEndKey));
    }
    [[nodiscard]] bool wantsKeySoon(int64_t packet) const
    {
        for (int64_t next = packet; next <= packet + OpusSeekPoints::kPast; ++next) {
            if (wantsKey(next))
                return true;
        }
        return false;
    }
    // Packets from the first that is decoded for an end of a loop to the last that needn't be right.
    [[nodiscard]] static int64_t approach() { return OpusSeekPoints::kPast + kSpareTrial + kConvergence; }
    // The sound's frame with which a packet begins to decode; before the sound below 0.
    [[nodiscard]] int64_t soundPosition(int64_t packet) const { return packet * mFrame - mSound; }
    // Of the first sample of a packet, counted from the first packet kept.
    [[nodiscard]] int64_t position(int64_t packet) const { return (packet - mFirstKept) * mFrame; }
    [[nodiscard]] int64_t preSkip() const { return mSound - mFirstKept * mFrame; }

private:
    // Whether a key takes over for one that is due so near to it. Each costs processor time.
    [[nodiscard]] static bool isNear(int64_t packet, int64_t key)
    {
        return key >= 0 && std::abs(packet - key) < kKeyInterval / 2;
    }

    // The packet where the first trial begins for a decoder that must be right at a frame of the sound.
    [[nodiscard]] int64_t keyBefore(int64_t frame) const
    {
        return (mSound + frame) / mFrame - kConvergence - kSpareTrial;
    }

    int64_t mFrame;
    int64_t mFirstKept;
    int64_t mStart;
    int64_t mSound; // decoded samples before the sound's first
    int64_t mPackets;
    int64_t mStartKey = -1;
    int64_t mEndKey = -1;
};

// What becomes of the packets: seek points that have been tried, and the samples around the seam of the loop.
//
// One decoder goes along where either is wanted. It isn't reset where it left packets out: what it then remembers, of
// another part of the sound, is as wrong as anything that a decoder from the start could have behind it.
class PacketChecks
{
public:
    PacketChecks(const PreparedFacts& facts, const OpusMapping& mapping, const Schedule& schedule, SeamRecorder& seam)
        : mSchedule(schedule)
        , mSeam(seam)
        , mSeekPoints(mapping, facts.sampleRate, size_t(schedule.frame()))
        , mDecoder(mapping, facts.sampleRate, size_t(schedule.frame()))
    { }

    // Whether the packet that is encoded next must not be predicted.
    [[nodiscard]] bool announce(int64_t packet)
    {
        mSeekPoints.announce(packet, mSchedule.wantsKey(packet));
        return mSchedule.begins(packet) || mSeekPoints.unpredicted();
    }

    // That packet, and where it goes.
    [[nodiscard]] base::Result<> take(int64_t packet, std::span<const uint8_t> bytes, uint64_t offset,
                                      std::vector<bank::SeekPoint>* points)
    {
        const int64_t first = mSchedule.soundPosition(packet);
        const int64_t end = first + (Schedule::approach() + 1) * mSchedule.frame();
        if (!mSeekPoints.onTrial() && !mSchedule.wantsKeySoon(packet) && !mSeam.wants(first, end))
            return {};
        if (const base::Result<> result = mDecoder.decode(bytes); !result)
            return result.error();
        // What it decodes at first after a gap is no error of the encoder's.
        const bool isGap = packet != mNext && mSchedule.position(packet) > 0;
        mUnsettled = isGap ? OpusSeekPoints::kPast + kConvergence : std::max<int64_t>(mUnsettled - 1, 0);
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
    int64_t mNext = -1; // packet that the decoder expects
    int64_t mUnsettled = 0; // packets until it is right
};

} // namespace

int opusBitsPerChannel(int quality, uint32_t sampleRate)
{
    constexpr std::array<std::pair<uint32_t, double>, 5> kShares = {
        {{8'000, 0.4}, {12'000, 0.5}, {16'000, 0.6}, {24'000, 0.75}, {48'000, 1.0}}};
    double share = 1;
    for (const auto& [rate, part] : kShares) {
        if (rate == sampleRate)
            share = part;
    }
    return int(std::lround(share * 48'000 * std::exp2((std::clamp(quality, 1, 100) - 50) / 25.0)));
}

base::Result<> OpusEncoder::encode(PreparedSound& sound, int quality, base::ByteSink& sink, std::stop_token stop,
                                   bank::Sound* encoded)
{
    const PreparedFacts& facts = sound.facts();
    const OpusMapping mapping = mappingOf(facts.channels);
    base::Result<Library> started = start(facts, mapping, quality);
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
        const opus_int32 unpredicted = checks.announce(index);
        if (opus_multistream_encoder_ctl(library, OPUS_SET_PREDICTION_DISABLED(unpredicted)) != OPUS_OK)
            return Error{ErrorCode::Codec};
        const int bytes = opus_multistream_encode_float(library, frames.data(), int(schedule.frame()), packet.data(),
                                                        opus_int32(packet.size()));
        if (bytes <= 0)
            return Error{ErrorCode::Codec};
        if (!schedule.kept(index))
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

} // namespace tarnok
