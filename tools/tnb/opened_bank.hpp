// A bank opened by the engine, and the facts of its sounds as plain values.
#pragma once

#include "failure.hpp"
#include "kess.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tnb {

using Key = std::optional<std::string>;

struct SyncPoint
{
    uint64_t sample = 0;
    std::string name;
};

struct Loop
{
    uint64_t start = 0;
    uint64_t end = 0; // the sample after the last one
};

// Everything that the engine reports about a sound.
struct SoundFacts
{
    int index = 0;
    std::string name;
    KESS_CODEC codec = KESS_CODEC_UNKNOWN;
    int quality = 0; // 0: the codec has none
    KESS_SOUND_FORMAT format = KESS_SOUND_FORMAT_NONE; // of decoded samples
    int bits = 0; // of one decoded sample
    int channels = 0;
    uint32_t rate = 0; // hertz
    uint64_t samples = 0; // of one channel
    uint64_t bytes = 0; // of the encoded data
    std::optional<Loop> loop;
    std::vector<SyncPoint> syncPoints;
    std::optional<float> peak;

    [[nodiscard]] double seconds() const { return rate > 0 ? static_cast<double>(samples) / rate : 0; }
    [[nodiscard]] double decodedBytes() const { return static_cast<double>(samples) * channels * bits / 8; }
};

// Owns the engine. Must outlive all that is opened with it.
class Engine
{
public:
    Engine();
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    [[nodiscard]] KESS::System& system() const { return *mSystem; }

    // Checks a whole bank. Calls tell for each finding with the index of the sound (-1 for the bank itself), a result
    // and a text; tell returns whether to continue. Returns KESS_OK or KESS_ERR_FILE_BAD. Throws a Failure if the bank
    // can't be read.
    using Tell = std::function<bool(int sound, KESS_RESULT result, const std::string& text)>;
    KESS_RESULT verify(const std::string& bank, const Key& key, const Tell& tell) const;

private:
    KESS::System* mSystem = nullptr;
};

struct ReleaseSound
{
    void operator()(KESS::Sound* sound) const { sound->release(); }
};
using SoundPointer = std::unique_ptr<KESS::Sound, ReleaseSound>;

// One bank, opened and unlocked.
class OpenedBank
{
public:
    // Opens the bank and sets its key. Throws a Failure whose reason doesn't name the file.
    OpenedBank(const Engine& engine, const std::string& path, const Key& key);

    [[nodiscard]] const KESS_BANKINFO& info() const { return mInfo; }
    [[nodiscard]] int soundCount() const { return mSoundCount; }

    // Opens the sound with this index, counted from 0, until the pointer is destroyed. Hold at most one pointer to the
    // same sound at a time. Throws a Failure if the sound is damaged.
    [[nodiscard]] SoundPointer sound(int index);

    // Throw a Failure if the sound is damaged.
    [[nodiscard]] std::string name(int index);
    [[nodiscard]] SoundFacts facts(int index);

private:
    SoundPointer mBank;
    KESS_BANKINFO mInfo{};
    int mSoundCount = 0;
};

} // namespace tnb
