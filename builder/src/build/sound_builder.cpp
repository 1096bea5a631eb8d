// SPDX-License-Identifier: MIT
#include "build/sound_builder.hpp"

#include "bank/vector_state.hpp"
#include "base/bytes.hpp"
#include "base/path.hpp"
#include "build/build_request.hpp"
#include "build/describe_error.hpp"
#include "source/raw_sound.hpp"

namespace builder {

namespace {

// Discards the data of a sound.
class NoData final : public base::ByteSink
{
public:
    base::Result<> write(std::span<const uint8_t>) override { return {}; }
};

} // namespace

SoundBuilder::SoundBuilder(const BuildServices& services, SpillFiles spills)
    : mServices(services)
    , mSpills(std::move(spills))
{ }

std::string SoundBuilder::Job::shownName() const
{
    return std::string(base::baseName(paths.front()));
}

base::Result<EncodedLocation> SoundBuilder::build(const BuildSettings& settings, const TARNOK_SUBSOUND& subsound,
                                                  bool again, const Report& report)
{
    Job job{SoundSettings::resolve(settings, subsound), sourcePaths(subsound), again, report, {}, {}, {}};
    constexpr int kAttempts = 3;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (base::Result<> status = identify(&job); !status)
            return status.error();
        if (std::optional<EncodedLocation> location = find(job))
            return std::move(*location);
        if (mServices.stop.stop_requested())
            return base::cancelled();
        base::Result<std::optional<EncodedLocation>> location = encode(&job);
        if (!location)
            return location.error();
        if (*location)
            return std::move(**location);
    }
    return keepsChanging(job.changed);
}

base::Result<> SoundBuilder::identify(Job* job)
{
    job->identities.clear();
    std::vector<ContentHash> contents;
    for (const std::string& path : job->paths) {
        // If a file has changed unexpectedly, the index may have been wrong about it.
        const bool rehash = job->again || !job->changed.empty();
        const base::Result<SourceIdentity> identity = mServices.sources.identify(path, mServices.stop, rehash);
        if (!identity)
            return identity.error();
        job->identities.push_back(*identity);
        contents.push_back(identity->content);
    }
    job->key = job->settings.cacheKey(contents);
    return {};
}

std::optional<EncodedLocation> SoundBuilder::find(const Job& job)
{
    if (job.again)
        return std::nullopt;
    if (std::optional<EncodedLocation> location = findInSource(job))
        return location;
    const std::optional<CacheEntry> entry = mServices.cache.find(job.key, mServices.stop);
    if (entry && entry->codec == job.settings.codec)
        return EncodedLocation::make(job.key, entry->dataBytes, entry->record);
    return std::nullopt;
}

std::optional<EncodedLocation> SoundBuilder::findInSource(const Job& job)
{
    if (!job.mayStayInSource())
        return std::nullopt;
    const std::optional<RawRecord> known = mServices.rawRecords.find(job.key);
    if (!known)
        return std::nullopt;
    const base::FileStamp& stamp = job.identities.front().stamp;
    const base::Result<bank::Sound> sound = bank::deserialise(known->bytes);
    if (!sound || known->bytes.size() > EncodedLocation::kMaximumKeptRecord || sound->codec != bank::Codec::Pcm
        || bank::serialise(*sound) != known->bytes
        || !base::rangeInside(known->dataOffset, sound->dataBytes, stamp.size))
        return std::nullopt;
    EncodedLocation location = EncodedLocation::make(job.key, sound->dataBytes, known->bytes);
    location.inSource = {known->dataOffset, stamp};
    return location;
}

