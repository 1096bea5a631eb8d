// Sound files for tests, made on the spot.
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

// frames of a sum of sines; the frequencies are multiplied by the number of the channel, from 1.
[[nodiscard]] std::vector<float> tones(size_t frames, int channels, const std::vector<double>& cyclesPerFrame,
                                       float level);

// One such tone at half of full scale.
[[nodiscard]] Signal sine(int channels, int rate, size_t frames, double hertz = 440);

// White noise, the same for the same seed, up to full scale.
[[nodiscard]] Signal noise(int channels, int rate, size_t frames, uint32_t seed = 1);

// The sum of the squares of the differences, over the samples that both have; and decibels of a signal over that.
[[nodiscard]] double squaredError(std::span<const float> wanted, std::span<const float> got);
[[nodiscard]] double signalToNoise(std::span<const float> wanted, std::span<const float> got);

// Whole numbers over the full range of 32 bits, the same for the same seed.
[[nodiscard]] std::vector<int32_t> randomIntegers(size_t count, uint32_t seed = 1);

// Writes a file by libsndfile; format is one of its formats, such as SF_FORMAT_WAV | SF_FORMAT_PCM_24. Integers are
// taken from the top: a 16-bit file keeps the upper 16 bits. Failure ends the test program. The path comes back.
std::string writeSound(const std::string& path, int format, const Signal& signal);
void writeIntegers(const std::string& path, int format, int channels, int rate, const std::vector<int32_t>& samples);

// Numbers of 32 bits, and a chunk of a RIFF file, padded to an even size.
[[nodiscard]] std::string littleEndian(std::initializer_list<uint32_t> numbers);
[[nodiscard]] std::string chunk(const std::string& id, const std::string& data);

// What else a WAV file may hold: the first and the last sample of its loop, and markers with names.
struct WavTags
{
    std::optional<std::pair<uint32_t, uint32_t>> loop;
    std::vector<std::pair<uint32_t, std::string>> markers;
};

// Adds `smpl`, `cue ` and `LIST adtl` chunks to a WAV file.
void addWavTags(const std::string& path, const WavTags& tags);

// Whether the next function works.
[[nodiscard]] bool canEncode();

// Writes a file by FFmpeg, in a container and by an encoder of the names they have there, such as "asf" and "wmav2".
// tags become the file's comments.
using FileTags = std::vector<std::pair<std::string, std::string>>;
void encodeSound(const std::string& path, const std::string& container, const std::string& encoder,
                 const Signal& signal, const FileTags& tags = {});

[[nodiscard]] std::string readText(const std::string& path);
[[nodiscard]] std::vector<uint8_t> readFile(const std::string& path);
void writeFile(const std::string& path, const std::vector<uint8_t>& bytes);
void writeFile(const std::string& path, const std::string& text);

// The pages of an Ogg file, and a file of such pages.
[[nodiscard]] std::vector<std::string> oggPages(const std::string& file);
[[nodiscard]] std::string joined(const std::vector<std::string>& pages);

} // namespace test
