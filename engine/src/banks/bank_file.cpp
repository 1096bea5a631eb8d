// SPDX-License-Identifier: MIT
#include "banks/bank_file.hpp"

#include <algorithm>
#include <cassert>
#include <system_error>
#include <utility>

namespace engine {

namespace {

static_assert(KESS_MAX_CHANNELS == bank::kMaximumChannels);
static_assert(static_cast<int>(bank::SampleFormat::Pcm8) == KESS_SOUND_FORMAT_PCM8);
static_assert(static_cast<int>(bank::SampleFormat::Float) == KESS_SOUND_FORMAT_PCMFLOAT);
static_assert(static_cast<int>(bank::Codec::Pcm) == KESS_CODEC_PCM
              && static_cast<int>(bank::Codec::Opus) == KESS_CODEC_OPUS);

// The medium as the container reads it.
class MediumSource final : public base::ByteSource
{
public:
    explicit MediumSource(MediumPointer medium)
        : mMedium(std::move(medium))
    { }

    [[nodiscard]] uint64_t size() const override { return mMedium->size(); }

    base::Result<> readAt(uint64_t offset, std::span<uint8_t> bytes) const override
    {
        if (!base::rangeInside(offset, bytes.size(), size()))
            return base::Error{base::ErrorCode::Damaged};
        if (bytes.empty())
            return {};
        int failed = 0;
        if (mMedium->read(offset, bytes.data(), bytes.size(), &failed) == bytes.size())
            return {};
        if (failed != 0)
            return base::Error{base::ErrorCode::Io, std::generic_category().message(failed), failed};
        return base::Error{base::ErrorCode::Io, "it has become shorter since it was opened"};
    }

private:
    MediumPointer mMedium;
};

KESS_CODEC asEngineCodec(bank::Codec codec)
{
    return static_cast<size_t>(codec) < bank::kCodecCount ? static_cast<KESS_CODEC>(codec) : KESS_CODEC_UNKNOWN;
}

SoundFacts engineFacts(const bank::Sound& sound, const bank::SoundEntry& entry)
{
    SoundFacts facts;
    facts.type = KESS_SOUND_TYPE_TNB;
    facts.format =
        sound.codec == bank::Codec::Pcm ? static_cast<KESS_SOUND_FORMAT>(sound.sampleFormat) : KESS_SOUND_FORMAT_PCM16;
    facts.channels = sound.channels;
    facts.sampleRate = sound.sampleRate;
    facts.sampleCount = sound.sampleCount;
    facts.loop = sound.loop;
    facts.syncPoints = sound.syncPoints;
    facts.peak = sound.peak;
    facts.name = entry.name;
    facts.encoding =
        Encoding{asEngineCodec(sound.codec), sound.quality, entry.dataBytes, entry.chunksBytes, entry.dataChecksum};
    return facts;
}

base::Error keyMissing()
{
    return {base::ErrorCode::KeyMissing, "it is encrypted"};
}

base::Error damagedSetup()
{
    return {base::ErrorCode::Damaged, "the headers of its codec are damaged or missing"};
}

} // namespace

base::Result<std::unique_ptr<BankFile>> BankFile::open(MediumPointer medium)
{
    std::unique_ptr<BankFile> bank(new BankFile(std::move(medium)));
    const base::Result<bank::Kind> kind = bank::probe(*bank->mFile);
    if (!kind)
        return kind.error();
    bank->mEncrypted = *kind == bank::Kind::Encrypted;
    if (base::Result<> opened = bank->mEncrypted ? bank::checkLocked(*bank->mFile) : bank->openTables(bank->mFile);
        !opened)
        return std::move(opened.error());
    return bank;
}

BankFile::BankFile(MediumPointer medium)
    : mFile(std::make_shared<MediumSource>(std::move(medium)))
{ }

base::Result<> BankFile::unlock(std::string_view key)
{
    if (mReader)
        return {};
    base::Result<std::shared_ptr<const base::ByteSource>> plain = bank::unlock(mFile, key);
    if (!plain)
        return std::move(plain.error());
    base::Result<> opened = openTables(*plain);
    if (opened || opened.error().code == base::ErrorCode::Memory || opened.error().code == base::ErrorCode::Io)
        return opened;
    // The key was right, so another key or a newer engine wouldn't help.
    const std::string& text = opened.error().text;
    return base::Error{base::ErrorCode::Damaged, text.empty() ? "what was encrypted isn't a bank" : text};
}

void BankFile::describe(KESS_BANKINFO& info) const
{
    info.encrypted = mEncrypted;
    info.fileBytes = mFile->size();
    if (!mReader)
        return;
    const bank::BankInfo& bank = mReader->info();
    info.majorVersion = bank.majorVersion;
    info.minorVersion = bank.minorVersion;
    info.codec = asEngineCodec(bank.format);
    if (bank::hasQuality(bank.format))
        info.quality = static_cast<int32_t>(std::min<uint32_t>(bank.quality, 100));
    info.hasNames = bank.hasNames;
    info.hasGuid = bank.guid.has_value();
    if (bank.guid)
        std::copy(bank.guid->begin(), bank.guid->end(), info.guid);
}

base::Result<std::shared_ptr<BankSound>> BankFile::sound(int index) const
{
    if (!mReader)
        return keyMissing();
    assert(index >= 0 && index < soundCount());
    base::Result<bank::Sound> stored = mReader->soundWithoutSetup(uint32_t(index));
    if (!stored)
        return std::move(stored.error());
    const bank::SoundEntry entry = mReader->entry(uint32_t(index));
    auto sound = std::make_shared<BankSound>();
    sound->index = index;
    sound->facts = engineFacts(*stored, entry);
    sound->stored = std::move(*stored);
    sound->data = {mReader->source(), entry.dataOffset, entry.dataBytes};
    sound->isEncrypted = mEncrypted;
    sound->setup = entry.setup;
    return sound;
}

base::Result<int> BankFile::find(std::string_view name) const
{
    if (!mReader)
        return keyMissing();
    base::Result<uint32_t> found = mReader->find(name);
    if (!found)
        return std::move(found.error());
    return int(*found);
}

base::Result<> BankFile::verifyData(const BankSound& sound) const
{
    return mReader->verifyData(uint32_t(sound.index));
}

base::Result<> BankFile::checkCodec(const BankSound& sound)
{
    if (sound.stored.codec == bank::Codec::Xma || sound.stored.codec == bank::Codec::At9)
        return base::Error{base::ErrorCode::Unsupported, "its codec can't be decoded"};
    return {};
}

base::Result<DecoderPointer> BankFile::decoder(const std::shared_ptr<BankSound>& sound)
{
    if (base::Result<> ready = prepare(*sound); !ready)
        return std::move(ready.error());
    switch (sound->stored.codec) {
    case bank::Codec::Pcm:
        return makePcmDecoder(sound);
    case bank::Codec::Vorbis:
        return makeVorbisDecoder(sound);
    case bank::Codec::Kadpcm:
        return makeKadpcmDecoder(sound);
    default:
        return makeOpusDecoder(sound);
    }
}

base::Result<> BankFile::openTables(std::shared_ptr<const base::ByteSource> plain)
{
    base::Result<bank::BankReader> reader = bank::BankReader::open(std::move(plain));
    if (!reader)
        return std::move(reader.error());
    mReader = std::move(*reader);
    return {};
}

base::Result<> BankFile::prepare(BankSound& sound)
{
    if (base::Result<> known = checkCodec(sound); !known)
        return known;
    const std::lock_guard lock(mPreparing);
    if (sound.isPrepared)
        return {};
    base::Result<> prepared;
    if (sound.stored.codec == bank::Codec::Opus)
        prepared = prepareOpus(sound);
    else if (sound.stored.codec == bank::Codec::Vorbis)
        prepared = prepareVorbis(sound);
    if (!prepared)
        return prepared;
    sound.corrections.clear();
    for (const bank::Correction& correction : sound.stored.corrections)
        sound.corrections.push_back(
            {sound.stored.preSkip + correction.first, bank::expandCorrection(correction, sound.facts.channels)});
    sound.isPrepared = true;
    return {};
}

base::Result<> BankFile::prepareOpus(BankSound& sound) const
{
    if (!sound.setup || mReader->setupBytes(*sound.setup) > kMaximumOpusSetupBytes)
        return damagedSetup();
    base::Result<std::vector<uint8_t>> bytes = mReader->setup(*sound.setup);
    if (!bytes)
        return std::move(bytes.error());
    sound.opusSetup = std::move(*bytes);
    return {};
}

base::Result<> BankFile::prepareVorbis(BankSound& sound)
{
    if (!sound.setup || mBadVorbisSetups.contains(*sound.setup))
        return damagedSetup();
    base::Result<VorbisSetupPointer> shared = vorbisSetup(*sound.setup);
    if (!shared) {
        if (shared.error().code == base::ErrorCode::Damaged)
            mBadVorbisSetups.insert(*sound.setup);
        return std::move(shared.error());
    }
    mLastVorbisSetup = *shared;
    sound.vorbisSetup = std::move(*shared);
    return {};
}

base::Result<VorbisSetupPointer> BankFile::vorbisSetup(uint32_t index)
{
    std::weak_ptr<const VorbisSetup>& known = mVorbisSetups[index];
    if (VorbisSetupPointer shared = known.lock())
        return shared;
    base::Result<std::vector<uint8_t>> bytes = mReader->setup(index);
    if (!bytes)
        return std::move(bytes.error());
    base::Result<VorbisSetupPointer> made = makeVorbisSetup(*bytes);
    if (made)
        known = *made;
    return made;
}

} // namespace engine
