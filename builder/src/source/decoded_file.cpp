// SPDX-License-Identifier: MIT
#include "source/decoded_file.hpp"

#include "bank/vector_state.hpp"
#include "base/file.hpp"
#include "base/path.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>

namespace builder {

namespace {

constexpr unsigned kOpenMode = KESS_MODE_CREATESTREAM | KESS_MODE_OPENONLY | KESS_MODE_LOWMEM;

// Float files may contain infinities and NaN. One such sample would drown all others in a lossy encoder, so samples are
// clipped at 48 dB above full scale, which nobody uses intentionally. NaN becomes 0.
constexpr float kMaximumSample = 256;

// Why files of this type are refused; null if they aren't.
const char* refusal(KESS_SOUND_TYPE type)
{
    switch (type) {
    case KESS_SOUND_TYPE_DLS:
        return "this is an instrument bank, not a sound";
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

base::Result<std::unique_ptr<DecodedFile>> DecodedFile::open(KESS::System& engine, const std::string& path)
{
    bank::clearVectorState();
    KESS::Sound* sound = nullptr;
    const KESS_RESULT result = engine.createSound(path.c_str(), kOpenMode, nullptr, &sound);
    std::unique_ptr<DecodedFile> file(new DecodedFile(path, sound));
    if (result != KESS_OK)
        return file->errorFor(result);
    if (base::Result<> status = file->readFacts(); !status)
        return status.error();
    return file;
}

base::Result<> DecodedFile::seek(uint64_t frame)
{
    if (frame == mPosition)
        return {};
    bank::clearVectorState();
    const KESS_RESULT result = mSound->seekData(frame);
    if (result != KESS_OK)
        return errorFor(result);
    mPosition = frame;
    return {};
}

base::Result<> DecodedFile::readFloat(float* frames, size_t count)
{
    const auto channels = size_t(mFacts.channels);
    float* const first = frames;
    size_t remaining = count;
    while (remaining > 0) {
        unsigned got = 0;
        bank::clearVectorState();
        const auto wanted = unsigned(std::min<size_t>(remaining, 1 << 20));
        const KESS_RESULT result = mSound->readFloat(frames, wanted, &got);
        if (result != KESS_OK && result != KESS_ERR_FILE_EOF && result != KESS_ERR_FILE_BAD)
            return errorFor(result);
        if (got == 0)
            return endsEarly(mPosition, mFacts.length);
        frames += got * channels;
        remaining -= got;
        mPosition += got;
    }
    if (mFacts.sampleFormat == bank::SampleFormat::Float)
        std::transform(first, frames, first, [](float sample) {
            return std::isnan(sample) ? 0.0f : std::clamp(sample, -kMaximumSample, kMaximumSample);
        });
    return {};
}

base::Result<> DecodedFile::readSamples(void* frames, size_t count)
{
    const size_t frameBytes = size_t(mFacts.channels) * bank::bytesPerSample(mFacts.sampleFormat);
    auto* target = static_cast<uint8_t*>(frames);
    while (count > 0) {
        unsigned got = 0;
        bank::clearVectorState();
        const size_t wanted = std::min<size_t>(count, (4 << 20) / frameBytes);
        const KESS_RESULT result = mSound->readData(target, unsigned(wanted * frameBytes), &got);
        if (result != KESS_OK && result != KESS_ERR_FILE_EOF && result != KESS_ERR_FILE_BAD)
            return errorFor(result);
        if (got < frameBytes)
            return endsEarly(mPosition, mFacts.length);
        target += got;
        count -= got / frameBytes;
        mPosition += got / frameBytes;
    }
    return {};
}

std::optional<RawSampleRange> DecodedFile::rawSamples() const
{
    RawSampleRange samples;
    if (mSound->getRawSamples(&samples.offset, &samples.bytes) != KESS_OK)
        return std::nullopt;
    return samples;
}

std::optional<base::Loop> DecodedFile::loop() const
{
    base::Loop loop;
    if (mSound->getLoopPoints(&loop.start, &loop.end) != KESS_OK || loop.start >= loop.end || loop.end > mFacts.length)
        return std::nullopt;
    return loop;
}

std::vector<base::SyncPoint> DecodedFile::syncPoints() const
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

std::string DecodedFile::remark() const
{
    char text[1024] = "";
    mSound->getRemark(text, sizeof text);
    return text[0] ? std::string(base::baseName(mPath)) + ": " + text : std::string();
}

base::Result<> DecodedFile::checkBank()
{
    bool encrypted = false;
    if (mSound->isEncrypted(&encrypted) == KESS_OK && encrypted)
        return refused(base::ErrorCode::KeyMissing, "this bank is encrypted and can't be used as a source");
    int sounds = 0;
    if (const KESS_RESULT result = mSound->getNumSubSounds(&sounds); result != KESS_OK)
        return errorFor(result);
    if (sounds != 1)
        return refused(base::ErrorCode::Unsupported,
                       "this bank contains " + std::to_string(sounds)
                           + " sounds; only a bank with exactly one sound can be used as a source");
    return {};
}

base::Result<> DecodedFile::readFacts()
{
    KESS_SOUND_TYPE type = KESS_SOUND_TYPE_UNKNOWN;
    KESS_SOUND_FORMAT format = KESS_SOUND_FORMAT_NONE;
    float rate = 0;
    if (const KESS_RESULT result = mSound->getFormat(&type, &format, &mFacts.channels, nullptr); result != KESS_OK)
        return errorFor(result);
    if (const char* reason = refusal(type))
        return refused(base::ErrorCode::Unsupported, reason);
    if (type == KESS_SOUND_TYPE_TNB) {
        if (base::Result<> status = checkBank(); !status)
            return status;
    }
    uint64_t declaredLength = 0;
    KESS_RESULT result = mSound->getDefaults(&rate, nullptr);
    if (result == KESS_OK)
        result = mSound->getSampleCount(&mFacts.length);
    if (result == KESS_OK)
        result = mSound->getDeclaredSampleCount(&declaredLength);
    if (result != KESS_OK)
        return errorFor(result);

    mFacts.sampleRate = rate;
    mFacts.sampleFormat = bank::SampleFormat(format);
    if (declaredLength > mFacts.length)
        return endsEarly(mFacts.length, declaredLength);
    if (mFacts.length == 0)
        return refused(base::ErrorCode::Unsupported, "the file contains no samples");
    if (bank::bytesPerSample(mFacts.sampleFormat) == 0 || mFacts.channels < 1
        || mFacts.channels > bank::kMaximumChannels || !(rate >= 1 && rate <= float(bank::kMaximumSampleRate)))
        return refused(base::ErrorCode::Unsupported, "the file's sample format is unknown");
    return {};
}

base::Error DecodedFile::endsEarly(uint64_t end, uint64_t length) const
{
    if (const int systemError = KESS_SystemError())
        return base::fileError("reading", mPath, systemError);
    char text[160];
    std::snprintf(text, sizeof text, "the file is damaged or cut short: its sound ends after %.3f of %.3f seconds",
                  double(end) / mFacts.sampleRate, double(length) / mFacts.sampleRate);
    return refused(base::ErrorCode::Damaged, text);
}

base::Error DecodedFile::errorFor(KESS_RESULT result) const
{
    using base::ErrorCode;
    const bool mayBeSystems = result == KESS_ERR_FILE_BAD || result == KESS_ERR_FILE_COULDNOTSEEK
        || result == KESS_ERR_FORMAT || result == KESS_ERR_MEMORY;
    if (const int systemError = mayBeSystems ? KESS_SystemError() : 0)
        return base::fileError(mSound ? "reading" : "opening", mPath, systemError);
    switch (result) {
    case KESS_ERR_FILE_NOTFOUND:
        return base::fileError("opening", mPath, ENOENT);
    case KESS_ERR_FILE_BAD: {
        const base::Result<base::FileStamp> stamp = base::readStamp(mPath);
        const bool isEmpty = stamp && stamp->size == 0;
        return refused(ErrorCode::Damaged, isEmpty ? "the file is empty" : "the file is damaged or cut short");
    }
    case KESS_ERR_FILE_COULDNOTSEEK:
        return refused(ErrorCode::NotSeekable,
                       "the file is damaged or cut short: it can't be read from every position");
    case KESS_ERR_FORMAT:
        return refused(ErrorCode::Format, "this is not a supported sound file");
    case KESS_ERR_TOOMANYCHANNELS:
        return refused(ErrorCode::TooManyChannels,
                       "the file has more than " + std::to_string(KESS_MAX_CHANNELS) + " channels");
    case KESS_ERR_VERSION:
        return refused(ErrorCode::Version, "this bank has an unsupported version");
    case KESS_ERR_MEMORY:
        return refused(ErrorCode::Memory, "out of memory");
    default:
        return refused(ErrorCode::Engine, std::string("the audio engine failed: ") + KESS_ErrorString(result));
    }
}

base::Error DecodedFile::refused(base::ErrorCode code, const std::string& reason) const
{
    return {code, std::string(base::baseName(mPath)) + ": " + reason};
}

} // namespace builder
