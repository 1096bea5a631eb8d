// SPDX-License-Identifier: MIT
// Prepares the files of one sound for its encoder.
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

namespace builder {

// The steps must be called in the order of their declaration.
//
// The loop is that of the first file that has one, otherwise the whole sound; none if looping is off. The sync points
// of all files are merged. Files whose rate differs from that of the first file are resampled to it, each from its own
// start, wrapping at the sound's loop. Lengths may differ: shorter files are followed by silence.
class SoundPreparation
{
public:
    // spoolFolders: for long intermediate results (see FrameSpool).
    SoundPreparation(const SoundSettings& settings, TemporaryFolders spoolFolders, std::stop_token stop)
        : mSettings(settings)
        , mSpoolFolders(std::move(spoolFolders))
        , mStop(std::move(stop))
    { }

    // Opens the files and interleaves them.
    base::Result<> open(KESS::System& engine, std::span<const std::string> paths);

    // Sentences about parts of the files that were left out.
    const std::vector<std::string>& remarks() const { return mRemarks; }

    // Measures the peak and determines the rate at which the sound is encoded.
    base::Result<> analyse();

    // Resamples the sound if necessary.
    base::Result<> preprocess();

    // The location of the sound in its file, if it has only one and the file contains the prepared samples bit for bit.
    const std::optional<RawSampleRange>& rawSamples() const { return mRawSamples; }

    // The sound for its encoder. After encoding, complete() adds what the encoder doesn't know: sync points and peak.
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
    uint32_t mRate = 0; // at which the sound is encoded, hertz
    std::unique_ptr<LoopedSound> mPrepared;
};

} // namespace builder
