// SPDX-License-Identifier: MIT
#include "support/sound_files.hpp"

#include <sndfile.hh>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>

namespace test {

namespace {

[[noreturn]] void fail(const std::string& path, const char* reason)
{
    std::fprintf(stderr, "%s: %s\n", path.c_str(), reason);
    std::abort();
}

// In pieces, because libsndfile's Vorbis and Opus encoders copy the samples of a write to the stack.
template <typename Sample>
void write(const std::string& path, int format, int channels, int rate, const std::vector<Sample>& samples)
{
    SndfileHandle file(path, SFM_WRITE, format, channels, rate);
    file.command(SFC_SET_CLIPPING, nullptr, SF_TRUE);
    const size_t piece = 4096 * size_t(channels);
    for (size_t done = 0; done < samples.size(); done += piece) {
        const auto count = sf_count_t(std::min(piece, samples.size() - done));
        if (file.write(samples.data() + done, count) != count)
            fail(path, file.strError());
    }
    if (file.error())
        fail(path, file.strError());
}

} // namespace

std::vector<float> tones(size_t frames, int channels, const std::vector<double>& cyclesPerFrame, float level)
{
    std::vector<float> samples(frames * size_t(channels));
    for (size_t i = 0; i < frames; ++i) {
        for (int channel = 0; channel < channels; ++channel) {
            double sum = 0;
            for (const double cycles : cyclesPerFrame)
                sum += std::sin(2 * M_PI * cycles * (channel + 1) * double(i) + channel);
            samples[i * size_t(channels) + size_t(channel)] = level * float(sum / double(cyclesPerFrame.size()));
        }
    }
    return samples;
}

Signal sine(int channels, int rate, size_t frames, double hertz)
{
    return {channels, rate, tones(frames, channels, {hertz / rate}, 0.5f)};
}

Signal noise(int channels, int rate, size_t frames, uint32_t seed)
{
    Signal signal{channels, rate, {}};
    for (const int32_t number : randomIntegers(frames * size_t(channels), seed))
        signal.samples.push_back(float(number) * 0x1p-31f);
    return signal;
}

double squaredError(std::span<const float> wanted, std::span<const float> got)
{
    double sum = 0;
    for (size_t i = 0; i < std::min(wanted.size(), got.size()); ++i)
        sum += std::pow(double{wanted[i]} - double{got[i]}, 2);
    return sum;
}

double signalToNoise(std::span<const float> wanted, std::span<const float> got)
{
    const double error = squaredError(wanted, got);
    const std::vector<float> silence(std::min(wanted.size(), got.size()));
    return 10 * std::log10(squaredError(wanted, silence) / std::max(error, 1e-30));
}

std::vector<int32_t> randomIntegers(size_t count, uint32_t seed)
{
    std::vector<int32_t> numbers(count);
    std::generate(numbers.begin(), numbers.end(), std::mt19937(seed));
    return numbers;
}

std::string writeSound(const std::string& path, int format, const Signal& signal)
{
    write(path, format, signal.channels, signal.rate, signal.samples);
    return path;
}

void writeIntegers(const std::string& path, int format, int channels, int rate, const std::vector<int32_t>& samples)
{
    write(path, format, channels, rate, samples);
}

std::string littleEndian(std::initializer_list<uint32_t> numbers)
{
    return {reinterpret_cast<const char*>(numbers.begin()), numbers.size() * sizeof(uint32_t)};
}

std::string chunk(const std::string& id, const std::string& data)
{
    return id + littleEndian({uint32_t(data.size())}) + data + std::string(data.size() % 2, '\0');
}

void addWavTags(const std::string& path, const WavTags& tags)
{
    std::string added;
    if (tags.loop) {
        const auto [first, last] = *tags.loop;
        added = chunk("smpl", littleEndian({0, 0, 22676, 60, 0, 0, 0, 1, 0, 0, 0, first, last, 0, 0}));
    }
    if (!tags.markers.empty()) {
        std::string points = littleEndian({uint32_t(tags.markers.size())});
        std::string names = "adtl";
        uint32_t id = 0;
        for (const auto& [sample, name] : tags.markers) {
            ++id;
            points += littleEndian({id, sample}) + "data" + littleEndian({0, 0, sample});
            names += chunk("labl", littleEndian({id}) + name + '\0');
        }
        added += chunk("cue ", points) + chunk("LIST", names);
    }
    writeFile(path, chunk("RIFF", readText(path).substr(8) + added));
}

bool canEncode()
{
    return *TEST_FFMPEG != 0;
}

void encodeSound(const std::string& path, const std::string& container, const std::string& encoder,
                 const Signal& signal, const FileTags& tags)
{
    const std::string source = writeSound(path + ".source", SF_FORMAT_WAV | SF_FORMAT_PCM_16, signal);
    std::string command = TEST_FFMPEG " -v error -nostdin -y -i '" + source + "' -strict experimental -c:a " + encoder;
    for (const auto& [name, value] : tags)
        command += " -metadata '" + name + "=" + value + "' -metadata:s:a '" + name + "=" + value + "'";
    if (std::system((command + " -f " + container + " '" + path + "'").c_str()) != 0)
        fail(path, "cannot be encoded");
    std::remove(source.c_str());
}

std::string readText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        fail(path, "cannot be read");
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<uint8_t> readFile(const std::string& path)
{
    const std::string text = readText(path);
    return {text.begin(), text.end()};
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes)
{
    writeFile(path, std::string(bytes.begin(), bytes.end()));
}

void writeFile(const std::string& path, const std::string& text)
{
    if (!(std::ofstream(path, std::ios::binary) << text).flush())
        fail(path, "cannot be written");
}

std::vector<std::string> oggPages(const std::string& ogg)
{
    constexpr size_t kHeaderBytes = 27;
    std::vector<std::string> pages;
    for (size_t at = 0; at < ogg.size(); at += pages.back().size()) {
        const auto segments = size_t(uint8_t(ogg[at + kHeaderBytes - 1]));
        size_t length = kHeaderBytes + segments;
        for (size_t i = 0; i < segments; ++i)
            length += uint8_t(ogg[at + kHeaderBytes + i]);
        pages.push_back(ogg.substr(at, length));
    }
    return pages;
}

std::string joined(const std::vector<std::string>& pages)
{
    std::string file;
    for (const std::string& page : pages)
        file += page;
    return file;
}

} // namespace test
