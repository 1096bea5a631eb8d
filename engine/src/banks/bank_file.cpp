// SPDX-License-Identifier: MIT
#include "banks/bank_file.hpp"

#include <algorithm>
#include <cassert>
#include <utility>

namespace engine {

namespace {

static_assert(KESS_MAX_CHANNELS == bank::kMaximumChannels);
static_assert(static_cast<int>(bank::SampleFormat::Pcm8) == KESS_SOUND_FORMAT_PCM8);
static_assert(static_cast<int>(bank::SampleFormat::Float) == KESS_SOUND_FORMAT_PCMFLOAT);
static_assert(static_cast<int>(bank::Codec::Pcm) == KESS_CODEC_PCM
              && static_cast<int>(bank::Codec::Opus) == KESS_CODEC_OPUS);

// The file as the container reads it.
class FileSource final : public base::ByteSource
{
public:
    explicit FileSource(FilePointer file)
        : mFile(std::move(file))
    { }

    [[nodiscard]] uint64_t size() const override { return mFile->size(); }

    base::Result<> readAt(uint64_t offset, std::span<uint8_t> bytes) const override
    {
        if (!base::rangeInside(offset, bytes.size(), size()))
            return base::Error{base::ErrorCode::Damaged};
        if (mFile->readAllAt(offset, bytes.data(), bytes.size()))
            return {};
        if (base::Result<> medium = mFile->takeReadError(); !medium)
            return medium;
        return base::Error{base::ErrorCode::Io, "it has become shorter since it was opened"};
    }

private:
    FilePointer mFile;
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

base::Result<std::unique_ptr<BankFile>> BankFile::open(FilePointer file)
{
    std::unique_ptr<BankFile> bank(new BankFile(std::move(file)));
    const base::Result<bank::Kind> kind = bank::probe(*bank->mFile);
    if (!kind)
        return kind.error();
    bank->mEncrypted = *kind == bank::Kind::Encrypted;
    if (base::Result<> opened = bank->mEncrypted ? bank::checkLocked(*bank->mFile) : bank->openTables(bank->mFile);
        !opened)
        return std::move(opened.error());
    return bank;
}

BankFile::BankFile(FilePointer file)
    : mFile(std::make_shared<FileSource>(std::move(file)))
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

base::Result<SoundFacts> BankFile::facts(int index) const
{
    base::Result<BankSound> sound = load(index);
    if (!sound)
        return std::move(sound.error());
    return std::move(sound->facts);
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

base::Result<> BankFile::verifyData(int index) const
{
    if (!mReader)
        return keyMissing();
    return mReader->verifyData(uint32_t(index));
}

base::Result<DecoderPointer> BankFile::decoder(int index)
{
    base::Result<BankSound> sound = load(index);
    if (!sound)
        return std::move(sound.error());
    const std::optional<uint32_t> setup = mReader->entry(uint32_t(index)).setup;
    switch (sound->stored.codec) {
    case bank::Codec::Pcm:
        return makePcmDecoder(std::move(*sound));
    case bank::Codec::Vorbis:
        return makeVorbis(*sound, setup);
    case bank::Codec::Kadpcm:
        return makeKadpcmDecoder(std::move(*sound));
    case bank::Codec::Opus:
        return makeOpus(*sound, setup);
    case bank::Codec::Xma:
    case bank::Codec::At9:
        break;
    }
    return base::Error{base::ErrorCode::Unsupported, "its codec can't be decoded"};
}

base::Result<> BankFile::openTables(std::shared_ptr<const base::ByteSource> plain)
{
    base::Result<bank::BankReader> reader = bank::BankReader::open(std::move(plain));
    if (!reader)
        return std::move(reader.error());
    mReader = std::move(*reader);
    return {};
}

base::Result<BankSound> BankFile::load(int index) const
{
    if (!mReader)
        return keyMissing();
    assert(index >= 0 && index < soundCount());
    base::Result<bank::Sound> stored = mReader->soundWithoutSetup(uint32_t(index));
    if (!stored)
        return std::move(stored.error());
    const bank::SoundEntry entry = mReader->entry(uint32_t(index));
    SoundFacts facts = engineFacts(*stored, entry);
    return BankSound{std::move(facts), std::move(*stored), {mReader->source(), entry.dataOffset, entry.dataBytes}};
}

base::Result<DecoderPointer> BankFile::makeOpus(const BankSound& sound, std::optional<uint32_t> setup) const
{
    if (!setup || mReader->setupBytes(*setup) > kMaximumOpusSetupBytes)
        return damagedSetup();
    base::Result<std::vector<uint8_t>> bytes = mReader->setup(*setup);
    if (!bytes)
        return std::move(bytes.error());
    return makeOpusDecoder(sound, *bytes);
}

base::Result<DecoderPointer> BankFile::makeVorbis(const BankSound& sound, std::optional<uint32_t> setup)
{
    if (!setup || mBadVorbisSetups.contains(*setup))
        return damagedSetup();
    base::Result<VorbisSetupPointer> shared = vorbisSetup(*setup);
    if (!shared) {
        if (shared.error().code == base::ErrorCode::Damaged)
            mBadVorbisSetups.insert(*setup);
        return std::move(shared.error());
    }
    mLastVorbisSetup = *shared;
    return makeVorbisDecoder(sound, std::move(*shared));
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
