// SPDX-License-Identifier: MIT
// Finds packets of an Opus stream at which decoding can start and soon gives the same samples as decoding from the
// start of the stream.
//
// The effect of a decoder's earlier state fades with each packet, with two exceptions. First, the loudness of the bands
// is predicted from the previous packet, and the pitch filter repeats up to 1024 samples. So two packets in a row are
// encoded without prediction. Second, gaps in transients are filled according to the last two stationary packets. So
// two of the first three packets after a seek must be stationary. That is known only after encoding, and can't be
// forced. So every wanted seek point is tested: the starts of its packets are parsed, and the packets are decoded by
// two decoders, one that starts there and a reference decoder that has decoded earlier packets. If their samples don't
// match, the point is dropped and the next packet is tried.
#pragma once

#include "encode/encoder.hpp"

#include <opus/opus_multistream.h>

#include <memory>
#include <span>
#include <vector>

namespace builder {

// The distribution of a sound's channels over Opus streams.
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

// The seek points of one sound. The encoder numbers the packets; each is announced, encoded, and then passed to take().
class OpusSeekPoints
{
public:
    // Number of packets from a seek point on whose samples may be wrong.
    static constexpr int64_t kConvergence = 4;

    // Number of packets that the reference decoder must have decoded before a trial.
    static constexpr int64_t kHistory = 2;

    OpusSeekPoints(const OpusMapping& mapping, uint32_t sampleRate, size_t frames);

    // Starts a trial with this packet if a seek point is wanted here, or was wanted before and no trial has succeeded
    // since.
    void announce(int64_t packet, bool wanted);

    // Whether the packet that was announced last must be encoded without prediction.
    [[nodiscard]] bool disablesPrediction() const;

    // Whether a trial needs the packet's samples from the reference decoder.
    [[nodiscard]] bool isOnTrial() const { return mTrialPacket >= 0; }

    // Passes the packet that was announced, its seek point, and its samples from the reference decoder. If the trial
    // succeeds, its seek point is added to points.
    [[nodiscard]] base::Result<> take(std::span<const uint8_t> packet, const bank::SeekPoint& point,
                                      std::span<const float> frames, std::vector<bank::SeekPoint>* points);

private:
    void countStationary(std::span<const uint8_t> packet);
    [[nodiscard]] bool matches(std::span<const float> frames) const;

    OpusPacketDecoder mDecoder;
    std::vector<int> mStationary; // number of stationary packets per stream since the trial started
    int64_t mPacket = 0;
    int64_t mTrialPacket = -1; // the packet on trial, -1 for none
    bank::SeekPoint mPoint; // of that packet
    bool mStillWanted = false;
};

} // namespace builder
