// SPDX-License-Identifier: MIT
#include "opened_bank.hpp"

#include <cmath>
#include <filesystem>
#include <system_error>

namespace tnb {

namespace {

using base::Error;
using base::ErrorCode;
using base::Result;

// The text that get(buffer, size) writes, of any length.
template <typename Get>
std::string fetchText(Get get)
{
    std::string text(64, '\0');
    while (get(text.data(), static_cast<int>(text.size())) == KESS_ERR_TRUNCATED)
        text.resize(text.size() * 4);
    text.resize(text.find('\0'));
    return text;
}

std::string fetchName(KESS::Sound& sound)
{
    return fetchText([&](char* buffer, int bytes) { return sound.getName(buffer, bytes); });
}

std::string withDetail(const std::string& text)
{
    const std::string detail = fetchText(KESS_ErrorDetail);
    return detail.empty() ? text : text + ": " + detail;
}

// A file that has no bytes, or that the system can't read, isn't damaged.
bool canBeDamaged(const std::string& path)
{
    std::error_code error;
    return KESS_SystemError() == 0 && std::filesystem::is_regular_file(path, error)
        && std::filesystem::file_size(path, error) > 0;
}

Error unreadable()
{
    return {ErrorCode::Io, withDetail("can't be read"), KESS_SystemError()};
}

} // namespace

Error engineError(KESS_RESULT result)
{
    switch (result) {
    case KESS_ERR_FILE_NOTFOUND:
        return {ErrorCode::NotFound, withDetail("no such file")};
    case KESS_ERR_FORMAT:
        return {ErrorCode::Format, "not a sound bank"};
    case KESS_ERR_VERSION:
        return {ErrorCode::Version, "it has a version of the bank format that this program can't read"};
    case KESS_ERR_KEY_MISSING:
        return {ErrorCode::KeyMissing, "encrypted; give its key with --key or --key-file"};
    case KESS_ERR_KEY_WRONG:
        return {ErrorCode::KeyWrong, "encrypted with a different key"};
    case KESS_ERR_MEMORY:
        return {ErrorCode::Memory, "not enough memory"};
    case KESS_ERR_UNSUPPORTED:
        return {ErrorCode::Unsupported, "its codec can't be decoded"};
    default:
        return KESS_SystemError() ? unreadable() : Error{ErrorCode::Damaged, withDetail("damaged")};
    }
}

Result<Engine> startEngine()
{
    KESS::System* system = nullptr;
    KESS_RESULT result = KESS_System_Create(&system, KESS_VERSION);
    Engine engine(system);
    if (result == KESS_OK)
        result = engine->init(0, 0, nullptr);
    if (result != KESS_OK)
        return Error{ErrorCode::Memory, std::string("the engine doesn't start: ") + KESS_ErrorString(result)};
    return engine;
}

Result<bool> verifyBank(KESS::System& engine, const std::string& path, const Key& key, const ReportFinding& report)
{
    struct Findings
    {
        const ReportFinding& report;
        bool damaged = false;
    } findings{report};
    const auto take = [](void* userData, int sound, KESS_RESULT result, const char* text) -> int {
        auto& all = *static_cast<Findings*>(userData);
        all.damaged = all.damaged || result == KESS_ERR_FILE_BAD;
        return all.report(sound, result, text);
    };
    const KESS_RESULT result = engine.verifyBank(path.c_str(), key ? key->c_str() : nullptr, take, &findings);
    if (result == KESS_OK)
        return true;
    if (result == KESS_ERR_FILE_COULDNOTSEEK || (result == KESS_ERR_FILE_BAD && !findings.damaged))
        return unreadable();
    if (result == KESS_ERR_FILE_BAD)
        return false;
    return engineError(result);
}

Result<OpenedBank> OpenedBank::open(KESS::System& engine, const std::string& path, const Key& key)
{
    KESS_CREATESOUNDEXINFO bankOnly{};
    bankOnly.cbsize = sizeof bankOnly;
    bankOnly.suggestedsoundtype = KESS_SOUND_TYPE_TNB;
    KESS::Sound* opened = nullptr;
    KESS_RESULT result = engine.createSound(path.c_str(), KESS_MODE_OPENONLY, &bankOnly, &opened);
    OpenedBank bank{SoundPointer(opened)};
    if (result == KESS_OK && key)
        result = opened->setEncryptionKey(key->c_str());
    if (result == KESS_ERR_FILE_BAD && !canBeDamaged(path))
        return unreadable();
    if (result != KESS_OK)
        return engineError(result);
    bank.mInfo.cbsize = sizeof bank.mInfo;
    result = opened->getBankInfo(&bank.mInfo);
    if (result == KESS_OK)
        result = opened->getNumSubSounds(&bank.mSoundCount);
    if (result != KESS_OK)
        return engineError(result);
    return bank;
}

Result<SoundPointer> OpenedBank::sound(int index)
{
    KESS::Sound* subsound = nullptr;
    if (const KESS_RESULT result = mBank->getSubSound(index, &subsound); result != KESS_OK)
        return engineError(result);
    return SoundPointer(subsound);
}

Result<std::string> OpenedBank::name(int index)
{
    Result<SoundPointer> subsound = sound(index);
    if (!subsound)
        return std::move(subsound.error());
    return fetchName(**subsound);
}

Result<SoundPointer> OpenedBank::verifiedVoice(int index)
{
    KESS::Sound* voice = nullptr;
    {
        const std::lock_guard lock(*mMutex);
        const Result<SoundPointer> subsound = sound(index);
        if (!subsound)
            return subsound.error();
        const KESS_RESULT created = (*subsound)->createVoice(&voice);
        if (created == KESS_ERR_UNSUPPORTED) {
            if (const KESS_RESULT result = (*subsound)->verifyData(); result != KESS_OK)
                return engineError(result);
        }
        if (created != KESS_OK)
            return engineError(created);
    }
    SoundPointer opened(voice);
    // Decoders turn nearly any data into some sound, so only the checksum reveals damage.
    KESS_RESULT result = opened->verifyData();
    if (result == KESS_OK)
        result = opened->seekData(0); // starts the decoder
    if (result != KESS_OK)
        return engineError(result);
    return opened;
}

Result<SoundProperties> OpenedBank::properties(int index)
{
    const Result<SoundPointer> opened = sound(index);
    if (!opened)
        return opened.error();
    return propertiesOf(**opened, index);
}

// The getters of an opened sound don't fail.
SoundProperties propertiesOf(KESS::Sound& subsound, int index)
{
    SoundProperties properties;
    properties.index = index;
    properties.name = fetchName(subsound);
    subsound.getFormat(nullptr, &properties.format, &properties.channels, &properties.bits);
    float rate = 0;
    subsound.getDefaults(&rate, nullptr);
    properties.rate = static_cast<uint32_t>(std::lround(rate));
    subsound.getSampleCount(&properties.samples);

    KESS_ENCODING encoding{};
    encoding.cbsize = sizeof encoding;
    subsound.getEncoding(&encoding);
    properties.codec = encoding.codec;
    properties.quality = encoding.quality;
    properties.bytes = encoding.dataBytes;
    properties.tableBytes = encoding.extraBytes;
    properties.checksum = encoding.dataChecksum;

    base::Loop loop;
    if (subsound.getLoopPoints(&loop.start, &loop.end) == KESS_OK)
        properties.loop = loop;
    float peak = 0;
    if (subsound.getPeak(&peak) == KESS_OK)
        properties.peak = peak;
    int points = 0;
    subsound.getNumSyncPoints(&points);
    for (int i = 0; i < points; ++i) {
        base::SyncPoint point;
        point.name =
            fetchText([&](char* buffer, int bytes) { return subsound.getSyncPoint(i, &point.frame, buffer, bytes); });
        properties.syncPoints.push_back(std::move(point));
    }
    return properties;
}

} // namespace tnb
