#include "banks/bank_file.hpp"

#include "banks/bank_decoders.hpp"
#include "parse/source_file.hpp"

#include "bank/reader.hpp"

#include <algorithm>
#include <map>
#include <set>

namespace kess {

namespace {

static_assert(KESS_MAX_CHANNELS == bank::kMaximumChannels);
static_assert(static_cast<int>(bank::SampleFormat::Pcm8) == KESS_SOUND_FORMAT_PCM8);
static_assert(static_cast<int>(bank::SampleFormat::Float) == KESS_SOUND_FORMAT_PCMFLOAT);
static_assert(static_cast<int>(bank::Codec::Pcm) == KESS_CODEC_PCM
              && static_cast<int>(bank::Codec::Opus) == KESS_CODEC_OPUS);

// A file as the container reads it.
class FileBytes final : public base::ByteSource
{
public:
    explicit FileBytes(std::shared_ptr<const SourceFile> file)
        : mFile(std::move(file))
    { }

    [[nodiscard]] uint64_t size() const override { return mFile->size(); }

    base::Result<> readAt(uint64_t offset, std::span<uint8_t> bytes) const override
    {
        if (!base::rangeInside(offset, bytes.size(), size()))
            return base::Error{base::ErrorCode::Damaged};
        if (!mFile->readAllAt(offset, bytes.data(), bytes.size()))
            return base::Error{base::ErrorCode::Io};
        return {};
    }

private:
    std::shared_ptr<const SourceFile> mFile;
};

KESS_CODEC codecOf(bank::Codec codec)
{
    return static_cast<size_t>(codec) < bank::kCodecCount ? static_cast<KESS_CODEC>(codec) : KESS_CODEC_UNKNOWN;
}

SoundFacts factsOf(const bank::Sound& sound, const bank::SoundEntry& entry)
{
    SoundFacts facts;
    facts.type = KESS_SOUND_TYPE_TNB;
    facts.format =
        sound.codec == bank::Codec::Pcm ? static_cast<KESS_SOUND_FORMAT>(sound.sampleFormat) : KESS_SOUND_FORMAT_PCM16;
    facts.channels = sound.channels;
    facts.sampleRate = sound.sampleRate;
    facts.sampleCount = sound.sampleCount;
    if (sound.loop)
        facts.loop = Loop{sound.loop->start, sound.loop->end};
    for (const base::SyncPoint& point : sound.syncPoints)
        facts.syncPoints.push_back({point.frame, point.name});
    facts.peak = sound.peak;
    facts.name = entry.name;
    facts.encoding = Encoding{codecOf(sound.codec), sound.quality, entry.dataBytes, entry.chunksBytes};
    return facts;
}

// The one kind of bank there is.
class TnbFile final : public BankFile
{
public:
    explicit TnbFile(std::shared_ptr<const base::ByteSource> file)
        : mFile(std::move(file))
    { }

    base::Result<> open()
    {
        const base::Result<bank::Kind> kind = bank::probe(*mFile);
        if (!kind)
            return kind.error();
        mEncrypted = *kind == bank::Kind::Encrypted;
        return mEncrypted ? bank::checkLocked(*mFile) : openTables(mFile);
    }

    [[nodiscard]] bool encrypted() const override { return mEncrypted; }
    [[nodiscard]] bool locked() const override { return !mReader; }

    base::Result<> unlock(std::string_view key) override
    {
        if (mReader)
            return {};
        const base::Result<std::shared_ptr<const base::ByteSource>> plain = bank::unlock(mFile, key);
        if (!plain)
            return plain.error();
        const base::Result<> opened = openTables(*plain);
        if (opened || opened.error().code == base::ErrorCode::Memory)
            return opened;
        // The key was right: to ask for another, or for a newer engine, would lead nowhere.
        const std::string& text = opened.error().text;
        return base::Error{base::ErrorCode::Damaged, text.empty() ? "what was encrypted isn't a bank" : text};
    }

    [[nodiscard]] const bank::BankReader* reader() const override { return mReader ? &*mReader : nullptr; }

    void describe(KESS_BANKINFO* info) const override
    {
        info->encrypted = mEncrypted;
        info->fileBytes = mFile->size();
        if (!mReader)
            return;
        const bank::BankInfo& bank = mReader->info();
        info->majorVersion = bank.majorVersion;
        info->minorVersion = bank.minorVersion;
        info->codec = codecOf(bank.format);
        if (bank::hasQuality(bank.format))
            info->quality = static_cast<int32_t>(std::min<uint32_t>(bank.quality, 100));
        info->hasNames = bank.hasNames;
        info->hasGuid = bank.guid.has_value();
        if (bank.guid)
            std::copy(bank.guid->begin(), bank.guid->end(), info->guid);
    }

    [[nodiscard]] int soundCount() const override { return mReader ? static_cast<int>(mReader->info().soundCount) : 0; }

    [[nodiscard]] KESS_RESULT facts(int index, SoundFacts* facts) const override
    {
        BankSound sound;
        const KESS_RESULT result = load(index, &sound);
        *facts = std::move(sound.facts);
        return result;
    }

    [[nodiscard]] KESS_RESULT find(std::string_view name, int* index) const override
    {
        if (!mReader)
            return KESS_ERR_KEY_MISSING;
        const base::Result<uint32_t> found = mReader->find(name);
        if (!found)
            return found.error().code == base::ErrorCode::NotFound ? KESS_ERR_TAGNOTFOUND : resultOf(found.error());
        *index = int(*found);
        return KESS_OK;
    }

    [[nodiscard]] KESS_RESULT verifyData(int index) const override
    {
        return mReader ? resultOf(mReader->verifyData(static_cast<uint32_t>(index))) : KESS_ERR_KEY_MISSING;
    }

