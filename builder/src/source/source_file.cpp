#include "source/source_file.hpp"

#include "bank/vector_state.hpp"
#include "support/file.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tarnok {

namespace {

constexpr unsigned kOpenMode = KESS_MODE_CREATESTREAM | KESS_MODE_OPENONLY | KESS_MODE_LOWMEM;

// Float files may hold infinities and worse. One such sample would drown all others in a lossy encoder, so samples end
// where nobody means them: 48 dB above full scale. What is no number becomes 0.
constexpr float kLargestSample = 256;

// What kind of file it is instead of a sound, or null.
const char* refusal(KESS_SOUND_TYPE type)
{
    switch (type) {
    case KESS_SOUND_TYPE_DLS:
        return "this is an instrument bank, which holds no sound by itself";
    case KESS_SOUND_TYPE_IT:
    case KESS_SOUND_TYPE_MOD:
    case KESS_SOUND_TYPE_S3M:
    case KESS_SOUND_TYPE_XM:
        return "this is tracker music, which can't be built into a bank";
    case KESS_SOUND_TYPE_MIDI:
        return "this is MIDI music, which can't be built into a bank";
    case KESS_SOUND_TYPE_PLAYLIST:
        return "this is a playlist, not a sound";
    default:
        return nullptr;
    }
}

} // namespace

Result<KessSystem> startEngine()
{
    KESS::System* system = nullptr;
    KESS_RESULT result = KESS_System_Create(&system, KESS_VERSION);
    KessSystem engine(system);
    if (result == KESS_OK)
        result = engine->setOutput(KESS_OUTPUTTYPE_NOSOUND_NRT);
    if (result == KESS_OK)
        result = engine->init(0, 0, nullptr);
    if (result != KESS_OK)
        return Fault{TARNOK_ERR_KESS, std::string("the audio engine does not start: ") + KESS_ErrorString(result)};
    return engine;
}

Result<std::unique_ptr<SourceFile>> SourceFile::open(KESS::System& engine, const std::string& path)
{
    bank::clearVectorState();
    KESS::Sound* sound = nullptr;
    const KESS_RESULT result = engine.createSound(path.c_str(), kOpenMode, nullptr, &sound);
    std::unique_ptr<SourceFile> file(new SourceFile(path, sound));
    if (result != KESS_OK)
        return file->faultOf(result);
    if (Status status = file->readFacts(); !status)
        return status.fault();
    return file;
}

Status SourceFile::seek(uint64_t frame)
{
    if (frame == mPosition)
        return {};
    bank::clearVectorState();
    const KESS_RESULT result = mSound->seekData(frame);
    if (result != KESS_OK)
        return faultOf(result);
    mPosition = frame;
    return {};
}

Status SourceFile::readFloat(float* frames, size_t count)
{
    const auto channels = size_t(mFacts.channels);
    float* const first = frames;
    size_t left = count;
    while (left > 0) {
        unsigned got = 0;
        bank::clearVectorState();
        const auto wanted = unsigned(std::min<size_t>(left, 1 << 20));
        const KESS_RESULT result = mSound->readFloat(frames, wanted, &got);
        if (result != KESS_OK && result != KESS_ERR_FILE_EOF && result != KESS_ERR_FILE_BAD)
            return faultOf(result);
        if (got == 0)
            return endsEarly(mPosition, mFacts.length);
        frames += got * channels;
        left -= got;
        mPosition += got;
    }
    if (mFacts.sampleFormat == bank::SampleFormat::Float)
        std::transform(first, frames, first, [](float sample) {
            return std::isnan(sample) ? 0.0f : std::clamp(sample, -kLargestSample, kLargestSample);
        });
    return {};
}

Status SourceFile::readSamples(void* frames, size_t count)
{
    const size_t frameBytes = size_t(mFacts.channels) * bank::bytesPerSample(mFacts.sampleFormat);
    auto* target = static_cast<uint8_t*>(frames);
    while (count > 0) {
        unsigned got = 0;
        bank::clearVectorState();
        const size_t wanted = std::min<size_t>(count, (4 << 20) / frameBytes);
        const KESS_RESULT result = mSound->readData(target, unsigned(wanted * frameBytes), &got);
        if (result != KESS_OK && result != KESS_ERR_FILE_EOF && result != KESS_ERR_FILE_BAD)
            return faultOf(result);
        if (got < frameBytes)
            return endsEarly(mPosition, mFacts.length);
        target += got;
        count -= got / frameBytes;
        mPosition += got / frameBytes;
    }
    return {};
}

std::optional<RawSamples> SourceFile::rawSamples() const
{
    RawSamples samples;
    if (mSound->getRawSamples(&samples.offset, &samples.bytes) != KESS_OK)
        return std::nullopt;
    return samples;
}

std::optional<base::Loop> SourceFile::loop() const
{
    base::Loop loop;
    if (mSound->getLoopPoints(&loop.start, &loop.end) != KESS_OK || loop.start >= loop.end || loop.end > mFacts.length)
        return std::nullopt;
    return loop;
}

std::vector<base::SyncPoint> SourceFile::syncPoints() const
{
    std::vector<base::SyncPoint> points;
    int count = 0;
    if (mSound->getNumSyncPoints(&count) != KESS_OK)
        return points;
    for (int index = 0; index < count; ++index) {
        char name[1024] = "";
        uint64_t sample = 0;
        const KESS_RESULT result = mSound->getSyncPoint(index, &sample, name, sizeof name);
        if ((result == KESS_OK || result == KESS_ERR_TRUNCATED) && sample <= mFacts.length)
            points.push_back({sample, name});
    }
    return points;
}

