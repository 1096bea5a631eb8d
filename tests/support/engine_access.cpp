// SPDX-License-Identifier: MIT
#include "support/engine_access.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace test {

Engine::Engine()
{
    if (KESS_System_Create(&mSystem, KESS_VERSION) != KESS_OK
        || mSystem->setOutput(KESS_OUTPUTTYPE_NOSOUND_NRT) != KESS_OK || mSystem->init(0, 0, nullptr) != KESS_OK)
        std::abort();
}

KESS_RESULT Engine::open(const std::string& path, SoundPointer* sound, int type) const
{
    KESS_CREATESOUNDEXINFO info{};
    info.cbsize = sizeof info;
    info.suggestedsoundtype = KESS_SOUND_TYPE(type);
    KESS::Sound* opened = nullptr;
    const unsigned mode = KESS_MODE_CREATESTREAM | KESS_MODE_OPENONLY | KESS_MODE_LOWMEM;
    const KESS_RESULT result = mSystem->createSound(path.c_str(), mode, type ? &info : nullptr, &opened);
    sound->reset(opened);
    return result;
}

KESS_RESULT Engine::tryOpen(const std::string& path, int type) const
{
    SoundPointer sound;
    return open(path, &sound, type);
}

SoundPointer Engine::open(const std::string& path) const
{
    SoundPointer sound;
    const KESS_RESULT result = open(path, &sound);
    if (!sound) {
        std::fprintf(stderr, "%s: (%d) %s\n", path.c_str(), result, KESS_ErrorString(result));
        std::abort();
    }
    return sound;
}

const Engine& engine()
{
    static const Engine running;
    return running;
}

KESS_SOURCE FunctionSource::record()
{
    KESS_SOURCE made{};
    made.cbsize = sizeof made;
    made.size = bytes.size();
    made.userData = this;
    made.read = [](void* user, uint64_t offset, void* buffer, uint64_t count) -> int64_t {
        auto& self = *static_cast<FunctionSource*>(user);
        const uint64_t size = self.bytes.size();
        self.wrongReads += count == 0 || offset >= size || count > size - offset || self.closed > 0;
        if (offset >= self.failsFrom)
            return self.failure;
        const uint64_t got = std::min({count, self.mostAtOnce, self.failsFrom - offset});
        std::memcpy(buffer, self.bytes.data() + offset, got);
        return int64_t(got);
    };
    made.close = [](void* user) {
        ++static_cast<FunctionSource*>(user)->closed;
    };
    return made;
}

KESS_RESULT FunctionSource::open(SoundPointer* sound)
{
    const KESS_SOURCE source = record();
    KESS::Sound* opened = nullptr;
    const KESS_RESULT result = engine().system().createSoundFromCallbacks(&source, 0, nullptr, &opened);
    sound->reset(opened);
    return result;
}

KESS::Sound& subsound(KESS::Sound& bank, size_t index)
{
    KESS::Sound* sound = nullptr;
    if (bank.getSubSound(int(index), &sound) != KESS_OK)
        std::abort();
    return *sound;
}

SoundPointer makeVoice(KESS::Sound& sound)
{
    KESS::Sound* voice = nullptr;
    if (sound.createVoice(&voice) != KESS_OK)
        std::abort();
    return SoundPointer(voice);
}

Facts readFacts(KESS::Sound& sound)
{
    Facts facts;
    sound.getFormat(&facts.type, &facts.format, &facts.channels, &facts.bits);
    sound.getDefaults(&facts.rate, nullptr);
    sound.getSampleCount(&facts.samples);
    sound.getLength(&facts.milliseconds, KESS_TIMEUNIT_MS);
    return facts;
}

std::vector<uint8_t> readBytes(KESS::Sound& sound, size_t pieceBytes)
{
    std::vector<uint8_t> all;
    std::vector<uint8_t> piece(pieceBytes);
    unsigned got = 0;
    while (sound.readData(piece.data(), unsigned(piece.size()), &got) == KESS_OK)
        all.insert(all.end(), piece.begin(), piece.begin() + got);
    return all;
}

std::vector<float> readFloats(KESS::Sound& sound, size_t most)
{
    constexpr size_t kFrames = 3001;
    const auto channels = unsigned(readFacts(sound).channels);
    std::vector<float> all;
    std::vector<float> piece(kFrames * channels);
    unsigned got = 1;
    for (; most > 0 && got > 0; most -= got) {
        if (sound.readFloat(piece.data(), unsigned(std::min(most, kFrames)), &got) != KESS_OK)
            break;
        all.insert(all.end(), piece.begin(), piece.begin() + got * channels);
    }
    return all;
}

Loop readLoop(KESS::Sound& sound)
{
    std::pair<uint64_t, uint64_t> loop;
    return sound.getLoopPoints(&loop.first, &loop.second) == KESS_OK ? Loop(loop) : Loop();
}

SyncPoints readSyncPoints(KESS::Sound& sound)
{
    SyncPoints points;
    int count = 0;
    sound.getNumSyncPoints(&count);
    for (int i = 0; i < count; ++i) {
        uint64_t sample = 0;
        char name[256];
        if (sound.getSyncPoint(i, &sample, name, sizeof name) != KESS_OK)
            std::abort();
        points.emplace_back(sample, name);
    }
    return points;
}

} // namespace test
