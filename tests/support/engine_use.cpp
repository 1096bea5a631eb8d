// SPDX-License-Identifier: MIT
#include "support/engine_use.hpp"

#include "support/engine_access.hpp"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>

namespace test {

namespace {

void require(bool holds, const char* what)
{
    if (!holds)
        throw std::runtime_error(what);
}

void requireOneOf(int result, std::initializer_list<int> allowed, const char* what)
{
    if (std::find(allowed.begin(), allowed.end(), result) == allowed.end())
        throw std::runtime_error(std::string(what) + " gave " + std::to_string(result));
}

void useSound(KESS::Sound& sound, std::initializer_list<uint64_t> positions)
{
    const Facts facts = readFacts(sound);
    require(facts.type != KESS_SOUND_TYPE_UNKNOWN && facts.channels <= KESS_MAX_CHANNELS, "facts");
    const Loop loop = readLoop(sound);
    require(!loop || (loop->first < loop->second && loop->second <= facts.samples), "a loop outside the sound");
    static_cast<void>(sound.setLoopCount(1));
    constexpr unsigned kFrames = 3000;
    std::vector<float> samples(kFrames * size_t(std::max(facts.channels, 1)));
    const auto bytes = unsigned(samples.size() * sizeof(float));
    for (const uint64_t position : positions) {
        unsigned gotBytes = 0;
        unsigned gotFrames = 0;
        for (const int result : {sound.seekData(position), sound.readData(samples.data(), bytes, &gotBytes),
                                 sound.readFloat(samples.data(), kFrames, &gotFrames)})
            requireOneOf(result,
                         {KESS_OK, KESS_ERR_FILE_BAD, KESS_ERR_FILE_COULDNOTSEEK, KESS_ERR_FILE_EOF,
                          KESS_ERR_TAGNOTFOUND, KESS_ERR_INVALID_POSITION, KESS_ERR_UNSUPPORTED},
                         "reading or seeking");
        require(gotBytes <= bytes && gotFrames <= kFrames, "more than there is room for");
    }
    char name[16];
    int markers = 0;
    sound.getNumSyncPoints(&markers);
    static_cast<void>(sound.getSyncPoint(markers - 1, nullptr, name, sizeof name));
    static_cast<void>(sound.getName(name, sizeof name));
    KESS_ENCODING encoding{};
    encoding.cbsize = sizeof encoding;
    static_cast<void>(sound.getEncoding(&encoding));
}

// Two voices of a sound decode the same.
void useVoices(KESS::Sound& sound)
{
    constexpr unsigned kFrames = 500;
    std::vector<uint8_t> results[2]; // the bytes of the samples, then the result
    for (std::vector<uint8_t>& bytes : results) {
        KESS::Sound* voice = nullptr;
        int result = sound.createVoice(&voice);
        requireOneOf(result, {KESS_OK, KESS_ERR_UNSUPPORTED}, "making a voice");
        const SoundPointer owned(voice);
        if (voice) {
            const size_t frameBytes = sizeof(float) * size_t(readFacts(*voice).channels);
            unsigned got = 0;
            bytes.resize(kFrames * frameBytes);
            result = voice->readFloat(reinterpret_cast<float*>(bytes.data()), kFrames, &got);
            bytes.resize(got * frameBytes);
        }
        bytes.push_back(uint8_t(result));
    }
    require(results[0] == results[1], "voices that differ");
}

void useSubsounds(KESS::Sound& bank, const char* key)
{
    const int unlocked = bank.setEncryptionKey(key);
    requireOneOf(unlocked, {KESS_OK, KESS_ERR_FILE_BAD, KESS_ERR_KEY_WRONG}, "unlocking");
    if (unlocked != KESS_OK)
        return;
    int count = 0;
    require(bank.getNumSubSounds(&count) == KESS_OK, "counting");
    KESS::Sound* sound = nullptr;
    static_cast<void>(bank.getSubSoundByName("sound 2", &sound));
    for (int i = 0; i < std::min(count, 4); ++i) {
        const int opened = bank.getSubSound(i, &sound);
        requireOneOf(opened, {KESS_OK, KESS_ERR_FILE_BAD, KESS_ERR_UNSUPPORTED}, "opening a subsound");
        if (opened != KESS_OK)
            continue;
        const uint64_t length = readFacts(*sound).samples;
        useSound(*sound, {0, length / 2, length, length + 1});
        useVoices(*sound);
    }
}

int countFault(void* data, int, KESS_RESULT result, const char* text)
{
    *static_cast<int*>(data) += !text || !*text ? 1'000'000 : result == KESS_ERR_FILE_BAD;
    return 1;
}

// Every finding must have a text, and the result must report damage if a finding does.
void verify(const std::string& path, const char* key)
{
    int faults = 0;
    const int result = engine().system().verifyBank(path.c_str(), key, countFault, &faults);
    require(faults < 1'000'000, "a finding without a text");
    // An empty file can't be distinguished from an unreadable one.
    if (result != KESS_ERR_FILE_BAD) {
        requireOneOf(result, {KESS_OK, KESS_ERR_FORMAT, KESS_ERR_VERSION, KESS_ERR_KEY_WRONG}, "verifying");
        require(faults == 0, "damage that the result doesn't report");
    }
}

// The same for an opened bank, whose medium may fail.
void verify(KESS::Sound& bank)
{
    int faults = 0;
    const int result = bank.verifyBank(countFault, &faults);
    requireOneOf(result,
                 {KESS_OK, KESS_ERR_FILE_BAD, KESS_ERR_FILE_COULDNOTSEEK, KESS_ERR_SUBSOUNDS, KESS_ERR_KEY_MISSING},
                 "verifying");
    require(faults < 1'000'000 && (faults > 0) == (result == KESS_ERR_FILE_BAD), "findings that don't fit the result");
}

SoundPointer use(const OpenSound& open, const char* key)
{
    KESS::Sound* opened = nullptr;
    const int result = open(&opened);
    SoundPointer sound(opened);
    requireOneOf(result,
                 {KESS_OK, KESS_ERR_FILE_BAD, KESS_ERR_FILE_COULDNOTSEEK, KESS_ERR_FILE_NOTFOUND, KESS_ERR_FORMAT,
                  KESS_ERR_TOOMANYCHANNELS, KESS_ERR_VERSION},
                 "opening");
    if (result != KESS_OK)
        return nullptr;
    const Facts facts = readFacts(*sound);
    // Seeking decodes everything before the target; a damaged length must not make the target far.
    if (facts.type == KESS_SOUND_TYPE_TNB)
        useSubsounds(*sound, key);
    else
        useSound(*sound, {0, std::min<uint64_t>(facts.samples, 3000)});
    return sound;
}

} // namespace

std::string useBank(const std::string& path, const char* key)
{
    try {
        const auto open = [&](KESS::Sound** sound) {
            SoundPointer opened;
            const KESS_RESULT result = engine().open(path, &opened);
            *sound = opened.release();
            return result;
        };
        use(open, key ? key : "");
        if (key)
            verify(path, key);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return {};
}

std::string useSource(const OpenSound& open, const char* key)
{
    try {
        if (const SoundPointer sound = use(open, key))
            verify(*sound);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return {};
}

} // namespace test
