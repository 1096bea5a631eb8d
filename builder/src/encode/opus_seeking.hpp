// Finds the packets of an Opus stream from which a decoder comes to the same samples as one that comes from the start.
//
// What a decoder remembers fades as packets pass, but for two things. The loudness of the bands is predicted from the
// packet before, and the pitch filter repeats up to 1024 samples: so two packets in a row are encoded without
// prediction. And gaps in transients are filled by what the last two stationary packets were: so two such packets must
// be among the first three that are decoded after a seek. Whether there are isn't known before they are encoded, nor
// can it be forced. So every point that is wanted is tried: the packets are looked into, and decoded twice, by a
// decoder that begins there and by one that has a past. If these don't meet the point is given up, and the next packet
// tried.
#pragma once

#include "encode/encoder.hpp"

#include <opus/opus_multistream.h>

#include <memory>
#include <span>
#include <vector>

namespace tarnok {

// How the channels of a sound are spread over Opus streams.
struct OpusMapping
{
    int channels;
    int streams;
    int coupled;
    const uint8_t* table;
};

// Decodes packets of one length.
class OpusPacketDecoder
{
public:
    OpusPacketDecoder(const OpusMapping& mapping, uint32_t sampleRate, size_t frames);

    [[nodiscard]] base::Result<> reset();

    // The interleaved frames, valid until the next packet.
    [[nodiscard]] const std::vector<float>& frames() const { return mFrames; }
    [[nodiscard]] base::Result<> decode(std::span<const uint8_t> packet);

private:
    struct DestroyDecoder
    {
        void operator()(OpusMSDecoder* decoder) const { opus_multistream_decoder_destroy(decoder); }
    };

    std::unique_ptr<OpusMSDecoder, DestroyDecoder> mLibrary;
    std::vector<float> mFrames;
    size_t mChannels;
};

// Of one sound. Packets are counted by its encoder; each is announced, encoded, and then handed over.
class OpusSeekPoints
{
public:
    // Decoding is right so many packets after a seek point.
    static constexpr int64_t kConvergence = 4;

    // Packets that another decoder must have decoded before a point is tried, to have a past.
    static constexpr int64_t kPast = 2;

    OpusSeekPoints(const OpusMapping& mapping, uint32_t sampleRate, size_t frames);

    // Begins a trial with the next packet if it is wanted there, or was where none has succeeded since.
    void announce(int64_t packet, bool wanted);

    // Whether the packet that was announced last must be encoded without prediction.
    [[nodiscard]] bool unpredicted() const;

    // Whether a trial needs the packet's samples, from the other decoder.
    [[nodiscard]] bool onTrial() const { return mKey >= 0; }

    // The packet that was announced, and what the other decoder made of it. A trial that succeeds adds its seek point.
    [[nodiscard]] base::Result<> take(std::span<const uint8_t> packet, const bank::SeekPoint& point,
                                      std::span<const float> frames, std::vector<bank::SeekPoint>* points);

private:
    void count(std::span<const uint8_t> packet);
    [[nodiscard]] bool matches(std::span<const float> frames) const;

    OpusPacketDecoder mDecoder;
    std::vector<int> mStationary; // packets of each stream since the trial began
    int64_t mPacket = 0;
    int64_t mKey = -1; // packet that is tried, -1 for none
    bank::SeekPoint mPoint; // of it
    bool mStillWanted = false;
};

} // namespace tarnok
