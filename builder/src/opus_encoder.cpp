#include "data_stream.hpp"
#include "encoders.hpp"
#include "seam.hpp"

#include <opus/opus_multistream.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace tarnok {

using bank::Error;

namespace {

constexpr int64_t kFramesPerSecond = 50; // packets of 20 ms

// A packet that is predicted from nothing before it stands at the start, then every second, and before both ends of a
// loop.
// From such a packet on, a decoder that knows nothing of the sound is right after kConvergence more packets.
constexpr int64_t kKeyInterval = kFramesPerSecond;
constexpr int64_t kConvergence = 4;

// The encoder gets used to a loop during this many packets before the first that is kept.
constexpr int64_t kWarmUp = 4;

constexpr size_t kMaximumPacketBytesPerStream = 1275 * 3 + 7;

struct Destroy
{
    void operator()(OpusMSEncoder* encoder) const { opus_multistream_encoder_destroy(encoder); }
    void operator()(OpusMSDecoder* decoder) const { opus_multistream_decoder_destroy(decoder); }
};
using Library = std::unique_ptr<OpusMSEncoder, Destroy>;

// How the channels are spread over Opus streams: one or two share a stream, more have one each. What channels mean
// isn't known (they may be six stems of a music), so none is treated as a subwoofer and none are coupled.
struct Mapping
{
    explicit Mapping(int channels)
        : streams(channels == 2 ? 1 : channels)
        , coupled(channels == 2 ? 1 : 0)
    {
        for (size_t i = 0; i < table.size(); ++i)
            table[i] = uint8_t(i);
    }

    [[nodiscard]] std::vector<uint8_t> pack(int channels) const
    {
        std::vector<uint8_t> setup = {uint8_t(streams), uint8_t(coupled)};
        setup.insert(setup.end(), table.begin(), table.begin() + channels);
        return setup;
    }

    int streams;
    int coupled;
    std::array<uint8_t, bank::kMaximumChannels> table{};
};

bank::Result<Library> start(const PreparedFacts& facts, const Mapping& mapping, int quality)
{
    int failed = OPUS_OK;
    Library library(opus_multistream_encoder_create(int(facts.sampleRate), facts.channels, mapping.streams,
                                                    mapping.coupled, mapping.table.data(),
                                                    OPUS_APPLICATION_RESTRICTED_LOWDELAY, &failed));
    if (!library)
        return failed == OPUS_ALLOC_FAIL ? Error::Memory : Error::Unsupported;
    const int bits = opusBitsPerChannel(quality, facts.sampleRate) * facts.channels;
    if (opus_multistream_encoder_ctl(library.get(), OPUS_SET_BITRATE(bits)) != OPUS_OK
        || opus_multistream_encoder_ctl(library.get(), OPUS_SET_VBR(1)) != OPUS_OK
        || opus_multistream_encoder_ctl(library.get(), OPUS_SET_VBR_CONSTRAINT(0)) != OPUS_OK
        || opus_multistream_encoder_ctl(library.get(), OPUS_SET_COMPLEXITY(10)) != OPUS_OK)
        return Error::Encoder;
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
    [[nodiscard]] bool key(int64_t packet) const
    {
        return (packet - mFirstKept) % kKeyInterval == 0 || packet == mStartKey || packet == mEndKey;
    }
    // The sound's frame with which a packet begins to decode; before the sound below 0.
    [[nodiscard]] int64_t soundPosition(int64_t packet) const { return packet * mFrame - mSound; }
    // Of the first sample of a packet, counted from the first packet kept.
    [[nodiscard]] int64_t position(int64_t packet) const { return (packet - mFirstKept) * mFrame; }
    [[nodiscard]] int64_t leadIn() const { return mSound - mFirstKept * mFrame; }

private:
    // The packet from which a decoder has to begin to be right at a frame of the sound.
    [[nodiscard]] int64_t keyBefore(int64_t frame) const { return (mSound + frame) / mFrame - kConvergence; }

    int64_t mFrame;
    int64_t mFirstKept;
    int64_t mStart;
    int64_t mSound; // decoded samples before the sound's first
    int64_t mPackets;
    int64_t mStartKey = -1;
    int64_t mEndKey = -1;
};

// Decodes the packets around the seam of the loop.
class SeamDecoder
{
public:
    SeamDecoder(const PreparedFacts& facts, const Mapping& mapping, SeamRecorder& seam)
        : mLibrary(opus_multistream_decoder_create(int(facts.sampleRate), facts.channels, mapping.streams,
                                                   mapping.coupled, mapping.table.data(), nullptr))
        , mSeam(seam)
        , mChannels(size_t(facts.channels))
    { }

