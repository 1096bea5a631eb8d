#include "api/sound.hpp"

#include "decode/sample_convert.hpp"
#include "parse/source_file.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>
#include <string_view>

namespace KESS {

namespace {

// Nothing that the standard library throws may leave the engine.
template <typename Call>
KESS_RESULT guarded(Call call) noexcept
{
    kess::noteSystemError(0);
    try {
        return call();
    } catch (const std::bad_alloc&) {
        kess::noteSystemError(ENOMEM);
        return KESS_ERR_MEMORY;
    } catch (...) {
        return KESS_ERR_FILE_BAD;
    }
}

template <typename Value>
void store(Value* target, Value value)
{
    if (target)
        *target = value;
}

size_t frameBytes(const kess::SoundFacts& facts)
{
    return static_cast<size_t>(facts.channels) * kess::bytesPerSample(facts.format);
}

// Copies what fits, whole characters only.
KESS_RESULT copyText(std::string_view text, char* buffer, int bufferBytes)
{
    if (!buffer)
        return KESS_OK;
    if (bufferBytes < 1)
        return KESS_ERR_INVALID_PARAM;
    size_t length = text.size();
    const auto room = static_cast<size_t>(bufferBytes) - 1;
    if (length > room) {
        length = room;
        while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xc0) == 0x80)
            --length;
    }
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return length < text.size() ? KESS_ERR_TRUNCATED : KESS_OK;
}

} // namespace

void SoundAccess::Free::operator()(Sound* sound) const
{
    delete sound;
}

SoundAccess::Pointer SoundAccess::fromFile(kess::SoundFacts facts, kess::DecoderPointer decoder)
{
    Pointer sound(new Sound);
    sound->mImpl->facts = std::move(facts);
    sound->mImpl->decoder = std::move(decoder);
    return sound;
}

KESS_RESULT SoundAccess::fromBank(std::unique_ptr<kess::BankFile> bank, Pointer* sound)
{
    Pointer made(new Sound);
    made->mImpl->facts.type = KESS_SOUND_TYPE_TNB;
    made->mImpl->bank = std::move(bank);
    const KESS_RESULT result = made->mImpl->adoptOnlySound();
    if (result == KESS_OK)
        *sound = std::move(made);
    return result;
}

void SoundAccess::deferDecoders(Sound& bank)
{
    bank.mImpl->defersDecoders = true;
}

KESS_RESULT Sound::Impl::checkUnlockedBank() const
{
    if (!bank)
        return KESS_ERR_SUBSOUNDS;
    return bank->locked() ? KESS_ERR_KEY_MISSING : KESS_OK;
}

KESS_RESULT Sound::Impl::adoptOnlySound()
{
    if (!bank || bank->locked() || bank->soundCount() != 1)
        return KESS_OK;
    return bank->facts(0, &facts);
}

KESS_RESULT Sound::Impl::readyToDecode()
{
    if (isClosed)
        return KESS_ERR_INVALID_HANDLE;
    if (decoder)
        return KESS_OK;
    if (home)
        return home->decoder(place, &decoder);
    if (!bank)
        return KESS_ERR_UNSUPPORTED;
    if (bank->locked())
        return KESS_ERR_KEY_MISSING;
    if (bank->soundCount() != 1)
        return KESS_ERR_SUBSOUNDS;
    return bank->decoder(0, &decoder);
}

KESS_RESULT Sound::Impl::seek(uint64_t frame)
{
    inKeptLoop = false;
    const KESS_RESULT result = decoder->seek(frame);
    if (result == KESS_OK)
        position = frame;
    return result;
}

KESS_RESULT Sound::Impl::decode(uint8_t* buffer, Form form, size_t count, size_t* done) const
{
    *done = 0;
    return form == AsFloat ? decoder->readFloat(reinterpret_cast<float*>(buffer), count, done)
                           : decoder->read(buffer, count, done);
}

