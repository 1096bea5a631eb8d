// SPDX-License-Identifier: MIT
// Opens a bank, finds a sound by its name, and decodes it to a WAV file as a game would play it: up to the end of its
// loop, the loop once more, and then to the end.
//
//     play_bank BANK NAME OUTPUT.wav [KEY]
//
//     c++ -std=c++17 play_bank.cpp $(pkg-config --cflags --libs kess)
#include "kess.hpp"

#include <cmath>
#include <cstdio>
#include <vector>

namespace {

bool succeeded(KESS_RESULT result, const char* what)
{
    if (result != KESS_OK)
        std::fprintf(stderr, "play_bank: %s: %s\n", what, KESS_ErrorString(result));
    return result == KESS_OK;
}

// Reads the whole sound as floats; full scale is -1 to 1.
bool decode(KESS::Sound& sound, int channels, std::vector<float>& samples)
{
    constexpr unsigned int kFrames = 1024;
    std::vector<float> buffer(static_cast<size_t>(channels) * kFrames);
    for (;;) {
        unsigned int frames = 0;
        const KESS_RESULT result = sound.readFloat(buffer.data(), kFrames, &frames);
        samples.insert(samples.end(), buffer.begin(), buffer.begin() + static_cast<long>(frames) * channels);
        if (result == KESS_ERR_FILE_EOF)
            return true;
        if (!succeeded(result, "decoding"))
            return false;
    }
}

// Writes a WAV file with 32-bit float samples.
bool writeWav(const char* path, int channels, int rate, const std::vector<float>& samples)
{
    struct
    {
        char riff[4] = {'R', 'I', 'F', 'F'};
        uint32_t riffBytes;
        char waveAndFormat[8] = {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
        uint32_t formatBytes = 16;
        uint16_t format = 3;
        uint16_t channels;
        uint32_t rate;
        uint32_t bytesPerSecond;
        uint16_t bytesPerFrame;
        uint16_t bitsPerSample = 32;
        char data[4] = {'d', 'a', 't', 'a'};
        uint32_t dataBytes;
    } header;
    header.dataBytes = static_cast<uint32_t>(samples.size() * sizeof(float));
    header.riffBytes = static_cast<uint32_t>(sizeof header) - 8 + header.dataBytes;
    header.channels = static_cast<uint16_t>(channels);
    header.rate = static_cast<uint32_t>(rate);
    header.bytesPerFrame = static_cast<uint16_t>(channels * 4);
    header.bytesPerSecond = header.rate * header.bytesPerFrame;

    std::FILE* file = std::fopen(path, "wb");
    if (!file)
        return false;
    const bool written = std::fwrite(&header, sizeof header, 1, file) == 1
        && std::fwrite(samples.data(), sizeof(float), samples.size(), file) == samples.size();
    return std::fclose(file) == 0 && written;
}

bool play(KESS::System& engine, const char* path, const char* name, const char* output, const char* key)
{
    KESS::Sound* bank = nullptr;
    if (!succeeded(engine.createSound(path, KESS_MODE_CREATESTREAM, nullptr, &bank), path))
        return false;

    // The bank owns its sounds, so only the bank is released.
    KESS::Sound* sound = nullptr;
    std::vector<float> samples;
    int channels = 0;
    float rate = 0;
    bool done = (!key || succeeded(bank->setEncryptionKey(key), path))
        && succeeded(bank->getSubSoundByName(name, &sound), name)
        && succeeded(sound->getFormat(nullptr, nullptr, &channels, nullptr), name)
        && succeeded(sound->getDefaults(&rate, nullptr), name);
    if (done) {
        // Fails for a sound without a loop, which is then played once.
        sound->setLoopCount(1);
        done = decode(*sound, channels, samples);
    }
    bank->release();
    if (done && !writeWav(output, channels, static_cast<int>(std::lround(rate)), samples)) {
        std::perror(output);
        done = false;
    }
    return done;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4 && argc != 5) {
        std::fprintf(stderr, "usage: play_bank BANK NAME OUTPUT.wav [KEY]\n");
        return 2;
    }
    KESS::System* engine = nullptr;
    if (!succeeded(KESS_System_Create(&engine, KESS_VERSION), "engine"))
        return 1;
    const bool done = succeeded(engine->init(32, 0, nullptr), "engine")
        && play(*engine, argv[1], argv[2], argv[3], argc == 5 ? argv[4] : nullptr);
    engine->release();
    return done ? 0 : 1;
}
