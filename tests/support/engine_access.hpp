// SPDX-License-Identifier: MIT
// Access to the engine for tests.
#pragma once

#include "kess.hpp"

#include <gtest/gtest.h>

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
    Engine& operator=(const Engine&) = delete;

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

[[nodiscard]] Facts readFacts(KESS::Sound& sound);

// Reads everything from the current position on, in pieces of odd sizes.
[[nodiscard]] std::vector<uint8_t> readBytes(KESS::Sound& sound, size_t pieceBytes = 40'028);
[[nodiscard]] std::vector<float> readFloats(KESS::Sound& sound, size_t most = SIZE_MAX);

using Loop = std::optional<std::pair<uint64_t, uint64_t>>;
using SyncPoints = std::vector<std::pair<uint64_t, std::string>>;
[[nodiscard]] Loop readLoop(KESS::Sound& sound);
[[nodiscard]] SyncPoints readSyncPoints(KESS::Sound& sound);

} // namespace test
