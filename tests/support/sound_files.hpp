// SPDX-License-Identifier: MIT
// Makes sound files for tests.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace test {

// Interleaved samples, full scale -1 to 1.
struct Signal
{
    int channels = 1;
    int rate = 44100;
    std::vector<float> samples;
};

// Returns frames of a sum of sines; the frequencies are multiplied by the number of the channel, counted from 1.
[[nodiscard]] std::vector<float> tones(size_t frames, int channels, const std::vector<double>& cyclesPerFrame,
                                       float level);

// The same with one tone at half of full scale.
[[nodiscard]] Signal sine(int channels, int rate, size_t frames, double hertz = 440);

// White noise up to full scale, the same for the same seed.
[[nodiscard]] Signal noise(int channels, int rate, size_t frames, uint32_t seed = 1);

// The sum of the squared differences over the samples that both have, and the signal-to-noise ratio in decibels.
[[nodiscard]] double squaredError(std::span<const float> wanted, std::span<const float> got);
[[nodiscard]] double signalToNoise(std::span<const float> wanted, std::span<const float> got);

// Integers over the full range of 32 bits, the same for the same seed.
[[nodiscard]] std::vector<int32_t> randomIntegers(size_t count, uint32_t seed = 1);

// Writes a file with libsndfile; format is one of its formats, such as SF_FORMAT_WAV | SF_FORMAT_PCM_24. Of integers, a
// 16-bit file stores the upper 16 bits. A failure ends the test program. Returns the path.
std::string writeSound(const std::string& path, int format, const Signal& signal);
void writeIntegers(const std::string& path, int format, int channels, int rate, const std::vector<int32_t>& samples);

// A 32-bit number, and a chunk of a RIFF file, padded to an even size.
[[nodiscard]] std::string littleEndian(std::initializer_list<uint32_t> numbers);
[[nodiscard]] std::string chunk(const std::string& id, const std::string& data);

// Tags of a WAV file: the first and the last sample of its loop, and named markers.
struct WavTags
{
    std::optional<std::pair<uint32_t, uint32_t>> loop;
    std::vector<std::pair<uint32_t, std::string>> markers;
};

// Adds `smpl`, `cue ` and `LIST adtl` chunks to a WAV file.
void addWavTags(const std::string& path, const WavTags& tags);

// Whether encodeSound() works here.
[[nodiscard]] bool canEncode();

// Writes a file with FFmpeg, in a container and with an encoder by their FFmpeg names, such as "asf" and "wmav2". tags
// become the comments of the file.
using FileTags = std::vector<std::pair<std::string, std::string>>;
void encodeSound(const std::string& path, const std::string& container, const std::string& encoder,
                 const Signal& signal, const FileTags& tags = {});

[[nodiscard]] std::string readText(const std::string& path);
[[nodiscard]] std::vector<uint8_t> readFile(const std::string& path);
void writeFile(const std::string& path, const std::vector<uint8_t>& bytes);
void writeFile(const std::string& path, const std::string& text);

// Divides an Ogg file into its pages, and joins such pages.
[[nodiscard]] std::vector<std::string> oggPages(const std::string& file);
[[nodiscard]] std::string joined(const std::vector<std::string>& pages);

} // namespace test
