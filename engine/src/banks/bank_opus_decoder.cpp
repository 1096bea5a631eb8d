#include "banks/bank_decoders.hpp"

#include <opus/opus_multistream.h>

#include <algorithm>

namespace kess {

namespace {

// A packet holds at most 120 ms (RFC 6716, 3.2.5).
constexpr uint64_t kPacketMilliseconds = 120;

struct Destroy
{
    void operator()(OpusMSDecoder* decoder) const { opus_multistream_decoder_destroy(decoder); }
};
using Library = std::unique_ptr<OpusMSDecoder, Destroy>;

uint64_t samplesOf(uint64_t milliseconds, const BankSound& sound)
{
    return sound.stored.sampleRate * milliseconds / 1000;
}

class OpusDecoder final : public StreamDecoder
{
public:
    OpusDecoder(BankSound sound, Library library)
        : StreamDecoder(sound, samplesOf(kOpusPrerollMilliseconds, sound))
        , mPackets(sound.data)
        , mLibrary(std::move(library))
        , mChannels(static_cast<size_t>(sound.facts.channels))
        , mMostFrames(static_cast<size_t>(samplesOf(kPacketMilliseconds, sound)))
    { }

protected:
    [[nodiscard]] KESS_RESULT restart(uint64_t offset) override
    {
        mPackets.seek(offset);
        return opus_multistream_decoder_ctl(mLibrary.get(), OPUS_RESET_STATE) == OPUS_OK ? KESS_OK : KESS_ERR_FILE_BAD;
    }

    [[nodiscard]] KESS_RESULT decodeBlock(std::span<float>* frames) override
    {
        std::span<const uint8_t> packet;
        if (const KESS_RESULT result = mPackets.next(&packet); result != KESS_OK)
            return result;
        // Without bytes the library would make up what a lost packet might have held.
        if (packet.empty())
            return KESS_ERR_FILE_BAD;
        mFrames.resize(mMostFrames * mChannels);
        const int count =
            opus_multistream_decode_float(mLibrary.get(), packet.data(), static_cast<opus_int32>(packet.size()),
                                          mFrames.data(), static_cast<int>(mMostFrames), 0);
        if (count <= 0)
            return KESS_ERR_FILE_BAD;
        *frames = std::span(mFrames).first(static_cast<size_t>(count) * mChannels);
        return KESS_OK;
    }

private:
    PacketReader mPackets;
    Library mLibrary;
    size_t mChannels;
    size_t mMostFrames;
    std::vector<float> mFrames;
};

} // namespace

uint64_t opusPacketFrames(std::span<const uint8_t> packet, uint32_t sampleRate)
{
    const int frames = opus_packet_get_nb_samples(packet.data(), static_cast<opus_int32>(packet.size()),
                                                  static_cast<opus_int32>(sampleRate));
    return static_cast<uint64_t>(std::max(frames, 0));
}

KESS_RESULT makeOpusDecoder(BankSound sound, std::span<const uint8_t> setup, DecoderPointer* decoder)
{
    // Streams, coupled streams, and the decoded channel that each channel of the sound is.
    if (setup.size() != 2 + static_cast<size_t>(sound.facts.channels))
        return KESS_ERR_FILE_BAD;
    int failed = OPUS_OK;
    Library library(opus_multistream_decoder_create(static_cast<opus_int32>(sound.stored.sampleRate),
                                                    sound.facts.channels, setup[0], setup[1], setup.data() + 2,
                                                    &failed));
    if (!library)
        return failed == OPUS_ALLOC_FAIL ? KESS_ERR_MEMORY : KESS_ERR_FILE_BAD;
    *decoder = std::make_unique<OpusDecoder>(std::move(sound), std::move(library));
    return KESS_OK;
}

} // namespace kess
