#include "build/sound_builder.hpp"

#include "bank/vector_state.hpp"
#include "build/build_request.hpp"
#include "source/raw_sound.hpp"

namespace tarnok {

namespace {

// Takes the place of the data of a sound that isn't to be kept.
class NoData final : public base::ByteSink
{
public:
    base::Result<> write(std::span<const uint8_t>) override { return {}; }
};

} // namespace

SoundBuilder::SoundBuilder(const BuildMeans& means, SpillFiles spills)
    : mMeans(means)
    , mSpills(std::move(spills))
{ }

std::string SoundBuilder::Job::shownName() const
{
    return std::string(baseName(paths.front()));
}

Result<StoredPlace> SoundBuilder::build(const BankOrder& order, const TARNOK_SUBSOUND& subsound, bool again,
                                        const Report& report)
{
    Job job{SoundSettings::of(order, subsound), pathsOf(subsound), again, report, {}, {}, {}};
    constexpr int kAttempts = 3;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (Status status = identify(&job); !status)
            return status.fault();
        if (std::optional<StoredPlace> place = find(job))
            return std::move(*place);
        if (mMeans.stop.stop_requested())
            return cancelled();
        Result<std::optional<StoredPlace>> place = encode(&job);
        if (!place)
            return place.fault();
        if (*place)
            return std::move(**place);
    }
    return keepsChanging(job.changed);
}

Status SoundBuilder::identify(Job* job)
{
    job->identities.clear();
    std::vector<ContentHash> contents;
    for (const std::string& path : job->paths) {
        // A file that isn't what it was taken for was taken so by the index, perhaps.
        const bool anew = job->again || !job->changed.empty();
        const Result<SourceIdentity> identity = mMeans.sources.identify(path, mMeans.stop, anew);
        if (!identity)
            return identity.fault();
        job->identities.push_back(*identity);
        contents.push_back(identity->content);
    }
    job->key = job->settings.cacheKey(contents);
    return {};
}

std::optional<StoredPlace> SoundBuilder::find(const Job& job)
{
    if (job.again)
        return std::nullopt;
    if (std::optional<StoredPlace> place = findInSource(job))
        return place;
    const std::optional<CacheEntry> entry = mMeans.cache.find(job.key, mMeans.stop);
    if (entry && entry->codec == job.settings.codec)
        return StoredPlace::of(job.key, entry->dataBytes, entry->record);
    return std::nullopt;
}

std::optional<StoredPlace> SoundBuilder::findInSource(const Job& job)
{
    if (!job.mayStay())
        return std::nullopt;
    const std::optional<RawRecord> known = mMeans.cache.findRecord(job.key);
    if (!known)
        return std::nullopt;
    const FileStamp& stamp = job.identities.front().stamp;
    const base::Result<bank::Sound> sound = bank::deserialise(known->bytes);
    if (!sound || known->bytes.size() > StoredPlace::kLongestKeptRecord || sound->codec != bank::Codec::Pcm
        || bank::serialise(*sound) != known->bytes
        || !base::rangeInside(known->dataOffset, sound->dataBytes, stamp.size))
        return std::nullopt;
    StoredPlace place = StoredPlace::of(job.key, sound->dataBytes, known->bytes);
    place.inSource = {known->dataOffset, stamp};
    return place;
}

// The key was made from what the files held when they were hashed, and the engine has opened them again since. If they
// have changed in between, what was encoded belongs to no known content: nothing is stored, and the caller begins anew.
Result<std::optional<StoredPlace>> SoundBuilder::encode(Job* which)
{
    const Job& job = *which;
    SoundPreparation preparation(job.settings, mMeans.spoolFolders, mMeans.stop);
    EncodedFile file(job.again ? nullptr : &mMeans.cache, mSpills, mMeans.stop);
    bank::Sound sound;
    Status status = prepare(job, preparation);
    Result<bool> left = false;
    if (status) {
        job.report(TARNOK_STATE_ENCODING);
        left = leaveInSource(job, preparation, &sound);
        if (!left)
            status = left.fault();
        else if (!*left)
            status = encodeInto(file, job, preparation, &sound);
    }

    // A file that was cut or overwritten while it was read fails in any way; that it changed is the better answer.
    const Result<bool> isOther = hasChanged(which, left && *left);
    if (isOther && *isOther)
        return std::optional<StoredPlace>();
    if (!status)
        return status.fault();
    if (!isOther)
        return isOther.fault();
    job.report(TARNOK_STATE_WRITING);
    if (*left)
        return std::optional(keepInSource(job, preparation, sound));
    Result<StoredPlace> place = file.finish(job.key, sound);
    if (!place && place.fault().code == TARNOK_ERR_ENCODER)
        return Fault{TARNOK_ERR_ENCODER, job.shownName() + ": " + place.fault().text};
    if (!place)
        return place.fault();
    return std::optional(std::move(*place));
}

