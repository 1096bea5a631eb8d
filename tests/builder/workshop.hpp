// What the builder's tests share: a folder to work in, a build with its reports, and banks read back by the engine.
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

// Fetches all waiting reports and gives them back to the library.
std::vector<Report> drainReports();

struct Outcome
{
    TARNOK_RESULT result = TARNOK_OK;
    std::vector<Report> reports;
    Bytes bank; // only if it was built
    std::vector<std::string> remarks;

    [[nodiscard]] std::vector<TARNOK_STATE> statesOf(int sound) const;
    // Reports on sounds.
    [[nodiscard]] int countOf(TARNOK_STATE state) const
    {
        return int(std::ranges::count_if(
            reports, [=](const Report& report) { return report.state == state && report.sound >= 0; }));
    }
    // Those that were finished without being decoded.
    [[nodiscard]] int cachedSounds() const { return countOf(TARNOK_STATE_FINISHED) - countOf(TARNOK_STATE_DECODING); }
    [[nodiscard]] std::string texts() const; // of all failures, one a line
    [[nodiscard]] testing::AssertionResult failed(TARNOK_RESULT why, const std::string& text) const; // among its texts
};

// Everything that a build is told. Paths are complete.
struct Order
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
    TARNOK_SUBSOUND each = {}; // settings that all sounds have
    std::function<void(size_t index, TARNOK_SUBSOUND& subsound)> adjust;
};

TARNOK_RESULT initialise(const Order& order);

// The build alone, with the library initialised.
TARNOK_RESULT buildOnly(const Order& order);

// Initialise, build, release.
Outcome build(const Order& order);

// The same, for a build that must succeed.
Outcome mustBuild(const Order& order);

// While it lives, a function is called at a moment of a build, on the thread that has reached it.
template <typename... Arguments>
class AtMoment
{
public:
    AtMoment(void (*&hook)(Arguments...), std::function<void(Arguments...)> act)
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

// At each report: the work that it announces begins next.
struct AtReports : AtMoment<int, TARNOK_STATE>
{
    explicit AtReports(std::function<void(int sound, TARNOK_STATE state)> act)
        : AtMoment(tarnok::onReport, std::move(act))
    { }
};

// At each sound that is read for the bank next.
struct AtCopies : AtMoment<size_t>
{
    explicit AtCopies(std::function<void(size_t sound)> act)
        : AtMoment(tarnok::onCopy, std::move(act))
    { }
};

// Lets the builder take all files that are there for old enough to trust their times.
struct LaterClock
{
    LaterClock() { tarnok::clockAhead = 3'000'000'000; }
    ~LaterClock() { tarnok::clockAhead = 0; }
};

// A folder of its own for each test, with an empty cache. Nothing half-written may be left in it at the end.
class Workshop : public testing::Test
{
public:
    Workshop() { fs::create_directories(pathOf("cache")); }
    ~Workshop() override;

    [[nodiscard]] std::string pathOf(const std::string& name) const { return mFolder + "/" + name; }

    // An order for sounds of one file each.
    [[nodiscard]] Order orderOf(const std::vector<std::string>& files) const;

    // Writes a sound file and gives its path.
    std::string makeSound(const std::string& name, const Signal& signal, int format = wav16) const
    {
        return writeSound(pathOf(name), format, signal);
    }

    // count short sounds that differ from each other, in files of several kinds.
    [[nodiscard]] std::vector<std::string> makeSounds(int count, size_t frames = 3000) const;

    // All files in a folder and those below, if it is there.
    [[nodiscard]] std::vector<std::string> filesBelow(const std::string& name) const;

    // Hidden files that a build has left in the folder or in its cache.
    [[nodiscard]] std::vector<std::string> leftovers() const;

private:
    const std::string mFolder = fs::absolute("workshop");
};

// One sound of a bank as the engine gives it back.
struct Heard : Facts
{
    std::vector<float> floats;
    Bytes bytes;
    Loop loop;
    SyncPoints syncPoints;
    std::optional<float> peak;
    std::string name;
};

// All sounds of a bank or the one of a file. An empty list: it can't be opened.
std::vector<Heard> hear(const std::string& path, const char* key = nullptr);

// Number of threads of this process.
int threadCount();

} // namespace test
