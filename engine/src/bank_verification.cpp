#include "bank_verification.hpp"

#include "bank/kadpcm.hpp"

#include <algorithm>
#include <cmath>

namespace kess {

namespace {

// Which seek points have been met by somebody who goes from packet to packet.
class SeekPointCount
{
public:
    explicit SeekPointCount(const std::vector<bank::SeekPoint>& points)
        : mPoints(points)
    { }

    void packetAt(uint64_t offset) { mMet += mMet < mPoints.size() && mPoints[mMet].offset == offset; }
    [[nodiscard]] bool complete() const { return mMet == mPoints.size(); }

private:
    const std::vector<bank::SeekPoint>& mPoints;
    size_t mMet = 0;
};

// Whether every byte of the data belongs to a packet.
KESS_RESULT walkPackets(EncodedData data, SeekPointCount* seekPoints)
{
    PacketReader packets(std::move(data));
    std::span<const uint8_t> packet;
    while (!packets.atEnd()) {
        seekPoints->packetAt(packets.offset());
        if (const KESS_RESULT result = packets.next(&packet); result != KESS_OK)
            return result;
    }
    return KESS_OK;
}

// The same for superblocks, of which there are as many as the length asks for.
KESS_RESULT walkSuperblocks(EncodedData data, const bank::Sound& sound, SeekPointCount* seekPoints)
{
    using namespace bank::kadpcm;
    DataWindow window(std::move(data));
    const uint64_t most = maximumSuperblockBytes(sound.channels, kSuperblockFrames);
    uint64_t offset = 0;
    for (uint64_t frame = 0; frame < sound.sampleCount; frame += kSuperblockFrames) {
        seekPoints->packetAt(offset);
        std::span<const uint8_t> bytes;
        const auto wanted = static_cast<size_t>(std::min(most, window.size() - offset));
        if (const KESS_RESULT result = window.view(offset, wanted, &bytes); result != KESS_OK)
            return result;
        const size_t size = superblockBytes(bytes, sound.channels);
        if (size == 0)
            return KESS_ERR_FILE_BAD;
        offset += size;
    }
    return offset == window.size() ? KESS_OK : KESS_ERR_FILE_BAD;
}

// Decodes a sound from its start to its end, and on the way compares with what comes after a seek to each seek point.
class DecodingCheck
{
public:
    DecodingCheck(const bank::Sound& sound, Decoder& straight, Decoder& seeking)
        : mSound(sound)
        , mStraight(straight)
        , mSeeking(seeking)
        , mFrames(kFramesAtOnce * sound.channels)
        , mOther(mFrames.size())
    { }

    // *fault tells what was wrong.
    [[nodiscard]] KESS_RESULT run(std::string* fault)
    {
        for (const bank::SeekPoint& point : mSound.seekPoints) {
            const uint64_t target = targetOf(point);
            if (target < mPosition || target >= mSound.sampleCount)
                continue;
            if (const KESS_RESULT result = readTo(target, fault); result != KESS_OK)
                return result;
            if (const KESS_RESULT result = compareHere(fault); result != KESS_OK)
                return result;
        }
        return readTo(mSound.sampleCount, fault);
    }

private:
    static constexpr size_t kFramesAtOnce = 4096;
    static constexpr size_t kComparedFrames = 256;

    // Where samples are right that were decoded from the point on.
    [[nodiscard]] uint64_t targetOf(const bank::SeekPoint& point) const
    {
        const uint64_t preroll =
            mSound.codec == bank::Codec::Opus ? mSound.sampleRate * kOpusPrerollMilliseconds / 1000 : 0;
        const uint64_t position = point.position + preroll;
        return position > mSound.leadIn ? position - mSound.leadIn : 0;
    }

    [[nodiscard]] KESS_RESULT read(Decoder& decoder, float* frames, size_t count, std::string* fault)
    {
        size_t done = 0;
        KESS_RESULT result = decoder.readFloat(frames, count, &done);
        if (result == KESS_OK && done < count)
            result = KESS_ERR_FILE_BAD;
        if (result != KESS_OK)
            *fault = "it can't be decoded from sample " + std::to_string(mPosition + done) + " on";
        return result;
    }

    [[nodiscard]] KESS_RESULT readTo(uint64_t position, std::string* fault)
    {
        while (mPosition < position) {
            const auto count = static_cast<size_t>(std::min<uint64_t>(kFramesAtOnce, position - mPosition));
            if (const KESS_RESULT result = read(mStraight, mFrames.data(), count, fault); result != KESS_OK)
                return result;
            mPosition += count;
        }
        return KESS_OK;
    }

    [[nodiscard]] KESS_RESULT compareHere(std::string* fault)
    {
        const auto count = static_cast<size_t>(std::min<uint64_t>(kComparedFrames, mSound.sampleCount - mPosition));
        if (const KESS_RESULT result = read(mStraight, mFrames.data(), count, fault); result != KESS_OK)
            return result;
        KESS_RESULT result = mSeeking.seek(mPosition);
        if (result == KESS_OK)
            result = read(mSeeking, mOther.data(), count, fault);
        if (result == KESS_OK && !isEqual(count * mSound.channels))
            result = KESS_ERR_FILE_BAD;
        if (result != KESS_OK)
            *fault = "its seek table leads astray at sample " + std::to_string(mPosition);
        mPosition += count;
        return result;
    }