Status SoundBuilder::prepare(const Job& job, SoundPreparation& preparation)
{
    job.report(TARNOK_STATE_DECODING);
    if (Status status = preparation.open(*mMeans.engine, job.paths); !status)
        return status;
    job.report(TARNOK_STATE_ANALYSING);
    if (Status status = preparation.analyse(); !status)
        return status;
    job.report(TARNOK_STATE_PREPROCESSING);
    Status status = preparation.preprocess();
    for (const std::string& remark : preparation.remarks())
        mMeans.remarks.post(remark);
    return status;
}

// A file that certainly is another one decides over those that can't be told. What stays in its source is compared with
// its checksum each time, so that a wrong record of it does no harm.
Result<bool> SoundBuilder::hasChanged(Job* job, bool staysInSource)
{
    Result<bool> answer = false;
    for (size_t i = 0; i < job->paths.size(); ++i) {
        const Result<bool> same =
            mMeans.sources.unchanged(job->paths[i], job->identities[i], staysInSource, mMeans.stop);
        if (same && !*same) {
            job->changed = job->paths[i];
            return true;
        }
        if (!same && answer)
            answer = same.fault();
    }
    return answer;
}

// A sound that fails here fails again where it is decoded, and is told about there.
Result<bool> SoundBuilder::leaveInSource(const Job& job, SoundPreparation& preparation, bank::Sound* sound)
{
    const std::optional<RawSamples>& samples = preparation.rawSamples();
    if (!job.mayStay() || !samples)
        return false;
    std::optional<RawSound> raw =
        RawSound::open(job.paths.front(), job.identities.front().stamp, preparation.sound().facts(), *samples);
    if (!raw)
        return false;
    NoData none;
    const base::Result<> encoded =
        encoderFor(job.settings).encode(*raw, job.settings.quality, none, mMeans.stop, sound);
    if (!encoded && encoded.error().code == base::ErrorCode::Cancelled)
        return cancelled();
    if (!encoded)
        return false;
    preparation.complete(sound);
    return sound->dataBytes == samples->bytes && bank::serialise(*sound).size() <= StoredPlace::kLongestKeptRecord;
}

StoredPlace SoundBuilder::keepInSource(const Job& job, const SoundPreparation& preparation, const bank::Sound& sound)
{
    const uint64_t offset = preparation.rawSamples()->offset;
    const std::vector<uint8_t> record = bank::serialise(sound);
    StoredPlace place = StoredPlace::of(job.key, sound.dataBytes, record);
    place.inSource = {offset, job.identities.front().stamp};
    mMeans.cache.storeRecord(job.key, offset, record);
    return place;
}

Status SoundBuilder::encodeInto(EncodedFile& file, const Job& job, SoundPreparation& preparation, bank::Sound* sound)
{
    const base::Result<> encoded =
        encoderFor(job.settings).encode(preparation.sound(), job.settings.quality, file, mMeans.stop, sound);
    if (!encoded && encoded.error().code == base::ErrorCode::Io)
        return preparation.fault().code != TARNOK_OK ? preparation.fault() : file.fault();
    if (!encoded)
        return faultOf(encoded.error(), job.shownName());
    preparation.complete(sound);
    return {};
}

// A module's encoder is made for the settings of one sound.
Encoder& SoundBuilder::encoderFor(const SoundSettings& settings)
{
    if (!mEncoder || settings.module)
        mEncoder = settings.makeEncoder();
    bank::clearVectorState();
    return *mEncoder;
}

} // namespace tarnok
