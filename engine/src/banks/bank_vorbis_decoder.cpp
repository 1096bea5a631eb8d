// SPDX-License-Identifier: MIT
#include "banks/bank_stream_decoder.hpp"
#include "parse/vorbis_headers.hpp"

#include <vorbis/codec.h>

#include <cstdlib>
#include <new>

namespace engine {

// The library builds its tables of code words when the first decoder state is made. From then on, decoders only read
// what is in here.
class VorbisSetup
{
public:
    [[nodiscard]] bool unpack(std::span<const uint8_t> identification, std::span<const uint8_t> codebooks);
    [[nodiscard]] vorbis_info* info() const { return mHeaders.info(); }

private:
    VorbisHeaders mHeaders;
};

namespace {

ogg_packet asPacket(std::span<const uint8_t> bytes)
{
    ogg_packet packet{};
    packet.packet = const_cast<unsigned char*>(bytes.data());
    packet.bytes = static_cast<long>(bytes.size());
    packet.granulepos = -1;
    return packet;
}

base::Error mismatch()
{
    return {base::ErrorCode::Damaged, "the headers of its codec don't fit it"};
}

class BankVorbisDecoder final : public BankStreamDecoder
{
public:
    explicit BankVorbisDecoder(const BankSoundPointer& sound)
        : BankStreamDecoder(sound, 0)
        , mPackets(sound->data)
        , mSetup(sound->vorbisSetup)
    { }
    ~BankVorbisDecoder() override
    {
        if (mStarted) {
            vorbis_block_clear(&mBlock);
            vorbis_dsp_clear(&mDsp);
        }
    }

    base::Result<> start()
    {
        if (vorbis_synthesis_init(&mDsp, mSetup->info()) != 0)
            return mismatch();
        mStarted = true;
        if (vorbis_block_init(&mDsp, &mBlock) != 0)
            return base::outOfMemory();
        return {};
    }

protected:
    base::Result<> restart(uint64_t offset) override
    {
        mPackets.seek(offset);
        reserve();
        if (vorbis_synthesis_restart(&mDsp) != 0)
            return base::Error{base::ErrorCode::Damaged};
        return {};
    }

    base::Result<std::span<float>> decodeBlock() override
    {
        base::Result<std::span<const uint8_t>> bytes = mPackets.next();
        if (!bytes)
            return std::move(bytes.error());
        ogg_packet packet = asPacket(*bytes);
        if (vorbis_synthesis(&mBlock, &packet) != 0 || vorbis_synthesis_blockin(&mDsp, &mBlock) != 0)
            return base::Error{base::ErrorCode::Damaged, "a packet of its data is damaged"};

        float** channels = nullptr;
        const int count = vorbis_synthesis_pcmout(&mDsp, &channels);
        const auto width = static_cast<size_t>(mSetup->info()->channels);
        mFrames.resize(static_cast<size_t>(count) * width);
        for (size_t channel = 0; channel < width; ++channel) {
            for (size_t i = 0; i < static_cast<size_t>(count); ++i)
                mFrames[i * width + channel] = channels[channel][i];
        }
        vorbis_synthesis_read(&mDsp, count);
        return std::span(mFrames);
    }

private:
    // The library's memory for a block grows with the blocks that it gets, and then stays. So that no read allocates
    // once the first one has, it begins with what the longest block needs: the samples and the floor of each channel,
    // and the classes of its residue.
    void reserve()
    {
        if (mFrames.capacity() > 0)
            return;
        constexpr size_t kFloorBytes = 512;
        const auto channels = static_cast<size_t>(mSetup->info()->channels);
        const auto samples = static_cast<size_t>(vorbis_info_blocksize(mSetup->info(), 1));
        mFrames.reserve(samples / 2 * channels);
        const size_t bytes = channels * (samples * sizeof(float) + samples / 16 * sizeof(void*) + kFloorBytes);
        mBlock.localstore = std::realloc(mBlock.localstore, bytes);
        if (!mBlock.localstore)
            throw std::bad_alloc();
        mBlock.localalloc = static_cast<long>(bytes);
    }

    PacketReader mPackets;
    VorbisSetupPointer mSetup;
    vorbis_dsp_state mDsp{};
    vorbis_block mBlock{};
    bool mStarted = false;
    std::vector<float> mFrames;
};

// Removes the first part, which its 32-bit length precedes, from the front of setup.
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
    // The first state builds the tables.
    vorbis_dsp_state trial;
    const bool isGood = mHeaders.makeState(&trial);
    vorbis_dsp_clear(&trial);
    return isGood;
}

base::Result<VorbisSetupPointer> makeVorbisSetup(std::span<const uint8_t> setup)
{
    std::span<const uint8_t> identification;
    std::span<const uint8_t> codebooks;
    if (!takePart(&setup, &identification) || !takePart(&setup, &codebooks) || !setup.empty())
        return mismatch();
    auto unpacked = std::make_shared<VorbisSetup>();
    if (!unpacked->unpack(identification, codebooks))
        return mismatch();
    return VorbisSetupPointer(std::move(unpacked));
}

base::Result<DecoderPointer> makeVorbisDecoder(const BankSoundPointer& sound)
{
    if (sound->vorbisSetup->info()->channels != sound->facts.channels)
        return mismatch();
    auto decoder = std::make_unique<BankVorbisDecoder>(sound);
    if (base::Result<> started = decoder->start(); !started)
        return std::move(started.error());
    return DecoderPointer(std::move(decoder));
}

} // namespace engine
