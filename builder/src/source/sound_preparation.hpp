// From the files of one sound to the samples that its encoder gets.
#pragma once

#include "encode/encoder.hpp"
#include "encode/sound_settings.hpp"
#include "kess.hpp"
#include "source/decoded_file.hpp"
#include "source/frame_source.hpp"
#include "source/looped_sound.hpp"
#include "source/raw_sound.hpp"
#include "source/resampler.hpp"

#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

namespace tarnok {

// The steps of one sound, to be called in this order.
//
// The loop is that of the first file that has one, otherwise the whole sound; none when looping is off. The sync points
// of all files are merged. Files whose rate differs from the first one's are resampled to it, each from its own start,
// wrapping at the sound's loop; lengths may differ, and the end of shorter ones is silent.
class SoundPreparation
{
public:
    // spoolFolders: for long intermediate results (see FrameSpool).
    SoundPreparation(const SoundSettings& settings, TemporaryFolders spoolFolders, std::stop_token stop)
        : mSettings(settings)
        , mSpoolFolders(std::move(spoolFolders))
        , mStop(std::move(stop))
    { }

    // Opens the files and puts them side by side.
    base::Result<> open(KESS::System& engine, std::span<const std::string> paths);

    // What of the files isn't taken over, a sentence each.
    const std::vector<std::string>& remarks() const { return mRemarks; }

    // Finds loop, peak and the rate to encode at.
    base::Result<> analyse();

    // Resamples where that is wanted.
    base::Result<> preprocess();

    // Where the sound is in its only file, to the bit as it is prepared.
    const std::optional<RawSampleRange>& rawSamples() const { return mRawSamples; }

    // The sound for its encoder; afterwards what the encoder doesn't know: sync points, peak.
    PreparedSound& sound();
    void complete(bank::Sound* encoded) const;

private:
    using Files = std::vector<std::unique_ptr<DecodedFile>>;

    static base::Loop commonLoop(const Files& files);
    ResamplingPlan planPart(const DecodedFile& file, double rate) const;
    base::Result<> combine(Files files);
    void merge(std::vector<base::SyncPoint> points, double scale);
    void limitSyncPoints();

    SoundSettings mSettings;
    TemporaryFolders mSpoolFolders;
    std::stop_token mStop;
    std::string mName; // of the first file
    std::unique_ptr<FrameSource> mFrames;
    std::optional<base::Loop> mLoop;
    std::vector<base::SyncPoint> mSyncPoints;
    std::vector<std::string> mRemarks;
    std::optional<float> mPeak;
    std::optional<RawSampleRange> mRawSamples;
    uint32_t mRate = 0; // to encode at, hertz
    std::unique_ptr<LoopedSound> mPrepared;
};

} // namespace tarnok
