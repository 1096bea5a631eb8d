// SPDX-License-Identifier: MIT
#include "encode/opus_seeking.hpp"

#include "encode/encoders.hpp"
#include "encode/opus_packet.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace builder {

using base::Error;
using base::ErrorCode;

namespace {

constexpr int64_t kUnpredictedPackets = 2;

// In each stream, two of the first three packets must be stationary. A transient before them may be wrong, and the
// pitch filter repeats it; one more packet lets that fade.
constexpr int kStationaryPackets = 2;
constexpr int64_t kSettlingPackets = 3;

// A quarter of the difference that a bank allows, which is -60 dB of the sound, or -90 dB of full scale where the sound
// is faint. A decoder that has decoded from the start has another state than the reference decoder, and may differ
// somewhat more.
constexpr double kMaximumDifference = 1.0 / 4000;
constexpr double kFaintLevel = 0.0316;

} // namespace

OpusPacketDecoder::OpusPacketDecoder(const OpusMapping& mapping, uint32_t sampleRate, size_t frames)
    : mLibrary(opus_multistream_decoder_create(int(sampleRate), mapping.channels, mapping.streams, mapping.coupled,
                                               mapping.table, nullptr))
    , mFrames(frames * size_t(mapping.channels))
    , mChannels(size_t(mapping.channels))
{ }

base::Result<> OpusPacketDecoder::reset()
{
    if (!mLibrary)
        return Error{ErrorCode::Memory};
    return codecResult(opus_multistream_decoder_ctl(mLibrary.get(), OPUS_RESET_STATE) == OPUS_OK);
}

base::Result<> OpusPacketDecoder::decode(std::span<const uint8_t> packet)
{
    if (!mLibrary)
        return Error{ErrorCode::Memory};
    const int frames = int(mFrames.size() / mChannels);
    const int decoded = opus_multistream_decode_float(mLibrary.get(), packet.data(), opus_int32(packet.size()),
                                                      mFrames.data(), frames, 0);
    return codecResult(decoded == frames);
}

OpusSeekPoints::OpusSeekPoints(const OpusMapping& mapping, uint32_t sampleRate, size_t frames)
    : mDecoder(mapping, sampleRate, frames)
    , mStationary(size_t(mapping.streams))
{ }

void OpusSeekPoints::announce(int64_t packet, bool wanted)
{
    mPacket = packet;
    mStillWanted = mStillWanted || wanted;
    if (mStillWanted && mTrialPacket < 0)
        mTrialPacket = packet;
}

bool OpusSeekPoints::disablesPrediction() const
{
    return mTrialPacket >= 0 && mPacket - mTrialPacket < kUnpredictedPackets;
}

base::Result<> OpusSeekPoints::take(std::span<const uint8_t> packet, const bank::SeekPoint& point,
                                    std::span<const float> frames, std::vector<bank::SeekPoint>* points)
{
    if (mTrialPacket < 0)
        return {};
    if (mPacket == mTrialPacket) {
        mPoint = point;
        std::fill(mStationary.begin(), mStationary.end(), 0);
        if (const base::Result<> result = mDecoder.reset(); !result)
            return result.error();
    }
    if (const base::Result<> result = mDecoder.decode(packet); !result)
        return result.error();
    const int64_t index = mPacket - mTrialPacket;
    if (index < kConvergence) {
        if (index < kSettlingPackets)
            countStationary(packet);
        const int fewest = *std::min_element(mStationary.begin(), mStationary.end());
        if (fewest + std::max<int64_t>(kSettlingPackets - 1 - index, 0) < kStationaryPackets)
            mTrialPacket = -1;
        return {};
    }
    if (matches(frames)) {
        points->push_back(mPoint);
        mStillWanted = false;
    }
    mTrialPacket = -1;
    return {};
}

void OpusSeekPoints::countStationary(std::span<const uint8_t> packet)
{
    std::array<bool, bank::kMaximumChannels> stationary{};
    const std::span<bool> found = std::span(stationary).first(mStationary.size());
    if (!findStationary(packet, found))
        return;
    for (size_t stream = 0; stream < found.size(); ++stream)
        mStationary[stream] += found[stream];
}

bool OpusSeekPoints::matches(std::span<const float> frames) const
{
    double signal = 0;
    double difference = 0;
    for (size_t i = 0; i < frames.size(); ++i) {
        const double error = double(frames[i]) - mDecoder.frames()[i];
        signal += double(frames[i]) * frames[i];
        difference += error * error;
    }
    const double level = std::max(std::sqrt(signal / double(frames.size())), kFaintLevel);
    return std::sqrt(difference / double(frames.size())) <= kMaximumDifference * level;
}

} // namespace builder