bool Sound::Impl::keepLoop(Form form, size_t frameBytes)
{
    constexpr uint64_t kMostFrames = 16384;
    constexpr uint64_t kMostSamples = 65536;
    const uint64_t frames = facts.loop->end - facts.loop->start;
    if (frames > kMostFrames || frames * static_cast<uint64_t>(facts.channels) > kMostSamples)
        return false;
    if (!keptLoop[form].empty())
        return true;
    std::vector<uint8_t> bytes(static_cast<size_t>(frames) * frameBytes);
    size_t got = 0;
    if (decoder->seek(facts.loop->start) != KESS_OK
        || decode(bytes.data(), form, static_cast<size_t>(frames), &got) != KESS_OK || got < frames)
        return false;
    keptLoop[form] = std::move(bytes);
    return true;
}

KESS_RESULT Sound::Impl::repeatLoop(Form form, size_t frameBytes)
{
    if (keepLoop(form, frameBytes)) {
        inKeptLoop = true;
        position = facts.loop->start;
    } else if (const KESS_RESULT result = seek(facts.loop->start); result != KESS_OK) {
        return result;
    }
    if (loopsLeft > 0)
        --loopsLeft;
    return KESS_OK;
}

// What follows is to be the same as if the last repetition had been decoded, so it is: codecs carry state.
KESS_RESULT Sound::Impl::leaveKeptLoop(Form form, size_t frameBytes)
{
    inKeptLoop = false;
    const auto frames = static_cast<size_t>(position - facts.loop->start);
    std::vector<uint8_t> skipped(frames * frameBytes);
    size_t got = 0;
    KESS_RESULT result = decoder->seek(facts.loop->start);
    if (result == KESS_OK)
        result = decode(skipped.data(), form, frames, &got);
    return result == KESS_OK && got < frames ? KESS_ERR_FILE_BAD : result;
}

void Sound::Impl::forgetLoop()
{
    keptLoop = {};
    inKeptLoop = false;
}

KESS_RESULT Sound::Impl::readSome(uint8_t* buffer, Form form, size_t frameBytes, size_t count, size_t* done)
{
    *done = 0;
    if (inKeptLoop && (position >= facts.loop->end || !keepLoop(form, frameBytes))) {
        if (const KESS_RESULT result = leaveKeptLoop(form, frameBytes); result != KESS_OK)
            return result;
    }
    if (!inKeptLoop)
        return decode(buffer, form, count, done);
    std::memcpy(buffer, &keptLoop[form][static_cast<size_t>(position - facts.loop->start) * frameBytes],
                count * frameBytes);
    *done = count;
    return KESS_OK;
}

KESS_RESULT Sound::Impl::read(void* buffer, Form form, size_t frameBytes, size_t count, size_t* done)
{
    auto* bytes = static_cast<uint8_t*>(buffer);
    *done = 0;
    while (*done < count) {
        if (atSeam && loopsLeft != 0) {
            if (const KESS_RESULT result = repeatLoop(form, frameBytes); result != KESS_OK)
                return result;
        }
        atSeam = false;
        const bool isInLoop = facts.loop && position < facts.loop->end;
        const bool towardsSeam = loopsLeft != 0 && isInLoop;
        const uint64_t end = towardsSeam || (inKeptLoop && isInLoop) ? facts.loop->end : facts.sampleCount;
        if (position >= end)
            break;
        const auto wanted = static_cast<size_t>(std::min<uint64_t>(count - *done, end - position));
        size_t got = 0;
        const KESS_RESULT result = readSome(bytes + *done * frameBytes, form, frameBytes, wanted, &got);
        *done += got;
        position += got;
        if (result != KESS_OK || got < wanted) {
            // What came before the damage is delivered; the next call has nothing and tells of it.
            if (*done > 0)
                return KESS_OK;
            return result != KESS_OK ? result : KESS_ERR_FILE_BAD;
        }
        atSeam = towardsSeam && position == end;
    }
    return *done == 0 && count > 0 ? KESS_ERR_FILE_EOF : KESS_OK;
}