std::string SourceFile::remark() const
{
    uint64_t points = 0;
    uint64_t names = 0;
    if (mSound->getDroppedSyncPoints(&points, &names) != KESS_OK || (points == 0 && names == 0))
        return {};
    std::string text(baseName(mPath));
    if (points > 0)
        text += ": " + std::to_string(points) + " of its markers were left out, because a sound can't have more than "
            + std::to_string(syncPoints().size());
    if (names > 0)
        text += std::string(points > 0 ? "; " : ": ") + "its markers have lost their names, which are too long in all";
    return text;
}

Status SourceFile::checkBank()
{
    const std::string name(baseName(mPath));
    bool encrypted = false;
    if (mSound->isEncrypted(&encrypted) == KESS_OK && encrypted)
        return Fault{TARNOK_ERR_INVALID_FORMAT, name + ": this bank is encrypted and can't be used as a source"};
    int sounds = 0;
    if (const KESS_RESULT result = mSound->getNumSubSounds(&sounds); result != KESS_OK)
        return faultOf(result);
    if (sounds != 1)
        return Fault{TARNOK_ERR_INVALID_FORMAT,
                     name + ": this bank holds " + std::to_string(sounds)
                         + " sounds; only a bank of exactly one can be used as a source"};
    return {};
}

Status SourceFile::readFacts()
{
    KESS_SOUND_TYPE type = KESS_SOUND_TYPE_UNKNOWN;
    KESS_SOUND_FORMAT format = KESS_SOUND_FORMAT_NONE;
    float rate = 0;
    if (const KESS_RESULT result = mSound->getFormat(&type, &format, &mFacts.channels, nullptr); result != KESS_OK)
        return faultOf(result);
    if (const char* reason = refusal(type))
        return Fault{TARNOK_ERR_INVALID_FORMAT, std::string(baseName(mPath)) + ": " + reason};
    if (type == KESS_SOUND_TYPE_TNB) {
        if (Status status = checkBank(); !status)
            return status;
    }
    uint64_t declaredLength = 0;
    KESS_RESULT result = mSound->getDefaults(&rate, nullptr);
    if (result == KESS_OK)
        result = mSound->getSampleCount(&mFacts.length);
    if (result == KESS_OK)
        result = mSound->getDeclaredSampleCount(&declaredLength);
    if (result != KESS_OK)
        return faultOf(result);

    mFacts.sampleRate = rate;
    mFacts.sampleFormat = bank::SampleFormat(format);
    if (declaredLength > mFacts.length)
        return endsEarly(mFacts.length, declaredLength);
    if (mFacts.length == 0)
        return Fault{TARNOK_ERR_INVALID_FORMAT, std::string(baseName(mPath)) + ": the file holds no samples"};
    if (bank::bytesPerSample(mFacts.sampleFormat) == 0 || mFacts.channels < 1
        || mFacts.channels > bank::kMaximumChannels || !(rate >= 1 && rate <= float(bank::kMaximumSampleRate)))
        return Fault{TARNOK_ERR_INVALID_FORMAT, std::string(baseName(mPath)) + ": the file's sample format is unknown"};
    return {};
}

Fault SourceFile::endsEarly(uint64_t end, uint64_t length) const
{
    if (const int error = KESS_SystemError())
        return fileFault("reading", mPath, error);
    char text[160];
    std::snprintf(text, sizeof text, ": the file is damaged or cut short: its sound ends after %.3f of %.3f seconds",
                  double(end) / mFacts.sampleRate, double(length) / mFacts.sampleRate);
    return {TARNOK_ERR_INVALID_FORMAT, std::string(baseName(mPath)) + text};
}

Fault SourceFile::faultOf(KESS_RESULT result) const
{
    const std::string name(baseName(mPath));
    const bool mayBeSystems = result == KESS_ERR_FILE_BAD || result == KESS_ERR_FILE_COULDNOTSEEK
        || result == KESS_ERR_FORMAT || result == KESS_ERR_MEMORY;
    if (const int error = mayBeSystems ? KESS_SystemError() : 0)
        return fileFault(mSound ? "reading" : "opening", mPath, error);
    switch (result) {
    case KESS_ERR_FILE_NOTFOUND:
        return {TARNOK_ERR_FILE_NOT_FOUND, name + ": the file does not exist (" + mPath + ")"};
    case KESS_ERR_FILE_BAD: {
        const Result<FileStamp> stamp = stampOf(mPath);
        const bool isEmpty = stamp && stamp->size == 0;
        return {TARNOK_ERR_INVALID_FORMAT,
                name + (isEmpty ? ": the file is empty" : ": the file is damaged or cut short")};
    }
    case KESS_ERR_FILE_COULDNOTSEEK:
        return {TARNOK_ERR_INVALID_FORMAT,
                name + ": the file is damaged or cut short, so that it can't be read at every place"};
    case KESS_ERR_FORMAT:
        return {TARNOK_ERR_INVALID_FORMAT, name + ": this is not a kind of sound file that can be read here"};
    case KESS_ERR_TOOMANYCHANNELS:
        return {TARNOK_ERR_INVALID_FORMAT,
                name + ": the file has more than " + std::to_string(KESS_MAX_CHANNELS) + " channels"};
    case KESS_ERR_VERSION:
        return {TARNOK_ERR_INVALID_FORMAT, name + ": this bank is of a version that isn't read here"};
    case KESS_ERR_MEMORY:
        return {TARNOK_ERR_MEMORY, name + ": out of memory"};
    default:
        return {TARNOK_ERR_KESS, name + ": the audio engine failed: " + KESS_ErrorString(result)};
    }
}

} // namespace tarnok
