// SPDX-License-Identifier: MIT
// A bank opened by the engine, and the properties of its sounds as plain values.
//
// The text of an error doesn't name the bank.
#pragma once

#include "base/markers.hpp"
#include "base/result.hpp"
#include "kess.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tnb {

using Key = std::optional<std::string>;

// Everything that the engine reports about a sound.
struct SoundProperties
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
    uint64_t tableBytes = 0; // of seek points, loop and sync points
    uint64_t checksum = 0; // of the encoded data
    std::optional<base::Loop> loop;
    std::vector<base::SyncPoint> syncPoints;
    std::optional<float> peak;

    [[nodiscard]] double seconds() const { return rate > 0 ? static_cast<double>(samples) / rate : 0; }
    [[nodiscard]] double decodedBytes() const { return static_cast<double>(samples) * channels * bits / 8; }
};

struct ReleaseEngine
{
    void operator()(KESS::System* system) const { system->release(); }
    void operator()(KESS::Sound* sound) const { sound->release(); }
};
using Engine = std::unique_ptr<KESS::System, ReleaseEngine>;
using SoundPointer = std::unique_ptr<KESS::Sound, ReleaseEngine>;

// Must outlive everything that is opened with it.
base::Result<Engine> startEngine();

// Checks a whole bank. Calls report for each finding with the index of the sound (-1 for the bank itself), a result and
// a text; report returns whether to continue. Returns whether the bank is intact.
using ReportFinding = std::function<bool(int sound, KESS_RESULT result, const std::string& text)>;
base::Result<bool> verifyBank(KESS::System& engine, const std::string& path, const Key& key,
                              const ReportFinding& report);

// One bank, opened and unlocked.
class OpenedBank
{
public:
    static base::Result<OpenedBank> open(KESS::System& engine, const std::string& path, const Key& key);

    [[nodiscard]] const KESS_BANKINFO& info() const { return mInfo; }
    [[nodiscard]] int soundCount() const { return mSoundCount; }

    // Opens the sound with this index, counted from 0. The pointer's destructor closes it. Hold at most one pointer to
    // the same sound at a time. ErrorCode::Damaged.
    base::Result<SoundPointer> sound(int index);

    // A started decoder of the sound with this index, whose encoded data is verified. Several threads may call this at
    // once, and use what they get. ErrorCode::Damaged, ErrorCode::Unsupported.
    base::Result<SoundPointer> verifiedVoice(int index);

    // ErrorCode::Damaged: the sound is damaged.
    base::Result<std::string> name(int index);
    base::Result<SoundProperties> properties(int index);

private:
    explicit OpenedBank(SoundPointer bank)
        : mBank(std::move(bank))
    { }

    SoundPointer mBank;
    std::unique_ptr<std::mutex> mMutex = std::make_unique<std::mutex>();
    KESS_BANKINFO mInfo{};
    int mSoundCount = 0;
};

// What the engine knows about a sound.
[[nodiscard]] SoundProperties propertiesOf(KESS::Sound& sound, int index);

// The error of a call of the engine that failed on this thread.
[[nodiscard]] base::Error engineError(KESS_RESULT result);

} // namespace tnb
