// SPDX-License-Identifier: MIT
#include "api/sound.hpp"

#include "api/call.hpp"
#include "banks/bank_verification.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>

namespace KESS {

namespace {

using engine::LoopPlayer;

template <typename Value>
void store(Value* target, Value value)
{
    if (target)
        *target = value;
}

size_t frameBytes(const engine::SoundFacts& facts)
{
    return static_cast<size_t>(facts.channels) * engine::bytesPerSample(facts.format);
}

} // namespace

void SoundAccess::Free::operator()(Sound* sound) const
{
    delete sound;
}

SoundAccess::Pointer SoundAccess::fromFile(engine::FilePointer file, engine::SoundFacts facts,
                                           engine::DecoderPointer decoder)
{
    Pointer sound(new Sound);
    sound->mImpl->file = std::move(file);
    sound->mImpl->facts = std::make_shared<const engine::SoundFacts>(std::move(facts));
    sound->mImpl->player.open(std::move(decoder));
    return sound;
}

base::Result<SoundAccess::Pointer> SoundAccess::fromBank(std::shared_ptr<engine::BankFile> bank)
{
    engine::SoundFacts facts;
    facts.type = KESS_SOUND_TYPE_TNB;
    Pointer sound = fromFile(nullptr, std::move(facts), nullptr);
    sound->mImpl->role = Sound::Impl::Role::Bank;
    sound->mImpl->bank = std::move(bank);
    if (base::Result<> adopted = sound->mImpl->adoptOnlySound(); !adopted)
        return std::move(adopted.error());
    return sound;
}

SoundAccess::Pointer SoundAccess::makeVoice(std::shared_ptr<engine::BankFile> bank,
                                            std::shared_ptr<engine::BankSound> sound)
{
    Pointer voice(new Sound);
    voice->mImpl->role = Sound::Impl::Role::Voice;
    voice->mImpl->bank = std::move(bank);
    voice->mImpl->show(std::move(sound));
    return voice;
}

void SoundAccess::deferDecoders(Sound& bank)
{
    bank.mImpl->defersDecoders = true;
}

void Sound::Impl::show(std::shared_ptr<engine::BankSound> shown)
{
    static const auto kNoFacts = std::make_shared<const engine::SoundFacts>();
    sound = std::move(shown);
    facts = sound ? std::shared_ptr<const engine::SoundFacts>(sound, &sound->facts) : kNoFacts;
}

KESS_RESULT Sound::Impl::checkUnlockedBank() const
{
    if (role != Role::Bank)
        return KESS_ERR_SUBSOUNDS;
    return bank->locked() ? KESS_ERR_KEY_MISSING : KESS_OK;
}

KESS_RESULT Sound::Impl::checkOneOfBank() const
{
    if (isClosed)
        return KESS_ERR_INVALID_HANDLE;
    if (bank && bank->locked())
        return KESS_ERR_KEY_MISSING;
    return sound ? KESS_OK : KESS_ERR_SUBSOUNDS;
}

base::Result<> Sound::Impl::adoptOnlySound()
{
    if (role != Role::Bank || bank->locked() || bank->soundCount() != 1)
        return {};
    base::Result<std::shared_ptr<engine::BankSound>> only = bank->sound(0);
    if (!only)
        return std::move(only.error());
    show(std::move(*only));
    return {};
}

KESS_RESULT Sound::Impl::prepareToRead()
{
    if (player.isOpen())
        return KESS_OK;
    if (role == Role::File)
        return KESS_ERR_UNSUPPORTED;
    if (const KESS_RESULT result = checkOneOfBank(); result != KESS_OK)
        return result;
    base::Result<engine::DecoderPointer> decoder = bank->decoder(sound);
    if (!decoder)
        return engine::fail(std::move(decoder.error()));
    player.open(std::move(*decoder));
    return KESS_OK;
}

KESS_RESULT Sound::Impl::failReading(base::Error error) const
{
    if (base::Result<> medium = file ? file->takeReadError() : base::Result<>(); !medium) {
        error.text = std::move(medium.error().text);
        error.systemError = medium.error().systemError;
    }
    return engine::fail(std::move(error));
}

KESS_RESULT Sound::Impl::read(void* buffer, LoopPlayer::Form form, size_t bytes, size_t frameBytes, size_t* done)
{
    if (!buffer)
        return KESS_ERR_INVALID_PARAM;
    if (const KESS_RESULT result = prepareToRead(); result != KESS_OK)
        return result;
    if (frameBytes == 0 || (bytes > 0 && bytes < frameBytes))
        return KESS_ERR_INVALID_PARAM;
    base::Result<size_t> frames = player.read(buffer, form, bytes / frameBytes);
    if (!frames)
        return failReading(std::move(frames.error()));
    *done = *frames;
    return *frames == 0 && bytes > 0 ? KESS_ERR_FILE_EOF : KESS_OK;
}

KESS_RESULT Sound::Impl::subsound(int wanted, Sound** found)
{
    if (wanted < 0 || wanted >= bank->soundCount())
        return KESS_ERR_INVALID_PARAM;
    const std::lock_guard lock(opening);
    subsounds.resize(static_cast<size_t>(bank->soundCount()));
    SoundAccess::Pointer& owned = subsounds[static_cast<size_t>(wanted)];
    if (owned && !owned->mImpl->isClosed) {
        *found = owned.get();
        return KESS_OK;
    }
    base::Result<std::shared_ptr<engine::BankSound>> stored = bank->sound(wanted);
    if (!stored)
        return engine::fail(std::move(stored.error()));
    engine::DecoderPointer decoder;
    if (!defersDecoders) {
        base::Result<engine::DecoderPointer> opened = bank->decoder(*stored);
        if (!opened && opened.error().code != base::ErrorCode::Unsupported)
            return engine::fail(std::move(opened.error()));
        if (opened)
            decoder = std::move(*opened);
    }
    if (!owned)
        owned.reset(new Sound);
    Impl& impl = *owned->mImpl;
    impl.role = Role::Subsound;
    impl.bank = bank;
    impl.show(std::move(*stored));
    impl.player = {};
    impl.player.open(std::move(decoder));
    impl.isClosed = false;
    *found = owned.get();
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
    if (mImpl->role != Impl::Role::Subsound) {
        delete this;
        return KESS_OK;
    }
    mImpl->player = {};
    mImpl->show(nullptr);
    mImpl->isClosed = true;
    return KESS_OK;
}

KESS_RESULT Sound::getFormat(KESS_SOUND_TYPE* type, KESS_SOUND_FORMAT* format, int* channels, int* bits)
{
    const engine::SoundFacts& facts = *mImpl->facts;
    store(type, facts.type);
    store(format, facts.format);
    store(channels, facts.channels);
    store(bits, static_cast<int>(8 * engine::bytesPerSample(facts.format)));
    return KESS_OK;
}

KESS_RESULT Sound::getDefaults(float* frequency, int* priority)
{
    constexpr int kPriority = 128;
    store(frequency, static_cast<float>(mImpl->facts->sampleRate));
    store(priority, kPriority);
    return KESS_OK;
}

KESS_RESULT Sound::getLength(unsigned int* length, unsigned int timeUnit)
{
    const engine::SoundFacts& facts = *mImpl->facts;
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
    store(samples, mImpl->facts->sampleCount);
    return KESS_OK;
}

KESS_RESULT Sound::getDeclaredSampleCount(uint64_t* samples)
{
    store(samples, std::max(mImpl->facts->declaredCount, mImpl->facts->sampleCount));
    return KESS_OK;
}

KESS_RESULT Sound::seekData(uint64_t sample)
{
    return engine::guarded([&] {
        if (const KESS_RESULT result = mImpl->prepareToRead(); result != KESS_OK)
            return result;
        if (sample > mImpl->facts->sampleCount)
            return KESS_ERR_INVALID_POSITION;
        base::Result<> moved = mImpl->player.seek(sample);
        return moved ? KESS_OK : mImpl->failReading(std::move(moved.error()));
    });
}

KESS_RESULT Sound::readData(void* buffer, unsigned int lengthBytes, unsigned int* read)
{
    const size_t bytes = frameBytes(*mImpl->facts);
    size_t done = 0;
    const KESS_RESULT result =
        engine::guarded([&] { return mImpl->read(buffer, LoopPlayer::AsStored, lengthBytes, bytes, &done); });
    store(read, static_cast<unsigned int>(done * bytes));
    return result;
}

KESS_RESULT Sound::readFloat(float* buffer, unsigned int frames, unsigned int* framesRead)
{
    const size_t bytes = static_cast<size_t>(mImpl->facts->channels) * sizeof(float);
    size_t done = 0;
    const KESS_RESULT result =
        engine::guarded([&] { return mImpl->read(buffer, LoopPlayer::AsFloat, frames * bytes, bytes, &done); });
    store(framesRead, static_cast<unsigned int>(done));
    return result;
}

KESS_RESULT Sound::getRawSamples(uint64_t* offset, uint64_t* bytes)
{
    const auto& raw = mImpl->facts->raw;
    store(offset, raw ? raw->offset : uint64_t{0});
    store(bytes, raw ? raw->bytes : uint64_t{0});
    return raw ? KESS_OK : KESS_ERR_UNSUPPORTED;
}

KESS_RESULT Sound::getLoopPoints(uint64_t* start, uint64_t* end)
{
    const auto& loop = mImpl->facts->loop;
    store(start, loop ? loop->start : uint64_t{0});
    store(end, loop ? loop->end : uint64_t{0});
    return loop ? KESS_OK : KESS_ERR_TAGNOTFOUND;
}

KESS_RESULT Sound::setLoopCount(int count)
{
    if (count < -1)
        return KESS_ERR_INVALID_PARAM;
    if (count != 0 && !mImpl->facts->loop)
        return KESS_ERR_TAGNOTFOUND;
    mImpl->player.setLoopCount(count);
    return KESS_OK;
}

KESS_RESULT Sound::getPeak(float* peak)
{
    store(peak, mImpl->facts->peak.value_or(0.0f));
    return mImpl->facts->peak ? KESS_OK : KESS_ERR_TAGNOTFOUND;
}

KESS_RESULT Sound::getRemark(char* text, int textBytes)
{
    return engine::guarded([&] {
        std::string joined;
        for (const std::string& remark : mImpl->facts->remarks)
            joined += (joined.empty() ? "" : "; ") + remark;
        return engine::copyText(joined, text, textBytes);
    });
}

KESS_RESULT Sound::getNumSyncPoints(int* count)
{
    store(count, static_cast<int>(std::min<size_t>(mImpl->facts->syncPoints.size(), INT_MAX)));
    return KESS_OK;
}

KESS_RESULT Sound::getSyncPoint(int index, uint64_t* sample, char* name, int nameBytes)
{
    const std::vector<base::SyncPoint>& points = mImpl->facts->syncPoints;
    if (index < 0 || static_cast<size_t>(index) >= points.size())
        return KESS_ERR_INVALID_SYNCPOINT;
    const base::SyncPoint& point = points[static_cast<size_t>(index)];
    store(sample, point.frame);
    return engine::copyText(point.name, name, nameBytes);
}

KESS_RESULT Sound::getName(char* name, int nameBytes)
{
    return engine::copyText(mImpl->facts->name, name, nameBytes);
}

KESS_RESULT Sound::getNumSubSounds(int* count)
{
    store(count, 0);
    if (mImpl->role != Impl::Role::Bank)
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
    return engine::guarded([&] {
        const KESS_RESULT result = mImpl->checkUnlockedBank();
        return result == KESS_OK ? mImpl->subsound(index, subsound) : result;
    });
}

KESS_RESULT Sound::getSubSoundByName(const char* name, Sound** subsound)
{
    if (!subsound || !name)
        return KESS_ERR_INVALID_PARAM;
    *subsound = nullptr;
    return engine::guarded([&] {
        if (const KESS_RESULT result = mImpl->checkUnlockedBank(); result != KESS_OK)
            return result;
        base::Result<int> index = mImpl->bank->find(name);
        if (!index)
            return index.error().code == base::ErrorCode::NotFound ? KESS_ERR_TAGNOTFOUND
                                                                   : engine::fail(std::move(index.error()));
        return mImpl->subsound(*index, subsound);
    });
}

KESS_RESULT Sound::getBankInfo(KESS_BANKINFO* info)
{
    if (!info || info->cbsize != static_cast<int32_t>(sizeof *info))
        return KESS_ERR_INVALID_PARAM;
    *info = {};
    info->cbsize = static_cast<int32_t>(sizeof *info);
    const KESS_RESULT result = mImpl->checkUnlockedBank();
    if (result != KESS_ERR_SUBSOUNDS)
        mImpl->bank->describe(*info);
    return result;
}

KESS_RESULT Sound::getEncoding(KESS_ENCODING* encoding)
{
    constexpr size_t kWithoutChecksum = offsetof(KESS_ENCODING, dataChecksum);
    if (!encoding)
        return KESS_ERR_INVALID_PARAM;
    const auto bytes = static_cast<size_t>(encoding->cbsize);
    if (bytes != kWithoutChecksum && bytes != sizeof *encoding)
        return KESS_ERR_INVALID_PARAM;
    std::memset(&encoding->codec, 0, bytes - offsetof(KESS_ENCODING, codec));
    if (mImpl->role == Impl::Role::Bank && mImpl->bank->locked())
        return KESS_ERR_KEY_MISSING;
    const std::optional<engine::Encoding>& stored = mImpl->facts->encoding;
    if (!stored)
        return KESS_ERR_SUBSOUNDS;
    encoding->codec = stored->codec;
    encoding->quality = stored->quality;
    encoding->dataBytes = stored->dataBytes;
    encoding->extraBytes = stored->extraBytes;
    if (bytes > kWithoutChecksum)
        encoding->dataChecksum = stored->dataChecksum;
    return KESS_OK;
}

KESS_RESULT Sound::verifyData()
{
    return engine::guarded([&] {
        const KESS_RESULT result = mImpl->checkOneOfBank();
        return result == KESS_OK ? engine::finish(mImpl->bank->verifyData(*mImpl->sound)) : result;
    });
}

KESS_RESULT Sound::verifyBank(KESS_FINDING_CALLBACK finding, void* userData)
{
    return engine::guarded([&] {
        const KESS_RESULT result = mImpl->checkUnlockedBank();
        if (result != KESS_OK)
            return result;
        return engine::finish(engine::BankVerification(*mImpl->bank, engine::reportTo(finding, userData)).run());
    });
}

KESS_RESULT Sound::createVoice(Sound** voice)
{
    if (!voice)
        return KESS_ERR_INVALID_PARAM;
    *voice = nullptr;
    return engine::guarded([&] {
        if (const KESS_RESULT result = mImpl->checkOneOfBank(); result != KESS_OK)
            return result;
        if (base::Result<> known = engine::BankFile::checkCodec(*mImpl->sound); !known)
            return engine::fail(std::move(known.error()));
        *voice = SoundAccess::makeVoice(mImpl->bank, mImpl->sound).release();
        return KESS_OK;
    });
}

KESS_RESULT Sound::isEncrypted(bool* encrypted)
{
    store(encrypted, mImpl->role == Impl::Role::Bank && mImpl->bank->encrypted());
    return KESS_OK;
}

KESS_RESULT Sound::setEncryptionKey(const char* key)
{
    if (!key)
        return KESS_ERR_INVALID_PARAM;
    return engine::guarded([&] {
        if (mImpl->role != Impl::Role::Bank || !mImpl->bank->locked())
            return KESS_OK;
        base::Result<> unlocked = mImpl->bank->unlock(key);
        return engine::finish(unlocked ? mImpl->adoptOnlySound() : std::move(unlocked));
    });
}

} // namespace KESS