    [[nodiscard]] KESS_RESULT decoder(int index, DecoderPointer* decoder) override
    {
        BankSound sound;
        if (const KESS_RESULT result = load(index, &sound); result != KESS_OK)
            return result;
        const std::optional<uint32_t> setup = mReader->entry(static_cast<uint32_t>(index)).setup;
        switch (sound.stored.codec) {
        case bank::Codec::Pcm:
            return makePcmDecoder(std::move(sound), decoder);
        case bank::Codec::Vorbis:
            return makeVorbis(std::move(sound), setup, decoder);
        case bank::Codec::Kadpcm:
            return makeKadpcmDecoder(std::move(sound), decoder);
        case bank::Codec::Opus:
            return makeOpus(std::move(sound), setup, decoder);
        case bank::Codec::Xma:
        case bank::Codec::At9:
            break;
        }
        return KESS_ERR_UNSUPPORTED;
    }

private:
    base::Result<> openTables(std::shared_ptr<const base::ByteSource> plain)
    {
        base::Result<bank::BankReader> reader = bank::BankReader::open(std::move(plain));
        if (!reader)
            return reader.error();
        mReader = std::move(*reader);
        return {};
    }

    [[nodiscard]] KESS_RESULT load(int index, BankSound* sound) const
    {
        if (!mReader)
            return KESS_ERR_KEY_MISSING;
        if (index < 0 || static_cast<uint32_t>(index) >= mReader->info().soundCount)
            return KESS_ERR_INVALID_PARAM;
        base::Result<bank::Sound> stored = mReader->soundWithoutSetup(static_cast<uint32_t>(index));
        if (!stored)
            return resultOf(stored.error());
        const bank::SoundEntry entry = mReader->entry(static_cast<uint32_t>(index));
        sound->facts = factsOf(*stored, entry);
        sound->stored = std::move(*stored);
        sound->data = {mReader->source(), entry.dataOffset, entry.dataBytes};
        return KESS_OK;
    }

    [[nodiscard]] KESS_RESULT makeOpus(BankSound sound, std::optional<uint32_t> setup, DecoderPointer* decoder)
    {
        if (!setup || mReader->setupBytes(*setup) > kLongestOpusSetup)
            return KESS_ERR_FILE_BAD;
        const base::Result<std::vector<uint8_t>> bytes = mReader->setup(*setup);
        return bytes ? makeOpusDecoder(std::move(sound), *bytes, decoder) : resultOf(bytes.error());
    }

    [[nodiscard]] KESS_RESULT makeVorbis(BankSound sound, std::optional<uint32_t> setup, DecoderPointer* decoder)
    {
        if (!setup || mBadVorbisSetups.contains(*setup))
            return KESS_ERR_FILE_BAD;
        std::shared_ptr<const VorbisSetup> shared = mVorbisSetups[*setup].lock();
        if (!shared) {
            const base::Result<std::vector<uint8_t>> bytes = mReader->setup(*setup);
            const KESS_RESULT result = bytes ? makeVorbisSetup(*bytes, &shared) : resultOf(bytes.error());
            if (result == KESS_ERR_FILE_BAD && (bytes || bytes.error().code != base::ErrorCode::Io))
                mBadVorbisSetups.insert(*setup);
            if (result != KESS_OK)
                return result;
            mVorbisSetups[*setup] = shared;
        }
        mLastVorbisSetup = shared;
        return makeVorbisDecoder(std::move(sound), std::move(shared), decoder);
    }

    std::shared_ptr<const base::ByteSource> mFile;
    bool mEncrypted = false;
    std::optional<bank::BankReader> mReader;
    std::map<uint32_t, std::weak_ptr<const VorbisSetup>> mVorbisSetups;
    std::set<uint32_t> mBadVorbisSetups; // headers that are damaged, which take as long to read as others
    // Who opens and releases sound after sound doesn't unpack the headers that they share each time.
    std::shared_ptr<const VorbisSetup> mLastVorbisSetup;
};

} // namespace

KESS_RESULT resultOf(const base::Result<>& result)
{
    return result ? KESS_OK : resultOf(result.error());
}

KESS_RESULT resultOf(const base::Error& error)
{
    switch (error.code) {
    case base::ErrorCode::Format:
        return KESS_ERR_FORMAT;
    case base::ErrorCode::Version:
        return KESS_ERR_VERSION;
    case base::ErrorCode::KeyMissing:
        return KESS_ERR_KEY_MISSING;
    case base::ErrorCode::KeyWrong:
        return KESS_ERR_KEY_WRONG;
    case base::ErrorCode::NotFound:
        return KESS_ERR_FILE_NOTFOUND;
    case base::ErrorCode::Invalid:
        return KESS_ERR_INVALID_PARAM;
    case base::ErrorCode::Unsupported:
        return KESS_ERR_UNSUPPORTED;
    case base::ErrorCode::Memory:
        return KESS_ERR_MEMORY;
    default:
        return KESS_ERR_FILE_BAD;
    }
}

base::Result<std::unique_ptr<BankFile>> BankFile::open(const char* path)
{
    std::shared_ptr<const SourceFile> file;
    if (const KESS_RESULT result = SourceFile::open(path, &file); result != KESS_OK)
        return base::Error{result == KESS_ERR_FILE_NOTFOUND ? base::ErrorCode::NotFound : base::ErrorCode::Io};
    auto opened = std::make_unique<TnbFile>(std::make_shared<FileBytes>(std::move(file)));
    if (const base::Result<> result = opened->open(); !result)
        return result.error();
    return opened;
}

} // namespace kess
