#include "banks/bank_verification.hpp"

#include "bank/kadpcm.hpp"

#include <algorithm>
#include <cmath>

namespace kess {

namespace {

const char* const kMisleading = "its seek table leads astray at sample ";

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

// The sound's sample that a position stands for, 0 for those before it.
uint64_t sampleAt(uint64_t position, const bank::Sound& sound)
{
    return position > sound.preSkip ? position - sound.preSkip : 0;
}

// Whether each seek point of an Opus sound is where a packet begins, and what that packet gives first. What is decoded
// from there on can't tell that: it may differ for a while.
KESS_RESULT checkOpusSeekPoints(EncodedData data, const bank::Sound& sound, std::string* fault)
{
    PacketReader packets(std::move(data));
    std::span<const uint8_t> packet;
    bank::SeekPoint here;
    for (const bank::SeekPoint& point : sound.seekPoints) {
        while (here.position < point.position && !packets.atEnd()) {
            if (const KESS_RESULT result = packets.next(&packet); result != KESS_OK)
                return result;
            here.position += opusPacketFrames(packet, sound.sampleRate);
            here.offset = packets.offset();
        }
        if (here != point) {
            *fault = kMisleading + std::to_string(sampleAt(point.position, sound));
            return KESS_ERR_FILE_BAD;
        }
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
        for (size_t i = 0; i < mSound.seekPoints.size(); ++i) {
            const uint64_t target = sampleAt(mSound.seekPoints[i].position + preroll(), mSound);
            if (target < mPosition || target >= mSound.sampleCount)
                continue;
            if (const KESS_RESULT result = readTo(target, fault); result != KESS_OK)
                return result;
            const KESS_RESULT result = isOpus() ? compareUntil(endOf(i), fault) : compareHere(fault);
            if (result != KESS_OK)
                return result;
        }
        return readTo(mSound.sampleCount, fault);
    }

    // Of Opus: after how many seek points samples differ by more than the format allows, and where that is worst.
    [[nodiscard]] std::string remark() const
    {
        if (mWeak == 0)
            return {};
        return std::to_string(mWeak) + (mWeak == 1 ? " seek point is" : " seek points are") + " weak: at sample "
            + std::to_string(mWorstPosition) + " the samples after a seek differ by "
            + std::to_string(std::lround(20 * std::log10(mWorst * kPromise))) + " dB";
    }

private:
    static constexpr size_t kFramesAtOnce = 4096;
    static constexpr size_t kComparedFrames = 256;

    // What the format promises of Opus, 20 ms at a time: at most -60 dB of the sound, or -90 dB of full scale.
    static constexpr double kPromise = 1e-3;
    static constexpr double kFaint = 3.16e-2;
    static constexpr uint32_t kWindowsPerSecond = 50;

    [[nodiscard]] bool isOpus() const { return mSound.codec == bank::Codec::Opus; }

    // Positions behind a seek point from where samples are right.
    [[nodiscard]] uint64_t preroll() const
    {
        return isOpus() ? mSound.sampleRate * kOpusPrerollMilliseconds / 1000 : 0;
    }

    // From where on a seek begins at the next seek point; the end for the last one.
    [[nodiscard]] uint64_t endOf(size_t point) const
    {
        return point + 1 < mSound.seekPoints.size()
            ? std::min(sampleAt(mSound.seekPoints[point + 1].position + preroll(), mSound), mSound.sampleCount)
            : mSound.sampleCount;
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

    // Reads as many frames by both decoders.
    [[nodiscard]] KESS_RESULT readBoth(size_t count, std::string* fault)
    {
        KESS_RESULT result = read(mStraight, mFrames.data(), count, fault);
        if (result == KESS_OK)
            result = read(mSeeking, mOther.data(), count, fault);
        return result;
    }

    // By way of the start: from a position in between the decoder would go on without a look at the seek point.
    [[nodiscard]] KESS_RESULT seekHere(std::string* fault)
    {
        KESS_RESULT result = mSeeking.seek(0);
        if (result == KESS_OK)
            result = mSeeking.seek(mPosition);
        if (result != KESS_OK)
            *fault = kMisleading + std::to_string(mPosition);
        return result;
    }

    [[nodiscard]] KESS_RESULT compareHere(std::string* fault)
    {
        const auto count = static_cast<size_t>(std::min<uint64_t>(kComparedFrames, mSound.sampleCount - mPosition));
        KESS_RESULT result = seekHere(fault);
        if (result == KESS_OK)
            result = readBoth(count, fault);
        const auto samples = static_cast<ptrdiff_t>(count * mSound.channels);
        if (result == KESS_OK && !std::equal(mFrames.begin(), mFrames.begin() + samples, mOther.begin())) {
            *fault = kMisleading + std::to_string(mPosition);
            result = KESS_ERR_FILE_BAD;
        }
        mPosition += count;
        return result;
    }

    [[nodiscard]] KESS_RESULT compareUntil(uint64_t end, std::string* fault)
    {
        const uint32_t window = std::max(mSound.sampleRate / kWindowsPerSecond, 1u);
        double worst = 0;
        KESS_RESULT result = seekHere(fault);
        while (result == KESS_OK && mPosition < end) {
            const auto count = static_cast<size_t>(std::min<uint64_t>(window, end - mPosition));
            result = readBoth(count, fault);
            if (result != KESS_OK)
                break;
            const double difference = differenceOf(count * mSound.channels);
            worst = std::max(worst, difference);
            if (difference > mWorst) {
                mWorst = difference;
                mWorstPosition = mPosition;
            }
            mPosition += count;
        }
        mWeak += worst > 1;
        return result;
    }

    // In units of what the format allows.
    [[nodiscard]] double differenceOf(size_t samples) const
    {
        double signal = 0;
        double difference = 0;
        for (size_t i = 0; i < samples; ++i) {
            const double apart = static_cast<double>(mFrames[i]) - mOther[i];
            signal += static_cast<double>(mFrames[i]) * mFrames[i];
            difference += apart * apart;
        }
        const auto count = static_cast<double>(samples);
        return std::sqrt(difference / count) / (kPromise * std::max(std::sqrt(signal / count), kFaint));
    }

    const bank::Sound& mSound;
    Decoder& mStraight;
    Decoder& mSeeking;
    std::vector<float> mFrames;
    std::vector<float> mOther;
    uint64_t mPosition = 0; // of mStraight
    size_t mWeak = 0; // seek points
    double mWorst = 0;
    uint64_t mWorstPosition = 0;
};

} // namespace

BankVerification::BankVerification(BankFile& bank, TellFinding tell)
    : mBank(bank)
    , mReader(*bank.reader())
    , mTell(std::move(tell))
    , mSetups(mReader.setupCount())
{ }

KESS_RESULT BankVerification::run()
{
    if (const base::Result<> names = mReader.verifyNames(); !names)
        tell(-1, KESS_ERR_FILE_BAD, names.error().text);
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
const base::Result<>& BankVerification::verifySetup(uint32_t setup)
{
    std::optional<base::Result<>>& verified = mSetups[setup];
    if (!verified) {
        const base::Result<std::vector<uint8_t>> bytes = mReader.setup(setup);
        verified = bytes ? base::Result<>() : bytes.error();
    }
    return *verified;
}

// Each part is looked at, so that all faults of a sound are reported; decoding waits until there are none.
bool BankVerification::verifyStored(uint32_t index, bank::Sound* sound)
{
    base::Result<bank::Sound> stored = mReader.soundWithoutSetup(index);
    bool passed = passes(stored ? base::Result<>() : stored.error(), index);
    if (passed)
        *sound = std::move(*stored);
    if (ended())
        return false;
    if (const std::optional<uint32_t> setup = mReader.entry(index).setup)
        passed = passes(verifySetup(*setup), index) && passed;
    if (ended())
        return false;
    return passes(mReader.verifyData(index), index) && passed;
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
    if (!passes(seekPoints.complete() ? KESS_OK : KESS_ERR_FILE_BAD, index, "its seek table points into a packet"))
        return false;
    if (sound.codec != bank::Codec::Opus)
        return true;
    std::string fault;
    result = checkOpusSeekPoints(data, sound, &fault);
    return passes(result, index, fault);
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
    DecodingCheck check(sound, *straight, *seeking);
    result = check.run(&fault);
    if (passes(result, index, fault) && !check.remark().empty())
        tell(static_cast<int>(index), KESS_OK, check.remark());
}

bool BankVerification::passes(const base::Result<>& result, uint32_t index)
{
    if (result)
        return true;
    const base::Error& error = result.error();
    return passes(error.code == base::ErrorCode::Io ? KESS_ERR_FILE_COULDNOTSEEK : resultOf(error), index, error.text);
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
