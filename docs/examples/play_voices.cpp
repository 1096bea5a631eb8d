// SPDX-License-Identifier: MIT
// Plays many sounds of a bank at once, and starts them again after the bank was built again.
//
//     play_voices BANK SECONDS NAME[*VOICES][@] ...
//
// Ends after SECONDS, or when all voices have ended. A sound with "@" loops for ever. The key of an encrypted bank is
// in the environment variable BANK_KEY. SDL's audio thread only adds up samples that are ready: it never reads,
// decodes, allocates or waits. The main thread decodes a second ahead into a ring buffer for each voice.
//
//     c++ -std=c++17 play_voices.cpp $(pkg-config --cflags --libs kess sdl2)
#include "kess.hpp"

#include <SDL.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int kRate = 48'000; // of what is played, in hertz
constexpr int kChannels = 2;
constexpr size_t kRingSamples = size_t{kRate} * kChannels;

struct Release
{
    void operator()(KESS::System* system) const { system->release(); }
    void operator()(KESS::Sound* sound) const { sound->release(); }
    void operator()(SDL_AudioStream* stream) const { SDL_FreeAudioStream(stream); }
};

bool succeeded(KESS_RESULT result, const std::string& what)
{
    if (result != KESS_OK) {
        char detail[512] = "";
        KESS_ErrorDetail(detail, sizeof detail);
        std::fprintf(stderr, "play_voices: %s: %s %s\n", what.c_str(), KESS_ErrorString(result), detail);
    }
    return result == KESS_OK;
}

class Voice
{
public:
    Voice(std::string name, bool isEndless)
        : mName(std::move(name))
        , mIsEndless(isEndless)
    { }

    // Plays the sound of that name from its start. If there is none, the voice goes on with what it plays.
    void start(KESS::Sound& bank)
    {
        KESS::Sound* sound = nullptr;
        KESS::Sound* decoder = nullptr;
        if (!succeeded(bank.getSubSoundByName(mName.c_str(), &sound), mName)
            || !succeeded(sound->createVoice(&decoder), mName))
            return;
        mDecoder.reset(decoder);
        if (mIsEndless)
            succeeded(decoder->setLoopCount(-1), mName);
        float rate = 0;
        decoder->getFormat(nullptr, nullptr, &mChannels, nullptr);
        decoder->getDefaults(&rate, nullptr);
        mConverter.reset(SDL_NewAudioStream(AUDIO_F32SYS, static_cast<Uint8>(mChannels), static_cast<int>(rate),
                                            AUDIO_F32SYS, kChannels, kRate));
        if (!mConverter)
            mDecoder.reset(); // SDL doesn't know so many channels
    }

    // Main thread: decodes until the ring is full or the sound ends.
    void decodeAhead()
    {
        constexpr unsigned int kFrames = 512;
        float samples[size_t{kFrames} * KESS_MAX_CHANNELS];
        while (const size_t space = kRingSamples - (mWritten - mRead)) {
            const int bytes = static_cast<int>(std::min(space * sizeof(float), sizeof samples));
            const int got = mConverter ? SDL_AudioStreamGet(mConverter.get(), samples, bytes) : 0;
            for (int i = 0; i < got / int{sizeof(float)}; ++i)
                mRing[mWritten++ % kRingSamples] = samples[i];
            if (got > 0)
                continue;
            if (!mDecoder)
                return;
            unsigned int frames = 0;
            const KESS_RESULT result = mDecoder->readFloat(samples, kFrames, &frames);
            if (frames > 0) {
                SDL_AudioStreamPut(mConverter.get(), samples, static_cast<int>(sizeof(float) * frames) * mChannels);
            } else {
                if (result != KESS_ERR_FILE_EOF)
                    succeeded(result, mName);
                mDecoder.reset();
                SDL_AudioStreamFlush(mConverter.get());
            }
        }
    }

    // Audio thread.
    void addTo(float* mix, size_t samples)
    {
        const size_t count = std::min<size_t>(samples, mWritten - mRead);
        for (size_t i = 0; i < count; ++i)
            mix[i] += mRing[(mRead + i) % kRingSamples];
        mRead += count;
    }