KESS_RESULT Sound::Impl::deliver(void* buffer, Form form, size_t frameBytes, size_t bytes, size_t* done)
{
    if (!buffer)
        return KESS_ERR_INVALID_PARAM;
    if (const KESS_RESULT result = readyToDecode(); result != KESS_OK)
        return result;
    if (frameBytes == 0 || (bytes > 0 && bytes < frameBytes))
        return KESS_ERR_INVALID_PARAM;
    return read(buffer, form, frameBytes, bytes / frameBytes, done);
}

KESS_RESULT Sound::Impl::subsound(int index, Sound** sound)
{
    if (index < 0 || index >= bank->soundCount())
        return KESS_ERR_INVALID_PARAM;
    subsounds.resize(static_cast<size_t>(bank->soundCount()));
    SoundAccess::Pointer& owned = subsounds[static_cast<size_t>(index)];
    if (owned && !owned->mImpl->isClosed) {
        *sound = owned.get();
        return KESS_OK;
    }
    kess::SoundFacts subsoundFacts;
    kess::DecoderPointer subsoundDecoder;
    KESS_RESULT result = bank->facts(index, &subsoundFacts);
    if (result == KESS_OK && !defersDecoders)
        result = bank->decoder(index, &subsoundDecoder);
    if (result != KESS_OK && result != KESS_ERR_UNSUPPORTED)
        return result;
    if (!owned)
        owned = SoundAccess::fromFile({}, nullptr);
    Impl& impl = *owned->mImpl;
    impl.facts = std::move(subsoundFacts);
    impl.decoder = std::move(subsoundDecoder);
    impl.position = 0;
    impl.loopsLeft = 0;
    impl.atSeam = false;
    impl.forgetLoop();
    impl.home = bank.get();
    impl.place = index;
    impl.isClosed = false;
    *sound = owned.get();
    return KESS_OK;
}

Sound::Sound()
    : mImpl(new Impl)
{ }

Sound::~Sound()
{
    delete mImpl;
}

KESS_RESULT Sound::release()
{
    if (!mImpl->home) {
        delete this;
        return KESS_OK;
    }
    mImpl->decoder.reset();
    mImpl->forgetLoop();
    mImpl->facts = {};
    mImpl->isClosed = true;
    return KESS_OK;
}

KESS_RESULT Sound::getFormat(KESS_SOUND_TYPE* type, KESS_SOUND_FORMAT* format, int* channels, int* bits)
{
    const kess::SoundFacts& facts = mImpl->facts;
    store(type, facts.type);
    store(format, facts.format);
    store(channels, facts.channels);
    store(bits, static_cast<int>(8 * kess::bytesPerSample(facts.format)));
    return KESS_OK;
}

KESS_RESULT Sound::getDefaults(float* frequency, int* priority)
{
    constexpr int kPriority = 128;
    store(frequency, static_cast<float>(mImpl->facts.sampleRate));
    store(priority, kPriority);
    return KESS_OK;
}

KESS_RESULT Sound::getLength(unsigned int* length, unsigned int timeUnit)
{
    const kess::SoundFacts& facts = mImpl->facts;
    const auto samples = static_cast<long double>(facts.sampleCount);
    long double value = 0;
    switch (timeUnit) {
    case KESS_TIMEUNIT_MS:
        if (facts.sampleRate > 0)
            value = std::floor(samples * 1000 / static_cast<long double>(facts.sampleRate));
        break;
    case KESS_TIMEUNIT_PCM:
        value = samples;
        break;
    case KESS_TIMEUNIT_PCMBYTES:
        value = samples * static_cast<long double>(frameBytes(facts));
        break;
    default:
        return KESS_ERR_INVALID_PARAM;
    }
    store(length, static_cast<unsigned int>(std::min<long double>(value, UINT_MAX)));
    return KESS_OK;
}