    // A packet as it is made, and all others in order. Where some were left out the decoder begins anew, with a
    // packet that the schedule has made a key for that.
    Error take(int64_t index, const Schedule& schedule, std::span<const uint8_t> packet)
    {
        const int64_t first = schedule.soundPosition(index);
        if (!mSeam.wants(first, first + (kConvergence + 1) * schedule.frame()))
            return Error::None;
        if (!mLibrary)
            return Error::Memory;
        if (index != mNext && opus_multistream_decoder_ctl(mLibrary.get(), OPUS_RESET_STATE) != OPUS_OK)
            return Error::Encoder;
        mNext = index + 1;
        mFrames.resize(size_t(schedule.frame()) * mChannels);
        const int count = opus_multistream_decode_float(mLibrary.get(), packet.data(), opus_int32(packet.size()),
                                                        mFrames.data(), int(schedule.frame()), 0);
        if (count != int(schedule.frame()))
            return Error::Encoder;
        mSeam.decoded(first, mFrames);
        return Error::None;
    }

private:
    std::unique_ptr<OpusMSDecoder, Destroy> mLibrary;
    SeamRecorder& mSeam;
    size_t mChannels;
    int64_t mNext = 0;
    std::vector<float> mFrames;
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

Error OpusEncoder::encode(PreparedSound& sound, int quality, bank::ByteSink& sink, std::stop_token stop,
                          bank::Sound* encoded)
{
    const PreparedFacts& facts = sound.facts();
    const Mapping mapping(facts.channels);
    bank::Result<Library> started = start(facts, mapping, quality);
    if (!started)
        return started.error();
    OpusMSEncoder* library = started->get();
    opus_int32 lookahead = 0;
    if (opus_multistream_encoder_ctl(library, OPUS_GET_LOOKAHEAD(&lookahead)) != OPUS_OK)
        return Error::Encoder;

    const Schedule schedule(facts, lookahead);
    *encoded = describe(bank::Codec::Opus, facts);
    encoded->quality = uint8_t(quality);
    encoded->setup = mapping.pack(facts.channels);
    encoded->leadIn = uint32_t(schedule.leadIn());
    if (const Error error = sound.seek(schedule.start()); error != Error::None)
        return error;

    DataStream data(sink);
    SeamRecorder seam(facts);
    SeamDecoder seamDecoder(facts, mapping, seam);
    std::vector<float> frames(size_t(schedule.frame()) * size_t(facts.channels));
    std::vector<uint8_t> packet(kMaximumPacketBytesPerStream * size_t(mapping.streams));
    for (int64_t index = 0; index < schedule.packets(); ++index) {
        if (stop.stop_requested())
            return Error::Cancelled;
        if (const Error error = sound.readFloat(frames.data(), size_t(schedule.frame())); error != Error::None)
            return error;
        seam.encoded(schedule.start() + index * schedule.frame(), frames);
        if (opus_multistream_encoder_ctl(library, OPUS_SET_PREDICTION_DISABLED(schedule.key(index))) != OPUS_OK)
            return Error::Encoder;
        const int bytes = opus_multistream_encode_float(library, frames.data(), int(schedule.frame()), packet.data(),
                                                        opus_int32(packet.size()));
        if (bytes <= 0)
            return Error::Encoder;
        if (!schedule.kept(index))
            continue;
        if (schedule.key(index) && schedule.position(index) > 0)
            encoded->seekPoints.push_back({uint64_t(schedule.position(index)), data.bytes()});
        const std::span<const uint8_t> made = std::span(packet).first(size_t(bytes));
        if (const Error error = seamDecoder.take(index, schedule, made); error != Error::None)
            return error;
        if (const Error error = data.writePacket(made); error != Error::None)
            return error;
    }
    seam.finish(encoded);
    return data.finish(encoded);
}

} // namespace tarnok
