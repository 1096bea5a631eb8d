// SPDX-License-Identifier: MIT
// Every kind of source file that tests can make, with what the engine must report about it.
#pragma once

#include "support/engine_access.hpp"
#include "support/sound_files.hpp"

#include <string>
#include <vector>

namespace test {

// What writes a file: libsndfile in one of its formats, or FFmpeg with a container and an encoder.
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

    std::string name; // name of the file, with its extension
    KESS_SOUND_TYPE type;
    KESS_SOUND_FORMAT format;
    int channels;
    int rate;
    Encoding encoding;
    double leastSnr; // in decibels, compared with the source when both begin at the same sample
    // How many samples the encoding may add or lose at the end if it doesn't store the length.
    uint64_t tolerance = 0;
};

[[nodiscard]] const std::vector<SourceKind>& sourceKinds();

// A file of 5000 samples of noise, made once per run.
[[nodiscard]] std::string exampleFile(const SourceKind& kind);

} // namespace test