KESS_RESULT Sound::getSampleCount(uint64_t* samples)
{
    store(samples, mImpl->facts.sampleCount);
    return KESS_OK;
}

KESS_RESULT Sound::getDeclaredSampleCount(uint64_t* samples)
{
    store(samples, std::max(mImpl->facts.declaredCount, mImpl->facts.sampleCount));
    return KESS_OK;
}

KESS_RESULT Sound::seekData(uint64_t sample)
{
    return guarded([&] {
        KESS_RESULT result = mImpl->readyToDecode();
        if (result != KESS_OK)
            return result;
        if (sample > mImpl->facts.sampleCount)
            return KESS_ERR_INVALID_POSITION;
        mImpl->atSeam = false;
        return mImpl->seek(sample);
    });
}

KESS_RESULT Sound::readData(void* buffer, unsigned int lengthBytes, unsigned int* read)
{
    const size_t bytes = frameBytes(mImpl->facts);
    size_t done = 0;
    const KESS_RESULT result =
        guarded([&] { return mImpl->deliver(buffer, Impl::AsStored, bytes, lengthBytes, &done); });
    store(read, static_cast<unsigned int>(done * bytes));
    return result;
}

KESS_RESULT Sound::readFloat(float* buffer, unsigned int frames, unsigned int* framesRead)
{
    const size_t bytes = static_cast<size_t>(mImpl->facts.channels) * sizeof(float);
    size_t done = 0;
    const KESS_RESULT result =
        guarded([&] { return mImpl->deliver(buffer, Impl::AsFloat, bytes, frames * bytes, &done); });
    store(framesRead, static_cast<unsigned int>(done));
    return result;
}

KESS_RESULT Sound::getRawSamples(uint64_t* offset, uint64_t* bytes)
{
    const auto& raw = mImpl->facts.raw;
    store(offset, raw ? raw->offset : uint64_t{0});
    store(bytes, raw ? raw->bytes : uint64_t{0});
    return raw ? KESS_OK : KESS_ERR_UNSUPPORTED;
}

KESS_RESULT Sound::getLoopPoints(uint64_t* start, uint64_t* end)
{
    const auto& loop = mImpl->facts.loop;
    store(start, loop ? loop->start : uint64_t{0});
    store(end, loop ? loop->end : uint64_t{0});
    return loop ? KESS_OK : KESS_ERR_TAGNOTFOUND;
}

KESS_RESULT Sound::setLoopCount(int count)
{
    if (count < -1)
        return KESS_ERR_INVALID_PARAM;
    if (count != 0 && !mImpl->facts.loop)
        return KESS_ERR_TAGNOTFOUND;
    mImpl->loopsLeft = count;
    return KESS_OK;
}

KESS_RESULT Sound::getPeak(float* peak)
{
    store(peak, mImpl->facts.peak.value_or(0.0f));
    return mImpl->facts.peak ? KESS_OK : KESS_ERR_TAGNOTFOUND;
}

KESS_RESULT Sound::getDroppedSyncPoints(uint64_t* points, uint64_t* names)
{
    store(points, mImpl->facts.droppedSyncPoints);
    store(names, mImpl->facts.droppedNames);
    return KESS_OK;
}

KESS_RESULT Sound::getNumSyncPoints(int* count)
{
    store(count, static_cast<int>(std::min<size_t>(mImpl->facts.syncPoints.size(), INT_MAX)));
    return KESS_OK;
}

KESS_RESULT Sound::getSyncPoint(int index, uint64_t* sample, char* name, int nameBytes)
{
    const std::vector<kess::SyncPoint>& points = mImpl->facts.syncPoints;
    if (index < 0 || static_cast<size_t>(index) >= points.size())
        return KESS_ERR_INVALID_SYNCPOINT;
    const kess::SyncPoint& point = points[static_cast<size_t>(index)];
    store(sample, point.sample);
    return copyText(point.name, name, nameBytes);
}

