#include "support/sound_files.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>

namespace test {

namespace {

[[noreturn]] void fail(const std::string& path, const char* reason)
{
    std::fprintf(stderr, "%s: %s\n", path.c_str(), reason);
    std::abort();
}

SNDFILE* create(const std::string& path, int format, int channels, int rate)
{
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = rate;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
        fail(path, sf_strerror(nullptr));
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    return file;
}

void append(std::vector<uint8_t>& bytes, uint32_t number)
{
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(uint8_t(number >> shift));
}

void append(std::vector<uint8_t>& bytes, const std::string& text)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void appendChunk(std::vector<uint8_t>& bytes, const char* id, const std::vector<uint8_t>& data)
{
    append(bytes, std::string(id, 4));
    append(bytes, uint32_t(data.size()));
    bytes.insert(bytes.end(), data.begin(), data.end());
    if (data.size() % 2)
        bytes.push_back(0);
}

} // namespace

Signal sine(int channels, int rate, size_t frames, double hertz)
{
    Signal signal{channels, rate, {}};
    signal.samples.reserve(frames * size_t(channels));
    for (size_t i = 0; i < frames; ++i) {
        for (int channel = 0; channel < channels; ++channel) {
            const double phase = 2 * M_PI * hertz * (1 + 0.1 * channel) * double(i) / rate;
            signal.samples.push_back(float(0.5 * std::sin(phase)));
        }
    }
    return signal;
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
    std::mt19937 random(seed);
    std::vector<int32_t> numbers(count);
    for (int32_t& number : numbers)
        number = int32_t(random());
    return numbers;
}

std::string writeSound(const std::string& path, int format, const Signal& signal)
{
    SNDFILE* file = create(path, format, signal.channels, signal.rate);
    const auto frames = sf_count_t(signal.frames());
    // In pieces: libsndfile's Vorbis and Opus encoders keep a large write on the stack.
    constexpr sf_count_t kPiece = 4096;
    for (sf_count_t done = 0; done < frames; done += kPiece) {
        const sf_count_t count = std::min(kPiece, frames - done);
        if (sf_writef_float(file, signal.samples.data() + done * signal.channels, count) != count)
            fail(path, sf_strerror(file));
    }
    sf_close(file);
    return path;
}

void writeIntegers(const std::string& path, int format, int channels, int rate, const std::vector<int32_t>& samples)
{
    SNDFILE* file = create(path, format, channels, rate);
    const auto count = sf_count_t(samples.size());
    if (sf_write_int(file, samples.data(), count) != count)
        fail(path, sf_strerror(file));
    sf_close(file);
}

void addWavTags(const std::string& path, const WavTags& tags)
{
    std::vector<uint8_t> bytes = readFile(path);
    if (tags.loop) {
        std::vector<uint8_t> data;
        for (uint32_t field : {0u, 0u, 22676u, 60u, 0u, 0u, 0u, 1u, 0u})
            append(data, field);
        for (uint32_t field : {0u, 0u, tags.loop->first, tags.loop->second, 0u, 0u})
            append(data, field);
        appendChunk(bytes, "smpl", data);
    }
    if (!tags.markers.empty()) {
        std::vector<uint8_t> points;
        std::vector<uint8_t> names;
        append(points, uint32_t(tags.markers.size()));
        append(names, "adtl");
        uint32_t id = 0;
        for (const auto& [sample, name] : tags.markers) {
            append(points, ++id);
            append(points, sample);
            append(points, "data");
            append(points, 0u);
            append(points, 0u);
            append(points, sample);
            std::vector<uint8_t> label;
            append(label, id);
            append(label, name + '\0');
            appendChunk(names, "labl", label);
        }
        appendChunk(bytes, "cue ", points);
        appendChunk(bytes, "LIST", names);
    }
    const auto length = uint32_t(bytes.size() - 8);
    std::memcpy(&bytes[4], &length, sizeof length);
    writeFile(path, bytes);
}

#ifndef TEST_FFMPEG
#define TEST_FFMPEG ""
#endif

bool canEncode()
{
    return *TEST_FFMPEG != 0;
}

void encodeSound(const std::string& path, const std::string& container, const std::string& encoder,
                 const Signal& signal, const std::vector<std::pair<std::string, std::string>>& tags)
{
    const std::string source = writeSound(path + ".source", SF_FORMAT_WAV | SF_FORMAT_PCM_16, signal);
    std::string command = TEST_FFMPEG " -v error -nostdin -y -i '" + source + "' -strict experimental -c:a " + encoder;
    for (const auto& [name, value] : tags)
        command += " -metadata '" + name + "=" + value + "' -metadata:s:a '" + name + "=" + value + "'";
    if (std::system((command + " -f " + container + " '" + path + "'").c_str()) != 0)
        fail(path, "cannot be encoded");
    std::remove(source.c_str());
}

std::vector<uint8_t> readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        fail(path, "cannot be read");
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {});
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        fail(path, "cannot be written");
}

void writeFile(const std::string& path, const std::string& text)
{
    writeFile(path, std::vector<uint8_t>(text.begin(), text.end()));
}

} // namespace test
