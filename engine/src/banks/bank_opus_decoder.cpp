// SPDX-License-Identifier: MIT
#include "banks/bank_stream_decoder.hpp"

#include <opus/opus_multistream.h>

#include <algorithm>

namespace engine {

namespace {

struct Destroy
{
    void operator()(OpusMSDecoder* decoder) const { opus_multistream_decoder_destroy(decoder); }
};
using Library = std::unique_ptr<OpusMSDecoder, Destroy>;

base::Error damagedPacket()
{
    return {base::ErrorCode::Damaged, "a packet of its data is damaged"};
}

class BankOpusDecoder final : public BankStreamDecoder
{
public:
    BankOpusDecoder(const BankSoundPointer& sound, Library library)
        : BankStreamDecoder(sound, sound->stored.sampleRate * kOpusPrerollMilliseconds / 1000)
        , mPackets(sound->data)
        , mLibrary(std::move(library))
        , mChannels(static_cast<size_t>(sound->facts.channels))
        , mRate(sound->stored.sampleRate)
    { }

protected:
    base::Result<> restart(uint64_t offset) override
    {
        mPackets.seek(offset);
        if (opus_multistream_decoder_ctl(mLibrary.get(), OPUS_RESET_STATE) != OPUS_OK)
            return base::Error{base::ErrorCode::Damaged};
        return {};
    }

    base::Result<std::span<float>> decodeBlock() override
    {
        base::Result<std::span<const uint8_t>> packet = mPackets.next();
        if (!packet)
            return std::move(packet.error());
        // For an empty packet, the library would make up the content of a lost one.
        if (packet->empty())
            return damagedPacket();
        const auto frames = static_cast<size_t>(opusPacketFrames(*packet, mRate));
        if (frames == 0)
            return damagedPacket();
        // Usually all packets are of one length, so the first one decides on the size.
        mFrames.resize(std::max(mFrames.size(), frames * mChannels));
        const int count =
            opus_multistream_decode_float(mLibrary.get(), packet->data(), static_cast<opus_int32>(packet->size()),
                                          mFrames.data(), static_cast<int>(mFrames.size() / mChannels), 0);
        if (count <= 0)
            return damagedPacket();
        return std::span(mFrames).first(static_cast<size_t>(count) * mChannels);
    }

private:
    PacketReader mPackets;
    Library mLibrary;
    size_t mChannels;
    uint32_t mRate;
    std::vector<float> mFrames;
};

} // namespace

uint64_t opusPacketFrames(std::span<const uint8_t> packet, uint32_t sampleRate)
{
    const int frames = opus_packet_get_nb_samples(packet.data(), static_cast<opus_int32>(packet.size()),
                                                  static_cast<opus_int32>(sampleRate));
    return static_cast<uint64_t>(std::max(frames, 0));
}

base::Result<DecoderPointer> makeOpusDecoder(const BankSoundPointer& sound)
{
    const std::vector<uint8_t>& setup = sound->opusSetup;
    const base::Error mismatch{base::ErrorCode::Damaged, "the headers of its codec don't fit it"};
    // Streams, coupled streams, and for each channel of the sound the number of the decoded channel.
    if (setup.size() != 2 + static_cast<size_t>(sound->facts.channels))
        return mismatch;
    int failed = OPUS_OK;
    Library library(opus_multistream_decoder_create(static_cast<opus_int32>(sound->stored.sampleRate),
                                                    sound->facts.channels, setup[0], setup[1], setup.data() + 2,
                                                    &failed));
    if (!library)
        return failed == OPUS_ALLOC_FAIL ? base::outOfMemory() : mismatch;
    return DecoderPointer(std::make_unique<BankOpusDecoder>(sound, std::move(library)));
}

} // namespace engine
