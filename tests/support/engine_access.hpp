// SPDX-License-Identifier: MIT
// Access to the engine for tests.
#pragma once

#include "kess.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace test {

struct ReleaseSound
{
    void operator()(KESS::Sound* sound) const { sound->release(); }
};
using SoundPointer = std::unique_ptr<KESS::Sound, ReleaseSound>;

struct Facts
{
    KESS_SOUND_TYPE type = KESS_SOUND_TYPE_UNKNOWN;
    KESS_SOUND_FORMAT format = KESS_SOUND_FORMAT_NONE;
    int channels = 0;
    int bits = 0;
    float rate = 0;
    uint64_t samples = 0;
    unsigned milliseconds = 0;

    bool operator==(const Facts&) const = default;
};

// A running engine.
class Engine
{
public:
    Engine();
    ~Engine() { mSystem->release(); }
    Engine(const Engine&) = delete;

    // Opens a file as the authoring system does; type 0 suggests none.
    KESS_RESULT open(const std::string& path, SoundPointer* sound, int type = 0) const;
    [[nodiscard]] KESS_RESULT tryOpen(const std::string& path, int type = 0) const;
    // For files that must open; a failure ends the test program.
    [[nodiscard]] SoundPointer open(const std::string& path) const;

    [[nodiscard]] KESS::System& system() const { return *mSystem; }

private:
    KESS::System* mSystem = nullptr;
};

// The engine of the whole test program.
[[nodiscard]] const Engine& engine();

// Functions of the program as a source: short reads, errors, and how often it was closed.
struct FunctionSource
{
    // The source of these bytes, which must outlive the sound.
    [[nodiscard]] KESS_SOURCE record();
    KESS_RESULT open(SoundPointer* sound);

    std::vector<uint8_t> bytes;
    uint64_t mostAtOnce = 1000;
    int64_t failure = 0; // the result of reads past failsFrom
    uint64_t failsFrom = UINT64_MAX;
    std::atomic<int> closed = 0;
    std::atomic<int> wrongReads = 0; // outside the bytes, of nothing, or after closing
};

// A sound of a bank, and a voice of a sound, where they must exist.
[[nodiscard]] KESS::Sound& subsound(KESS::Sound& bank, size_t index);
[[nodiscard]] SoundPointer makeVoice(KESS::Sound& sound);

[[nodiscard]] Facts readFacts(KESS::Sound& sound);

// Reads everything from the current position on, in pieces of odd sizes.
[[nodiscard]] std::vector<uint8_t> readBytes(KESS::Sound& sound, size_t pieceBytes = 40'028);
[[nodiscard]] std::vector<float> readFloats(KESS::Sound& sound, size_t most = SIZE_MAX);

using Loop = std::optional<std::pair<uint64_t, uint64_t>>;
using SyncPoints = std::vector<std::pair<uint64_t, std::string>>;
[[nodiscard]] Loop readLoop(KESS::Sound& sound);
[[nodiscard]] SyncPoints readSyncPoints(KESS::Sound& sound);

} // namespace test