    // Opus comes back to the same samples but for a thousandth; a wrong packet differs by about as much as there is.
    [[nodiscard]] bool isEqual(size_t samples) const
    {
        if (mSound.codec != bank::Codec::Opus)
            return std::equal(mFrames.begin(), mFrames.begin() + static_cast<ptrdiff_t>(samples), mOther.begin());
        double signal = 0;
        double difference = 0;
        for (size_t i = 0; i < samples; ++i) {
            signal += static_cast<double>(mFrames[i]) * mFrames[i];
            difference += (static_cast<double>(mFrames[i]) - mOther[i]) * (static_cast<double>(mFrames[i]) - mOther[i]);
        }
        constexpr double kTolerance = 0.1;
        constexpr double kSilence = 1e-4;
        return std::sqrt(difference)
            <= kTolerance * std::sqrt(signal) + kSilence * std::sqrt(static_cast<double>(samples));
    }

    const bank::Sound& mSound;
    Decoder& mStraight;
    Decoder& mSeeking;
    std::vector<float> mFrames;
    std::vector<float> mOther;
    uint64_t mPosition = 0; // of mStraight
};

} // namespace

BankVerification::BankVerification(BankFile& bank, TellFinding tell)
    : mBank(bank)
    , mReader(*bank.reader())
    , mTell(std::move(tell))
    , mSetupFaults(mReader.setupCount())
{ }

KESS_RESULT BankVerification::run()
{
    std::string fault;
    if (const bank::Error error = mReader.verifyNames(&fault); error != bank::Error::None)
        tell(-1, KESS_ERR_FILE_BAD, fault);
    for (uint32_t i = 0; i < mReader.info().soundCount && !ended(); ++i)
        verifySound(i);
    if (mFailure != KESS_OK)
        return mFailure;
    return mDamaged ? KESS_ERR_FILE_BAD : KESS_OK;
}

void BankVerification::verifySound(uint32_t index)
{
    bank::Sound sound;
    if (!verifyStored(index, &sound))
        return;
    if (verifyPackets(index, sound) && !ended())
        verifyDecoding(index, sound);
}

// Many sounds share a setup, which is read once.
bank::Error BankVerification::verifySetup(uint32_t setup, std::string* fault)
{
    std::optional<std::string>& found = mSetupFaults[setup];
    if (!found) {
        const bank::Error error = mReader.setup(setup, fault).error();
        if (error != bank::Error::None && error != bank::Error::Damaged)
            return error;
        found = error == bank::Error::Damaged ? *fault : std::string();
    }
    *fault = *found;
    return found->empty() ? bank::Error::None : bank::Error::Damaged;
}

// Each part is looked at, so that all faults of a sound are told; decoding waits until there are none.
bool BankVerification::verifyStored(uint32_t index, bank::Sound* sound)
{
    std::string fault;
    bool passed = true;
    bank::Result<bank::Sound> stored = mReader.soundWithoutSetup(index, &fault);
    if (passes(stored.error(), index, fault))
        *sound = std::move(*stored);
    else
        passed = false;
    if (ended())
        return false;
    if (const std::optional<uint32_t> setup = mReader.entry(index).setup)
        passed = passes(verifySetup(*setup, &fault), index, fault) && passed;
    if (ended())
        return false;
    return passes(mReader.verifyData(index, &fault), index, fault) && passed;
}

bool BankVerification::verifyPackets(uint32_t index, const bank::Sound& sound)
{
    const bank::SoundEntry entry = mReader.entry(index);
    const EncodedData data{mReader.source(), entry.dataOffset, entry.dataBytes};
    SeekPointCount seekPoints(sound.seekPoints);
    KESS_RESULT result = KESS_OK;
    if (sound.codec == bank::Codec::Vorbis || sound.codec == bank::Codec::Opus)
        result = walkPackets(data, &seekPoints);
    else if (sound.codec == bank::Codec::Kadpcm)
        result = walkSuperblocks(data, sound, &seekPoints);
    else
        return true;
    if (!passes(result, index, "its packets don't fit the size of its data"))
        return false;
    return passes(seekPoints.complete() ? KESS_OK : KESS_ERR_FILE_BAD, index, "its seek table points into a packet");
}

void BankVerification::verifyDecoding(uint32_t index, const bank::Sound& sound)
{
    DecoderPointer straight;
    DecoderPointer seeking;
    KESS_RESULT result = mBank.decoder(static_cast<int>(index), &straight);
    if (result == KESS_OK)
        result = mBank.decoder(static_cast<int>(index), &seeking);
    if (result == KESS_ERR_UNSUPPORTED) {
        tell(static_cast<int>(index), result, "its codec isn't decoded here; its checksums are right");
        return;
    }
    if (!passes(result, index, "the headers of its codec don't fit it"))
        return;
    std::string fault;
    result = DecodingCheck(sound, *straight, *seeking).run(&fault);
    passes(result, index, fault);
}

bool BankVerification::passes(bank::Error error, uint32_t index, const std::string& fault)
{
    return passes(error == bank::Error::Io ? KESS_ERR_FILE_COULDNOTSEEK : resultOf(error), index, fault);
}

bool BankVerification::passes(KESS_RESULT result, uint32_t index, const std::string& fault)
{
    if (result == KESS_OK)
        return true;
    if (result == KESS_ERR_FILE_BAD)
        tell(static_cast<int>(index), result, fault);
    else
        mFailure = result;
    return false;
}

void BankVerification::tell(int sound, KESS_RESULT result, const std::string& text)
{
    mDamaged = mDamaged || result == KESS_ERR_FILE_BAD;
    if (mTell && !mTell(sound, result, text))
        mStopped = true;
}

} // namespace kess
