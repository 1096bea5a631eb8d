// SPDX-License-Identifier: MIT
// A source file, decoded by the engine.
#pragma once

#include "source/engine.hpp"
#include "source/frame_source.hpp"
#include "source/raw_sound.hpp"

#include <memory>
#include <optional>
#include <string>

namespace builder {

// One open file. Errors of decoding get a text for the user.
class DecodedFile final : public FrameSource
{
public:
    // Opens a file. Refuses files that can't become a sound of a bank: unknown or damaged files, sequenced music, banks
    // that are encrypted or don't contain exactly one sound, files without samples. path is UTF-8.
    static base::Result<std::unique_ptr<DecodedFile>> open(KESS::System& engine, const std::string& path);

    const FrameFacts& facts() const override { return mFacts; }
    base::Result<> seek(uint64_t frame) override;
    base::Result<> readFloat(float* frames, size_t count) override;
    base::Result<> readSamples(void* frames, size_t count) override;

    // The location of the samples in the file, if the file contains them exactly as readSamples() delivers them.
    std::optional<RawSampleRange> rawSamples() const;

    // The loop and the markers in the file.
    std::optional<base::Loop> loop() const;
    std::vector<base::SyncPoint> syncPoints() const;

    // A sentence about markers that were left out; empty if none were.
    std::string remark() const;

private:
    DecodedFile(std::string path, KESS::Sound* sound)
        : mPath(std::move(path))
        , mSound(sound)
    { }

    base::Result<> checkBank();
    base::Result<> readFacts();
    base::Error endsEarly(uint64_t end, uint64_t length) const;
    base::Error errorFor(KESS_RESULT result) const;
    base::Error refused(base::ErrorCode code, const std::string& reason) const;

    std::string mPath;
    std::unique_ptr<KESS::Sound, KessRelease> mSound;
    FrameFacts mFacts;
    uint64_t mPosition = 0;
};

} // namespace builder
