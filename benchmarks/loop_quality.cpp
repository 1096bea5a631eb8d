// SPDX-License-Identifier: MIT
// Measures the error where the sounds of a bank aren't played in order: at the seams of their loops, and after a seek.
//
//     loop_quality BANK LIST
//
// LIST is a text file with one path of a source per line, in the order of the bank's sounds. Prints one line per sound:
//
//   ratios  the root mean square of the error in the 256 frames before the end of the loop, and in the 256 frames that
//           are heard after it, each divided by that of the whole sound. The error is what the engine delivers minus
//           what the encoder got.
//   seam    the larger of the two errors, in dB of full scale
//   seek    the worst difference between decoding from a seek point and decoding from the start, over all seek points.
//           It is measured in steps of 20 ms, from where seeking is exact up to the next seek point, at most for half
//           a second, in dB of the sound there, or of full scale at -30 dB if that is louder
//   extra   bytes that aren't data: seek points, corrections, loop
//
// Exit status 1: a seam has a ratio above 1.1 and an error above -90 dB, or a seek point has more than -60 dB.
#include "source/sound_preparation.hpp"

#include "bank/reader.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

constexpr uint64_t kWindow = 256; // frames on each side of a seam
constexpr double kMaximumRatio = 1.1;
constexpr double kNearSilence = -90; // dB of full scale
constexpr double kMaximumSeekError = -60; // dB

void require(bool holds, const std::string& what)
{
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(2);
}

// Reads a whole bank into memory.
std::shared_ptr<const base::ByteSource> readBank(const char* path)
{
    std::ifstream stream(path, std::ios::binary);
    require(bool(stream), std::string(path) + ": can't be read");
    return std::make_shared<base::MemorySource>(
        std::vector<uint8_t>(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()));
}

std::vector<float> readAt(KESS::Sound& sound, uint64_t frame, size_t count, size_t channels)
{
    std::vector<float> frames(count * channels);
    size_t done = 0;
    require(sound.seekData(frame) == KESS_OK, "seeking failed");
    while (done < count) {
        unsigned int read = 0;
        const auto wanted = unsigned(std::min<size_t>(count - done, 1u << 16));
        if (sound.readFloat(frames.data() + done * channels, wanted, &read) != KESS_OK)
            break;
        done += read;
    }
    frames.resize(done * channels);
    return frames;
}

// The samples that the encoder got.
std::vector<float> prepare(KESS::System& engine, const std::string& path, const bank::Sound& sound)
{
    builder::SoundSettings settings;
    settings.codec = sound.codec;
    builder::SoundPreparation preparation(settings, builder::TemporaryFolders({"/tmp"}), {});
    require(bool(preparation.open(engine, std::vector{path})) && bool(preparation.analyse())
                && bool(preparation.preprocess()),
            path + ": can't be prepared");
    builder::PreparedSound& prepared = preparation.sound();
    require(prepared.facts().sampleCount == sound.sampleCount && prepared.facts().channels == sound.channels
                && prepared.facts().loop == sound.loop,
            path + ": isn't the source of the sound at its index");
    std::vector<float> frames(sound.sampleCount * sound.channels);
    require(prepared.seek(0) && prepared.readFloat(frames.data(), sound.sampleCount), path + ": can't be read");
    return frames;
}

double meanSquare(std::span<const float> a, std::span<const float> b)
{
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i)
        sum += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
    return a.empty() ? 0 : sum / double(a.size());
}

double decibels(double square)
{
    return square > 0 ? 10 * std::log10(square) : -999;
}

struct SeamError
{
    double before = 0; // mean square
    double after = 0;
};

SeamError seamError(KESS::Sound& sound, const bank::Sound& facts, std::span<const float> source)
{
    const size_t channels = facts.channels;
    const base::Loop loop = *facts.loop;
    const uint64_t before = std::min(kWindow, loop.end);
    std::vector<float> wanted(source.begin() + ptrdiff_t((loop.end - before) * channels),
                              source.begin() + ptrdiff_t(loop.end * channels));
    for (uint64_t i = 0; i < kWindow; ++i) {
        const auto frame = source.subspan((loop.start + i % (loop.end - loop.start)) * channels, channels);
        wanted.insert(wanted.end(), frame.begin(), frame.end());
    }
    sound.setLoopCount(-1);
    const std::vector<float> got = readAt(sound, loop.end - before, before + kWindow, channels);
    sound.setLoopCount(0);
    require(got.size() == wanted.size(), "reading across the seam failed");
    const size_t seam = before * channels;
    return {meanSquare(std::span(wanted).first(seam), std::span(got).first(seam)),
            meanSquare(std::span(wanted).subspan(seam), std::span(got).subspan(seam))};
}