KESS_RESULT Sound::getName(char* name, int nameBytes)
{
    return copyText(mImpl->facts.name, name, nameBytes);
}

KESS_RESULT Sound::getNumSubSounds(int* count)
{
    store(count, 0);
    if (!mImpl->bank)
        return KESS_OK;
    const KESS_RESULT result = mImpl->checkUnlockedBank();
    if (result == KESS_OK)
        store(count, mImpl->bank->soundCount());
    return result;
}

KESS_RESULT Sound::getSubSound(int index, Sound** subsound)
{
    if (!subsound)
        return KESS_ERR_INVALID_PARAM;
    *subsound = nullptr;
    return guarded([&] {
        const KESS_RESULT result = mImpl->checkUnlockedBank();
        return result == KESS_OK ? mImpl->subsound(index, subsound) : result;
    });
}

KESS_RESULT Sound::getSubSoundByName(const char* name, Sound** subsound)
{
    if (!subsound || !name)
        return KESS_ERR_INVALID_PARAM;
    *subsound = nullptr;
    return guarded([&] {
        int index = 0;
        KESS_RESULT result = mImpl->checkUnlockedBank();
        if (result == KESS_OK)
            result = mImpl->bank->find(name, &index);
        return result == KESS_OK ? mImpl->subsound(index, subsound) : result;
    });
}

KESS_RESULT Sound::getBankInfo(KESS_BANKINFO* info)
{
    if (!info || info->cbsize != static_cast<int32_t>(sizeof *info))
        return KESS_ERR_INVALID_PARAM;
    *info = {};
    info->cbsize = static_cast<int32_t>(sizeof *info);
    const KESS_RESULT result = mImpl->checkUnlockedBank();
    if (mImpl->bank)
        mImpl->bank->describe(info);
    return result;
}

KESS_RESULT Sound::getEncoding(KESS_ENCODING* encoding)
{
    if (!encoding || encoding->cbsize != static_cast<int32_t>(sizeof *encoding))
        return KESS_ERR_INVALID_PARAM;
    *encoding = {};
    encoding->cbsize = static_cast<int32_t>(sizeof *encoding);
    if (mImpl->bank && mImpl->bank->locked())
        return KESS_ERR_KEY_MISSING;
    const std::optional<kess::Encoding>& stored = mImpl->facts.encoding;
    if (!stored)
        return KESS_ERR_SUBSOUNDS;
    encoding->codec = stored->codec;
    encoding->quality = stored->quality;
    encoding->dataBytes = stored->dataBytes;
    encoding->extraBytes = stored->extraBytes;
    return KESS_OK;
}

KESS_RESULT Sound::verifyData()
{
    return guarded([&]() -> KESS_RESULT {
        if (mImpl->isClosed)
            return KESS_ERR_INVALID_HANDLE;
        if (mImpl->home)
            return mImpl->home->verifyData(mImpl->place);
        if (!mImpl->bank || (!mImpl->bank->locked() && mImpl->bank->soundCount() != 1))
            return KESS_ERR_SUBSOUNDS;
        return mImpl->bank->verifyData(0);
    });
}

KESS_RESULT Sound::isEncrypted(bool* encrypted)
{
    store(encrypted, mImpl->bank && mImpl->bank->encrypted());
    return KESS_OK;
}

KESS_RESULT Sound::setEncryptionKey(const char* key)
{
    if (!key)
        return KESS_ERR_INVALID_PARAM;
    return guarded([&] {
        if (!mImpl->bank || !mImpl->bank->locked())
            return KESS_OK;
        const KESS_RESULT result = kess::resultOf(mImpl->bank->unlock(key));
        return result == KESS_OK ? mImpl->adoptOnlySound() : result;
    });
}

} // namespace KESS
