// SPDX-License-Identifier: MIT
// What a voice costs a game: processor time and memory, for 1, 64 and 512 voices of one bank.
//
//     voices [--separate] BANK [KEY]
//
// The voices play the sounds of the bank in turn, looping, 1024 frames each at a time. --separate opens the bank for
// each voice. One line a number of voices: voices, milliseconds to open them, percent of a core and bytes of the heap a
// voice.
#include "kess.hpp"

#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

namespace {

struct Release
{
    void operator()(KESS::System* system) const { system->release(); }
    void operator()(KESS::Sound* sound) const { sound->release(); }
};
using Sound = std::unique_ptr<KESS::Sound, Release>;

struct Voice
{
    Sound bank; // only if it is opened for each voice
    Sound own; // otherwise
    KESS::Sound* sound = nullptr;
    float rate = 0;
};

struct Options
{
    const char* path = nullptr;
    const char* key = nullptr;
    bool isSeparate = false;
};

bool succeeded(KESS_RESULT result)
{
    if (result != KESS_OK)
        std::fprintf(stderr, "voices: %s\n", KESS_ErrorString(result));
    return result == KESS_OK;
}

double processorSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + 1e-9 * double(now.tv_nsec);
}

Sound openBank(KESS::System& system, const Options& options)
{
    KESS::Sound* opened = nullptr;
    succeeded(system.createSound(options.path, KESS_MODE_CREATESTREAM, nullptr, &opened));
    Sound bank(opened);
    if (bank && options.key && !succeeded(bank->setEncryptionKey(options.key)))
        bank.reset();
    return bank;
}

bool openVoice(KESS::System& system, const Options& options, KESS::Sound& shared, int number, Voice& voice)
{
    if (options.isSeparate && !(voice.bank = openBank(system, options)))
        return false;
    KESS::Sound& bank = voice.bank ? *voice.bank : shared;
    int count = 0;
    bank.getNumSubSounds(&count);
    if (!succeeded(bank.getSubSound(number % count, &voice.sound)))
        return false;
    if (!options.isSeparate) {
        KESS::Sound* own = nullptr;
        if (!succeeded(voice.sound->createVoice(&own)))
            return false;
        voice.own.reset(own);
        voice.sound = own;
    }
    voice.sound->setLoopCount(-1); // a sound without a loop starts again below
    return succeeded(voice.sound->getDefaults(&voice.rate, nullptr));
}

// The seconds of sound that were decoded; below 0 after an error.
double readAll(std::vector<Voice>& voices, std::vector<float>& buffer)
{
    constexpr unsigned int kFrames = 1024;
    double seconds = 0;
    for (Voice& voice : voices) {
        unsigned int frames = 0;
        const KESS_RESULT result = voice.sound->readFloat(buffer.data(), kFrames, &frames);
        if (result == KESS_ERR_FILE_EOF)
            voice.sound->seekData(0);
        else if (!succeeded(result))
            return -1;
        seconds += double(frames) / double(voice.rate);
    }
    return seconds;
}

bool measure(KESS::System& system, const Options& options, int count)
{
    const Sound shared = openBank(system, options);
    if (!shared)
        return false;
    std::vector<float> buffer(size_t{1024} * KESS_MAX_CHANNELS);
    std::vector<Voice> voices(static_cast<size_t>(count));
    const size_t heapBefore = mallinfo2().uordblks;
    const double openedAt = processorSeconds();
    for (int i = 0; i < count; ++i) {
        if (!openVoice(system, options, *shared, i, voices[static_cast<size_t>(i)]))
            return false;
    }
    const double opening = processorSeconds() - openedAt;
    readAll(voices, buffer); // starts the decoders
    const size_t heap = mallinfo2().uordblks - heapBefore;
    const double startedAt = processorSeconds();
    double decoded = 0;
    while (processorSeconds() - startedAt < 1) {
        const double seconds = readAll(voices, buffer);
        if (seconds < 0)
            return false;
        decoded += seconds;
    }
    const double share = (processorSeconds() - startedAt) / decoded;
    std::printf("%4d voices  %9.3f ms  %7.4f %%  %9zu bytes\n", count, 1000 * opening, 100 * share,
                heap / static_cast<size_t>(count));
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    options.isSeparate = argc > 1 && std::strcmp(argv[1], "--separate") == 0;
    const int first = options.isSeparate ? 2 : 1;
    options.path = argc > first ? argv[first] : nullptr;
    options.key = argc > first + 1 ? argv[first + 1] : nullptr;
    KESS::System* created = nullptr;
    if (!options.path || KESS_System_Create(&created, KESS_VERSION) != KESS_OK) {
        std::fprintf(stderr, "Usage: voices [--separate] BANK [KEY]\n");
        return 2;
    }
    const std::unique_ptr<KESS::System, Release> system(created);
    system->init(1, 0, nullptr);
    for (const int count : {1, 64, 512}) {
        if (!measure(*system, options, count))
            return 1;
    }
    return 0;
}
