// A bank as the engine opens it, and what the engine tells of its sounds, as values.
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
    uint64_t end = 0; // the sample behind the last one
};

// All that the engine tells of a sound.
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

// The engine, for as long as anything of it is open.
class Engine
{
public:
    Engine();
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    [[nodiscard]] KESS::System& system() const { return *mSystem; }

    // Looks at all of a bank. tell takes each finding, of the sound with that index or of the bank (-1), and says
    // whether to go on. KESS_OK or KESS_ERR_FILE_BAD; throws a Failure for a bank that can't be read.
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
    // Opens and unlocks. Throws a Failure whose reason doesn't name the file.
    OpenedBank(const Engine& engine, const std::string& path, const Key& key);

    [[nodiscard]] const KESS_BANKINFO& info() const { return mInfo; }
    [[nodiscard]] int soundCount() const { return mSoundCount; }

    // One sound, counted from 0, open as long as the pointer is; one pointer to a sound at a time. Throws a Failure
    // when the sound is damaged.
    [[nodiscard]] SoundPointer sound(int index);

    // What is known of a sound. Throw likewise.
    [[nodiscard]] std::string name(int index);
    [[nodiscard]] SoundFacts facts(int index);

private:
    SoundPointer mBank;
    KESS_BANKINFO mInfo{};
    int mSoundCount = 0;
};

} // namespace tnb