    bool hasEnded() const { return !mDecoder && mWritten == mRead; }

private:
    std::string mName;
    bool mIsEndless;
    int mChannels = 0;
    std::unique_ptr<KESS::Sound, Release> mDecoder; // until its end
    std::unique_ptr<SDL_AudioStream, Release> mConverter; // to kRate and kChannels
    std::vector<float> mRing = std::vector<float>(kRingSamples);
    std::atomic<size_t> mWritten{0};
    std::atomic<size_t> mRead{0};
};

using Voices = std::vector<std::unique_ptr<Voice>>;

// Starts all voices from the bank as it is now. The bank is closed again: the voices keep what they need of it.
bool start(KESS::System& system, const char* path, const Voices& voices)
{
    KESS::Sound* opened = nullptr;
    if (!succeeded(system.createSound(path, KESS_MODE_CREATESTREAM, nullptr, &opened), path))
        return false;
    const std::unique_ptr<KESS::Sound, Release> bank(opened);
    if (const char* key = std::getenv("BANK_KEY"); key && !succeeded(bank->setEncryptionKey(key), path))
        return false;
    for (const auto& voice : voices)
        voice->start(*bank);
    return true;
}

void mix(void* voices, Uint8* bytes, int count)
{
    auto* samples = reinterpret_cast<float*>(bytes);
    const size_t wanted = static_cast<size_t>(count) / sizeof(float);
    std::fill_n(samples, wanted, 0.0F);
    for (const auto& voice : *static_cast<const Voices*>(voices))
        voice->addTo(samples, wanted);
    for (size_t i = 0; i < wanted; ++i)
        samples[i] = std::clamp(samples[i], -1.0F, 1.0F);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
        return std::fprintf(stderr, "Usage: play_voices BANK SECONDS NAME[*VOICES][@] ...\n"), 2;
    KESS::System* created = nullptr;
    if (!succeeded(KESS_System_Create(&created, KESS_VERSION), "engine"))
        return 1;
    const std::unique_ptr<KESS::System, Release> system(created);
    Voices voices;
    for (int i = 3; i < argc; ++i) {
        std::string name = argv[i];
        const bool isEndless = !name.empty() && name.back() == '@';
        name.resize(name.size() - isEndless);
        const size_t star = name.find('*');
        for (int n = star == name.npos ? 1 : std::atoi(&name[star + 1]); n > 0; --n)
            voices.push_back(std::make_unique<Voice>(name.substr(0, star), isEndless));
    }
    const auto builtAt = [&] {
        std::error_code error;
        return std::filesystem::last_write_time(argv[1], error);
    };
    auto openedAt = builtAt();
    if (!succeeded(system->init(1, 0, nullptr), "engine") || !start(*system, argv[1], voices))
        return 1;
    for (const auto& voice : voices)
        voice->decodeAhead();
    SDL_AudioSpec spec{kRate, AUDIO_F32SYS, kChannels, 0, 1024, 0, 0, mix, &voices};
    if (SDL_Init(SDL_INIT_AUDIO) != 0 || SDL_OpenAudio(&spec, nullptr) != 0) {
        std::fprintf(stderr, "play_voices: %s\n", SDL_GetError());
        return 1;
    }
    SDL_PauseAudio(0);
    const Uint64 end = SDL_GetTicks64() + static_cast<Uint64>(1000 * std::atof(argv[2]));
    const auto over = [&] {
        return std::all_of(voices.begin(), voices.end(), [](auto& v) { return v->hasEnded(); });
    };
    for (; SDL_GetTicks64() < end && !over() && !SDL_QuitRequested(); SDL_Delay(20)) {
        // A builder replaces a bank by renaming a whole one, so it is never half written.
        if (const auto time = builtAt(); std::exchange(openedAt, time) != time)
            start(*system, argv[1], voices);
        for (const auto& voice : voices)
            voice->decodeAhead();
    }
    SDL_Quit();
    return 0;
}