// The key was computed when the files were hashed; then the engine opened them again. If they changed in between, the
// encoded data doesn't belong to the key: nothing is stored, and the caller starts again.
base::Result<std::optional<EncodedLocation>> SoundBuilder::encode(Job* which)
{
    const Job& job = *which;
    SoundPreparation preparation(job.settings, mServices.spoolFolders, mServices.stop);
    EncodedFile file(job.again ? nullptr : &mServices.cache, mSpills, mServices.stop);
    bank::Sound sound;
    base::Result<> status = prepare(job, preparation);
    base::Result<bool> isInSource = false;
    if (status) {
        job.report(TARNOK_STATE_ENCODING);
        isInSource = leaveInSource(job, preparation, &sound);
        if (!isInSource)
            status = isInSource.error();
        else if (!*isInSource)
            status = encodeInto(file, job, preparation, &sound);
    }

    // Reading a file that is truncated or overwritten meanwhile can fail with any error. So a change is reported
    // instead of that error.
    const base::Result<bool> isChanged = hasChanged(which, isInSource && *isInSource);
    if (isChanged && *isChanged)
        return std::optional<EncodedLocation>();
    if (!status)
        return status.error();
    if (!isChanged)
        return isChanged.error();
    job.report(TARNOK_STATE_WRITING);
    if (*isInSource)
        return std::optional(keepInSource(job, preparation, sound));
    base::Result<EncodedLocation> location = file.finish(job.key, sound);
    if (!location && location.error().code == base::ErrorCode::Codec)
        return base::Error{base::ErrorCode::Codec, job.shownName() + ": " + location.error().text};
    if (!location)
        return location.error();
    return std::optional(std::move(*location));
}

base::Result<> SoundBuilder::prepare(const Job& job, SoundPreparation& preparation)
{
    job.report(TARNOK_STATE_DECODING);
    if (base::Result<> status = preparation.open(*mServices.engine, job.paths); !status)
        return status;
    job.report(TARNOK_STATE_ANALYSING);
    if (base::Result<> status = preparation.analyse(); !status)
        return status;
    job.report(TARNOK_STATE_PREPROCESSING);
    base::Result<> status = preparation.preprocess();
    for (const std::string& remark : preparation.remarks())
        mServices.remarks.post(remark);
    return status;
}

// A file that has certainly changed takes precedence over errors of other files. A sound that stays in its source is
// compared with its checksum each time, so a wrong record of it does no harm.
base::Result<bool> SoundBuilder::hasChanged(Job* job, bool staysInSource)
{
    base::Result<bool> answer = false;
    for (size_t i = 0; i < job->paths.size(); ++i) {
        const base::Result<bool> same =
            mServices.sources.unchanged(job->paths[i], job->identities[i], staysInSource, mServices.stop);
        if (same && !*same) {
            job->changed = job->paths[i];
            return true;
        }
        if (!same && answer)
            answer = same.error();
    }
    return answer;
}

// Errors needn't be reported here: the sound fails again when it is decoded.
base::Result<bool> SoundBuilder::leaveInSource(const Job& job, SoundPreparation& preparation, bank::Sound* sound)
{
    const std::optional<RawSampleRange>& samples = preparation.rawSamples();
    if (!job.mayStayInSource() || !samples)
        return false;
    std::optional<RawSound> raw =
        RawSound::open(job.paths.front(), job.identities.front().stamp, preparation.sound().facts(), *samples);
    if (!raw)
        return false;
    NoData none;
    const base::Result<> encoded =
        encoderFor(job.settings).encode(*raw, job.settings.quality, none, mServices.stop, sound);
    if (!encoded && encoded.error().code == base::ErrorCode::Cancelled)
        return base::cancelled();
    if (!encoded)
        return false;
    preparation.complete(sound);
    return sound->dataBytes == samples->bytes && bank::serialise(*sound).size() <= EncodedLocation::kMaximumKeptRecord;
}

EncodedLocation SoundBuilder::keepInSource(const Job& job, const SoundPreparation& preparation,
                                           const bank::Sound& sound)
{
    const uint64_t offset = preparation.rawSamples()->offset;
    const std::vector<uint8_t> record = bank::serialise(sound);
    EncodedLocation location = EncodedLocation::make(job.key, sound.dataBytes, record);
    location.inSource = {offset, job.identities.front().stamp};
    mServices.rawRecords.store(job.key, offset, record);
    return location;
}

base::Result<> SoundBuilder::encodeInto(EncodedFile& file, const Job& job, SoundPreparation& preparation,
                                        bank::Sound* sound)
{
    const base::Result<> encoded =
        encoderFor(job.settings).encode(preparation.sound(), job.settings.quality, file, mServices.stop, sound);
    if (!encoded)
        return describeError(encoded.error(), job.shownName());
    preparation.complete(sound);
    return {};
}

// The encoder of a module depends on the settings of the sound, so each sound gets its own.
Encoder& SoundBuilder::encoderFor(const SoundSettings& settings)
{
    if (!mEncoder || settings.module)
        mEncoder = settings.makeEncoder();
    bank::clearVectorState();
    return *mEncoder;
}

} // namespace builder
