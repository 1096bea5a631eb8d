// Every kind of source file that tests can make, with what the engine must say about it.
#pragma once

#include "support/engine_access.hpp"
#include "support/sound_files.hpp"

#include <string>
#include <vector>

namespace test {

// What writes a file: libsndfile, by one of its formats, or FFmpeg, by a container and an encoder.
struct Encoding
{
    int format;
    const char* container = nullptr;
    const char* encoder = nullptr;
};

struct SourceKind
{
    // Writes a file of this kind.
    void make(const std::string& path, const Signal& signal) const;

    std::string name; // of a file, with its suffix
    KESS_SOUND_TYPE type;
    KESS_SOUND_FORMAT format;
    int channels;
    int rate;
    Encoding encoding;
    double leastSnr; // decibels against the source, when both begin at the same sample
    // Samples that the encoding may add at the end or lose, where it doesn't tell.
    uint64_t tolerance = 0;
};

[[nodiscard]] const std::vector<SourceKind>& sourceKinds();

// A file of 5000 samples of noise, made once in each run.
[[nodiscard]] std::string exampleOf(const SourceKind& kind);

} // namespace test
