#include "opened_bank.hpp"

#include <cmath>
#include <filesystem>
#include <system_error>

namespace tnb {

namespace {

Failure failureOf(KESS_RESULT result)
{
    switch (result) {
    case KESS_ERR_FILE_NOTFOUND:
        return {Status::CannotRead, "no such file"};
    case KESS_ERR_FORMAT:
        return {Status::CannotRead, "not a sound bank"};
    case KESS_ERR_VERSION:
        return {Status::CannotRead, "of a version of the container that this program doesn't read"};
    case KESS_ERR_KEY_MISSING:
        return {Status::CannotRead, "encrypted; give its key with --key or --key-file"};
    case KESS_ERR_KEY_WRONG:
        return {Status::CannotRead, "encrypted with a different key"};
    case KESS_ERR_MEMORY:
        return {Status::CannotRead, "not enough memory"};
    default:
        return {Status::Damaged, "damaged"};
    }
}

// Why a file can't be read, after a colon; empty if the reason isn't known.
std::string reasonOf(const std::string& path)
{
    std::error_code error;
    if (std::filesystem::is_directory(path, error))
        return ": it is a folder";
    if (std::filesystem::is_regular_file(path, error) && std::filesystem::file_size(path, error) == 0)
        return ": it is empty";
    const int systems = KESS_SystemError();
    return systems ? ": " + std::generic_category().message(systems) : std::string();
}

void require(KESS_RESULT result)
{
    if (result != KESS_OK)
        throw failureOf(result);
}

// The text that get(buffer, size) writes, of any length.
template <typename Get>
std::string textOf(Get get)
{
    std::string text(64, '\0');
    KESS_RESULT result = get(text.data(), static_cast<int>(text.size()));
    while (result == KESS_ERR_TRUNCATED) {
        text.resize(text.size() * 4);
        result = get(text.data(), static_cast<int>(text.size()));
    }
    require(result);
    text.resize(text.find('\0'));
    return text;
}

std::string nameOf(KESS::Sound& sound)
{
    return textOf([&](char* buffer, int bytes) { return sound.getName(buffer, bytes); });
}

// Finds out what is wrong with a bank that couldn't be opened.
void throwFirstFault(const Engine& engine, const std::string& path, const Key& key)
{
    std::string first;
    engine.verify(path, key, [&](int, KESS_RESULT result, const std::string& text) {
        if (result == KESS_ERR_FILE_BAD)
            first = text;
        return first.empty();
    });
    throw Failure(Status::Damaged, "damaged: " + first);
}

} // namespace

Engine::Engine()
{
    require(KESS_System_Create(&mSystem, KESS_VERSION));
    require(mSystem->init(0, 0, nullptr));
}

Engine::~Engine()
{
    mSystem->release();
}

KESS_RESULT Engine::verify(const std::string& bank, const Key& key, const Tell& tell) const
{
    struct Findings
    {
        const Tell& tell;
        bool damaged = false;
    } findings{tell};
    const auto take = [](void* userData, int sound, KESS_RESULT result, const char* text) -> int {
        auto& all = *static_cast<Findings*>(userData);
        all.damaged = all.damaged || result == KESS_ERR_FILE_BAD;
        return all.tell(sound, result, text);
    };
    const KESS_RESULT result = mSystem->verifyBank(bank.c_str(), key ? key->c_str() : nullptr, take, &findings);
    if (result == KESS_ERR_FILE_COULDNOTSEEK || (result == KESS_ERR_FILE_BAD && !findings.damaged))
        throw Failure(Status::CannotRead, "can't be read" + reasonOf(bank));
    if (result != KESS_OK && result != KESS_ERR_FILE_BAD)
        throw failureOf(result);
    return result;
}

OpenedBank::OpenedBank(const Engine& engine, const std::string& path, const Key& key)
{
    KESS_CREATESOUNDEXINFO bankOnly{};
    bankOnly.cbsize = sizeof bankOnly;
    bankOnly.suggestedsoundtype = KESS_SOUND_TYPE_TNB;
    KESS::Sound* opened = nullptr;
    KESS_RESULT result = engine.system().createSound(path.c_str(), KESS_MODE_OPENONLY, &bankOnly, &opened);
    mBank.reset(opened);
    if (result == KESS_OK && key)
        result = mBank->setEncryptionKey(key->c_str());
    if (result == KESS_ERR_FILE_BAD)
        throwFirstFault(engine, path, key);
    require(result);
    mInfo.cbsize = sizeof mInfo;
    require(mBank->getBankInfo(&mInfo));
    require(mBank->getNumSubSounds(&mSoundCount));
}

SoundPointer OpenedBank::sound(int index)
{
    KESS::Sound* subsound = nullptr;
    require(mBank->getSubSound(index, &subsound));
    return SoundPointer(subsound);
}

std::string OpenedBank::name(int index)
{
    return nameOf(*sound(index));
}

SoundFacts OpenedBank::facts(int index)
{
    const SoundPointer subsound = sound(index);
    SoundFacts facts;
    facts.index = index;
    facts.name = nameOf(*subsound);
    require(subsound->getFormat(nullptr, &facts.format, &facts.channels, &facts.bits));
    float rate = 0;
    require(subsound->getDefaults(&rate, nullptr));
    facts.rate = static_cast<uint32_t>(std::lround(rate));
    require(subsound->getSampleCount(&facts.samples));

    KESS_ENCODING encoding{};
    encoding.cbsize = sizeof encoding;
    require(subsound->getEncoding(&encoding));
    facts.codec = encoding.codec;
    facts.quality = encoding.quality;
    facts.bytes = encoding.dataBytes;

    Loop loop;
    if (subsound->getLoopPoints(&loop.start, &loop.end) == KESS_OK)
        facts.loop = loop;
    float peak = 0;
    if (subsound->getPeak(&peak) == KESS_OK)
        facts.peak = peak;
    int points = 0;
    require(subsound->getNumSyncPoints(&points));
    for (int i = 0; i < points; ++i) {
        SyncPoint point;
        point.name =
            textOf([&](char* buffer, int bytes) { return subsound->getSyncPoint(i, &point.sample, buffer, bytes); });
        facts.syncPoints.push_back(std::move(point));
    }
    return facts;
}

} // namespace tnb
