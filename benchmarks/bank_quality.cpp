// SPDX-License-Identifier: MIT
// Compares the sounds of a bank with their sources: length to the sample, and signal-to-noise ratio.
//
//     bank_quality BANK LIST
//
// LIST is a text file with one path of a source per line, in the order of the bank's sounds. A source with another rate
// than its sound is resampled first. Samples are compared only where the length is correct. Exit status 0 if every
// length is correct.
#include "kess.hpp"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

namespace {

struct Samples
{
    std::vector<float> frames; // interleaved
    int channels = 0;
    double rate = 0;

    size_t count() const { return channels == 0 ? 0 : frames.size() / size_t(channels); }
};

void require(KESS_RESULT result, const std::string& what)
{
    if (result == KESS_OK)
        return;
    std::fprintf(stderr, "%s: %s\n", what.c_str(), KESS_ErrorString(result));
    std::exit(2);
}

Samples decode(KESS::Sound* sound, const std::string& name)
{
    Samples samples;
    float rate = 0;
    uint64_t count = 0;
    sound->getFormat(nullptr, nullptr, &samples.channels, nullptr);
    sound->getDefaults(&rate, nullptr);
    sound->getSampleCount(&count);
    samples.rate = double(rate);
    samples.frames.resize(size_t(count) * size_t(samples.channels));
    size_t done = 0;
    while (done < count) {
        unsigned int read = 0;
        const auto wanted = unsigned(std::min<uint64_t>(count - done, 1u << 16));
        const KESS_RESULT result =
            sound->readFloat(samples.frames.data() + done * size_t(samples.channels), wanted, &read);
        if (result == KESS_ERR_FILE_EOF)
            break;
        require(result, name);
        done += read;
    }
    samples.frames.resize(done * size_t(samples.channels));
    return samples;
}

void resample(Samples* samples, double rate)
{
    const auto channels = size_t(samples->channels);
    const auto count = size_t(std::llround(double(samples->count()) * rate / samples->rate));
    std::vector<float> frames(count * channels);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    size_t done = 0;
    soxr_oneshot(samples->rate, rate, unsigned(channels), samples->frames.data(), samples->count(), nullptr,
                 frames.data(), count, &done, nullptr, &quality, nullptr);
    samples->frames = std::move(frames);
    samples->rate = rate;
}

// In decibels, for sounds of the same length; infinite if they are identical.
double signalToNoise(const Samples& source, const Samples& sound)
{
    double signal = 0;
    double noise = 0;
    for (size_t i = 0; i < source.frames.size(); ++i) {
        const double difference = double(source.frames[i]) - double(sound.frames[i]);
        signal += double(source.frames[i]) * double(source.frames[i]);
        noise += difference * difference;
    }
    return noise == 0 ? std::numeric_limits<double>::infinity() : 10 * std::log10(signal / noise);
}

// The results of all sounds.
struct Tally
{
    int sounds = 0;
    int wrong = 0; // sounds with another length or number of channels
    int identical = 0;
    std::vector<double> ratios; // of the other sounds, in dB

    void add(const std::string& path, Samples source, const Samples& decoded)
    {
        ++sounds;
        if (source.channels > 0 && source.rate != decoded.rate)
            resample(&source, decoded.rate);
        if (source.channels != decoded.channels || source.count() != decoded.count()) {
            std::printf("WRONG LENGTH: %zu frames of %d channels instead of %zu of %d  %s\n", decoded.count(),
                        decoded.channels, source.count(), source.channels, path.c_str());
            ++wrong;
            return;
        }

        const double ratio = signalToNoise(source, decoded);
        std::printf("%8.2f dB %10zu frames  %s\n", ratio, decoded.count(), path.c_str());
        if (std::isnan(ratio))
            return; // NaN samples can't be compared or sorted
        if (std::isinf(ratio) && ratio > 0)
            ++identical;
        else
            ratios.push_back(ratio);
    }

    void print()
    {
        std::printf("%d sounds, %d of a wrong length, %d identical", sounds, wrong, identical);
        if (!ratios.empty()) {
            const double sum = std::accumulate(ratios.begin(), ratios.end(), 0.0);
            std::sort(ratios.begin(), ratios.end());
            std::printf("; the others: mean %.2f dB, median %.2f dB, least %.2f dB", sum / double(ratios.size()),
                        ratios[ratios.size() / 2], ratios.front());
        }
        std::printf("\n");
    }
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: bank_quality BANK LIST\n");
        return 2;
    }

    KESS::System* system = nullptr;
    require(KESS_System_Create(&system, KESS_VERSION), "engine");
    system->setOutput(KESS_OUTPUTTYPE_NOSOUND_NRT);
    system->init(0, 0, nullptr);
    KESS::Sound* bank = nullptr;
    require(system->createSound(argv[1], 0, nullptr, &bank), argv[1]);

    Tally tally;
    std::ifstream list(argv[2]);
    std::string path;
    while (std::getline(list, path) && !path.empty()) {
        KESS::Sound* file = nullptr;
        require(system->createSound(path.c_str(), 0, nullptr, &file), path);
        KESS::Sound* sound = nullptr;
        require(bank->getSubSound(tally.sounds, &sound), path);
        tally.add(path, decode(file, path), decode(sound, path + " in the bank"));
        file->release();
        sound->release();
    }
    bank->release();
    system->release();
    tally.print();
    return tally.wrong == 0 ? 0 : 1;
}
