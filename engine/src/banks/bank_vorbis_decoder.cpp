#include "banks/bank_decoders.hpp"
#include "parse/vorbis_headers.hpp"

#include <vorbis/codec.h>

namespace kess {

// Decoding only reads what is in here once a first decoder state has been made from it: that is when the library
// builds its tables of code words.
class VorbisSetup
{
public:
    [[nodiscard]] bool unpack(std::span<const uint8_t> identification, std::span<const uint8_t> codebooks);
    [[nodiscard]] vorbis_info* info() const { return mHeaders.info(); }

private:
    VorbisHeaders mHeaders;
};

namespace {

ogg_packet packetOf(std::span<const uint8_t> bytes)
{
    ogg_packet packet{};
    packet.packet = const_cast<unsigned char*>(bytes.data());
    packet.bytes = static_cast<long>(bytes.size());
    packet.granulepos = -1;
    return packet;
}

class VorbisDecoder final : public StreamDecoder
{
public:
    VorbisDecoder(BankSound sound, std::shared_ptr<const VorbisSetup> setup)
        : StreamDecoder(sound, 0)
        , mPackets(sound.data)
        , mSetup(std::move(setup))
    { }
    ~VorbisDecoder() override
    {
        if (mStarted) {
            vorbis_block_clear(&mBlock);
            vorbis_dsp_clear(&mDsp);
        }
    }

    [[nodiscard]] KESS_RESULT start()
    {
        if (vorbis_synthesis_init(&mDsp, mSetup->info()) != 0)
            return KESS_ERR_FILE_BAD;
        mStarted = true;
        return vorbis_block_init(&mDsp, &mBlock) == 0 ? KESS_OK : KESS_ERR_MEMORY;
    }

protected:
    [[nodiscard]] KESS_RESULT restart(uint64_t offset) override
    {
        mPackets.seek(offset);
        return vorbis_synthesis_restart(&mDsp) == 0 ? KESS_OK : KESS_ERR_FILE_BAD;
    }

    [[nodiscard]] KESS_RESULT decodeBlock(std::span<float>* frames) override
    {
        std::span<const uint8_t> bytes;
        if (const KESS_RESULT result = mPackets.next(&bytes); result != KESS_OK)
            return result;
        ogg_packet packet = packetOf(bytes);
        if (vorbis_synthesis(&mBlock, &packet) != 0 || vorbis_synthesis_blockin(&mDsp, &mBlock) != 0)
            return KESS_ERR_FILE_BAD;

        float** channels = nullptr;
        const int count = vorbis_synthesis_pcmout(&mDsp, &channels);
        const auto width = static_cast<size_t>(mSetup->info()->channels);
        mFrames.resize(static_cast<size_t>(count) * width);
        for (size_t channel = 0; channel < width; ++channel) {
            for (size_t i = 0; i < static_cast<size_t>(count); ++i)
                mFrames[i * width + channel] = channels[channel][i];
        }
        vorbis_synthesis_read(&mDsp, count);
        *frames = mFrames;
        return KESS_OK;
    }

private:
    PacketReader mPackets;
    std::shared_ptr<const VorbisSetup> mSetup;
    vorbis_dsp_state mDsp{};
    vorbis_block mBlock{};
    bool mStarted = false;
    std::vector<float> mFrames;
};

// Takes a part behind its 32-bit length from the front of setup.
bool takePart(std::span<const uint8_t>* setup, std::span<const uint8_t>* part)
{
    if (setup->size() < 4)
        return false;
    const uint32_t length = base::loadLittle<uint32_t>(setup->data());
    if (length > setup->size() - 4)
        return false;
    *part = setup->subspan(4, length);
    *setup = setup->subspan(4 + static_cast<size_t>(length));
    return true;
}

} // namespace

bool VorbisSetup::unpack(std::span<const uint8_t> identification, std::span<const uint8_t> codebooks)
{
    if (!mHeaders.addIdentification(identification) || !mHeaders.addSetup(codebooks))
        return false;
    // Made for trial: it builds the tables.
    vorbis_dsp_state trial;
    const bool isGood = mHeaders.makeState(&trial);
    vorbis_dsp_clear(&trial);
    return isGood;
}

KESS_RESULT makeVorbisSetup(std::span<const uint8_t> setup, std::shared_ptr<const VorbisSetup>* made)
{
    std::span<const uint8_t> identification;
    std::span<const uint8_t> codebooks;
    if (!takePart(&setup, &identification) || !takePart(&setup, &codebooks) || !setup.empty())
        return KESS_ERR_FILE_BAD;
    auto unpacked = std::make_shared<VorbisSetup>();
    if (!unpacked->unpack(identification, codebooks))
        return KESS_ERR_FILE_BAD;
    *made = std::move(unpacked);
    return KESS_OK;
}

KESS_RESULT makeVorbisDecoder(BankSound sound, std::shared_ptr<const VorbisSetup> setup, DecoderPointer* decoder)
{
    if (setup->info()->channels != sound.facts.channels)
        return KESS_ERR_FILE_BAD;
    auto made = std::make_unique<VorbisDecoder>(std::move(sound), std::move(setup));
    if (const KESS_RESULT result = made->start(); result != KESS_OK)
        return result;
    *decoder = std::move(made);
    return KESS_OK;
}

} // namespace kess