double worstSeek(KESS::Sound& sound, const bank::Sound& facts, std::span<const float> straight)
{
    constexpr double kFaint = 1e-3; // full scale at -30 dB, as a mean square
    const size_t channels = facts.channels;
    const uint64_t preroll = facts.codec == bank::Codec::Opus ? facts.sampleRate * 80 / 1000 : 0;
    const size_t window = facts.sampleRate / 50;
    double worst = -999;
    for (size_t i = 0; i < facts.seekPoints.size(); ++i) {
        const uint64_t position = facts.seekPoints[i].position + preroll;
        const uint64_t target = position > facts.preSkip ? position - facts.preSkip : 0;
        if (target >= facts.sampleCount)
            continue;
        (void)readAt(sound, 0, 1, channels); // so that decoding can't continue from an earlier position
        const std::vector<float> got = readAt(
            sound, target, size_t(std::min<uint64_t>(facts.sampleCount - target, facts.sampleRate / 2)), channels);
        for (size_t at = 0; at < got.size(); at += window * channels) {
            const size_t count = std::min(window * channels, got.size() - at);
            const auto wanted = straight.subspan(target * channels + at, count);
            const std::vector<float> none(count);
            const double difference = meanSquare(wanted, std::span(got).subspan(at, count));
            worst = std::max(worst, decibels(difference) - decibels(std::max(meanSquare(wanted, none), kFaint)));
        }
    }
    return worst;
}

} // namespace

int main(int argc, char** argv)
{
    require(argc == 3, "usage: loop_quality BANK LIST");
    KESS::System* engine = nullptr;
    require(KESS_System_Create(&engine, KESS_VERSION) == KESS_OK && engine->init(0, 0, nullptr) == KESS_OK, "engine");
    KESS::Sound* bank = nullptr;
    require(engine->createSound(argv[1], 0, nullptr, &bank) == KESS_OK, std::string(argv[1]) + ": can't be opened");
    const base::Result<bank::BankReader> reader = bank::BankReader::open(readBank(argv[1]));
    require(reader.has_value(), std::string(argv[1]) + ": can't be read");

    int sounds = 0;
    int seams = 0;
    int points = 0;
    int badSeams = 0;
    int badSeeks = 0;
    double worstRatio = 0;
    double worstDifference = -999;
    uint64_t data = 0;
    uint64_t extra = 0;
    std::ifstream list(argv[2]);
    for (std::string path; std::getline(list, path) && !path.empty(); ++sounds) {
        KESS::Sound* sound = nullptr;
        require(bank->getSubSound(sounds, &sound) == KESS_OK, path + ": no sound at its index");
        const base::Result<bank::Sound> facts = reader->soundWithoutSetup(uint32_t(sounds));
        require(facts.has_value(), path + ": damaged in the bank");
        const std::vector<float> source = prepare(*engine, path, *facts);
        const std::vector<float> straight = readAt(*sound, 0, facts->sampleCount, facts->channels);
        require(straight.size() == source.size(), path + ": can't be decoded");
        const double whole = meanSquare(source, straight);
        const SeamError error = facts->loop ? seamError(*sound, *facts, source) : SeamError();
        const double seam = decibels(std::max(error.before, error.after));
        const auto ratio = [whole](double square) {
            return square == 0 ? 0 : std::sqrt(square / whole);
        };
        const double seek = worstSeek(*sound, *facts, straight);
        const double highest = std::max(ratio(error.before), ratio(error.after));
        const bool bad = highest > kMaximumRatio && seam > kNearSilence;
        std::printf("%6.2f %6.2f  seam %7.1f dB  whole %7.1f dB  seek %7.1f dB  extra %5u  %s%s\n", ratio(error.before),
                    ratio(error.after), seam, decibels(whole), seek, reader->entry(uint32_t(sounds)).chunksBytes,
                    path.c_str(), bad ? "  WORSE" : "");
        seams += facts->loop.has_value();
        points += int(facts->seekPoints.size());
        badSeams += bad;
        badSeeks += seek > kMaximumSeekError;
        if (seam > kNearSilence)
            worstRatio = std::max(worstRatio, highest);
        worstDifference = std::max(worstDifference, seek);
        data += reader->entry(uint32_t(sounds)).dataBytes;
        extra += reader->entry(uint32_t(sounds)).chunksBytes;
        sound->release();
    }
    std::printf(
        "%d sounds, %d seams: %d above %.1f, worst %.2f; %d seek points: %d sounds with one above %.0f dB, worst "
        "%.1f dB; %llu bytes of data, %llu others\n",
        sounds, seams, badSeams, kMaximumRatio, worstRatio, points, badSeeks, kMaximumSeekError, worstDifference,
        static_cast<unsigned long long>(data), static_cast<unsigned long long>(extra));
    bank->release();
    engine->release();
    return badSeams == 0 && badSeeks == 0 ? 0 : 1;
}
