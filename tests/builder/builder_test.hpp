// SPDX-License-Identifier: MIT
// Shared by the builder's tests: a working folder, a build with its reports, and banks read by the engine.
#pragma once

#include "support/clock.hpp"
#include "support/engine_access.hpp"
#include "support/moments.hpp"
#include "support/sound_files.hpp"
#include "tarnok.h"

#include <algorithm>
#include <filesystem>
#include <functional>

namespace test {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

inline constexpr TARNOK_FORMAT allFormats[] = {TARNOK_FORMAT_PCM, TARNOK_FORMAT_KADPCM, TARNOK_FORMAT_VORBIS,
                                               TARNOK_FORMAT_OPUS};
inline constexpr int wav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

struct Report
{
    int sound = 0;
    int thread = 0;
    TARNOK_STATE state = TARNOK_STATE_DECODING;
    TARNOK_RESULT code = TARNOK_OK;
    std::string text;
};

// Fetches all waiting reports and returns them to the library.
std::vector<Report> drainReports();

struct Outcome
{
    TARNOK_RESULT result = TARNOK_OK;
    std::vector<Report> reports;
    Bytes bank; // empty if it wasn't built
    std::vector<std::string> remarks;

    [[nodiscard]] std::vector<TARNOK_STATE> reportedStates(int sound) const;
    // The reports about one sound.
    [[nodiscard]] int countReports(TARNOK_STATE state) const
    {
        return int(std::ranges::count_if(
            reports, [=](const Report& report) { return report.state == state && report.sound >= 0; }));
    }
    // Sounds that were finished without being decoded.
    [[nodiscard]] int cachedSounds() const
    {
        return countReports(TARNOK_STATE_FINISHED) - countReports(TARNOK_STATE_DECODING);
    }
    [[nodiscard]] std::string texts() const; // of all failures, one per line
    [[nodiscard]] testing::AssertionResult failed(TARNOK_RESULT why, const std::string& text) const; // among its texts
};

// All arguments of a build. Paths are absolute.
struct BuildArguments
{
    std::vector<std::vector<std::string>> sounds;
    std::string cache;
    std::string output;
    TARNOK_FORMAT format = TARNOK_FORMAT_PCM;
    unsigned flags = 0;
    unsigned quality = 50;
    const char* key = nullptr;
    unsigned threads = 2;
    unsigned initFlags = TARNOK_INIT_ALWAYS;
    TARNOK_SUBSOUND each = {}; // settings of all sounds
    std::function<void(size_t index, TARNOK_SUBSOUND& subsound)> adjust;
};

TARNOK_RESULT initialise(const BuildArguments& arguments);

// Only the build; the library must be initialised.
TARNOK_RESULT buildOnly(const BuildArguments& arguments);

// Initialises the library, builds, and releases it.
Outcome build(const BuildArguments& arguments);

// The same, for a build that must succeed.
Outcome mustBuild(const BuildArguments& arguments);

// During its lifetime, calls a function at certain moments of a build, on the thread that has reached them: with
// builder::onReport at each report, before the work that it announces begins, and with builder::onCopy at each sound,
// before it is read for the bank.
template <typename... Arguments>
class AtMoment
{
public:
    AtMoment(void (*&hook)(Arguments...), std::type_identity_t<std::function<void(Arguments...)>> act)
        : mHook(hook)
    {
        sAct = std::move(act);
        mHook = [](Arguments... arguments) {
            sAct(arguments...);
        };
    }
    ~AtMoment() { mHook = nullptr; }

private:
    void (*&mHook)(Arguments...);
    static inline std::function<void(Arguments...)> sAct;
};

// Makes the builder treat all existing files as old enough for their times to be trusted.
struct LaterClock
{
    LaterClock() { builder::clockAhead = 3'000'000'000; }
    ~LaterClock() { builder::clockAhead = 0; }
};

// Gives each test its own folder with an empty cache. At the end, no partial file may be left in it.
struct BuilderTest : testing::Test
{
    BuilderTest() { fs::create_directories(fullPath("cache")); }
    ~BuilderTest() override;

    [[nodiscard]] std::string fullPath(const std::string& name) const { return mFolder + "/" + name; }

    // An order whose sounds have one file each.
    [[nodiscard]] BuildArguments makeArguments(const std::vector<std::string>& files) const;

    // Writes a sound file and returns its path.
    std::string makeSound(const std::string& name, const Signal& signal, int format = wav16) const
    {
        return writeSound(fullPath(name), format, signal);
    }

    // Writes count different short sounds, in files of several kinds.
    [[nodiscard]] std::vector<std::string> makeSounds(int count, size_t frames = 3000) const;

    // All files in a folder and its subfolders, if it exists.
    [[nodiscard]] std::vector<std::string> filesBelow(const std::string& name) const;

    // Hidden files that a build has left in the folder or in the cache.
    [[nodiscard]] std::vector<std::string> leftovers() const;

private:
    const std::string mFolder = fs::absolute("work");
};

// One sound of a bank as the engine reads it.
struct DecodedSound : Facts
{
    std::vector<float> floats;
    Bytes bytes;
    Loop loop;
    SyncPoints syncPoints;
    std::optional<float> peak;
    std::string name;
};

// All sounds of a bank, or the one of another file. Empty if it can't be opened.
std::vector<DecodedSound> readSounds(const std::string& path, const char* key = nullptr);

// The number of threads of this process.
int threadCount();

} // namespace test
