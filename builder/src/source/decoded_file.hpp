// A source file as the engine decodes it.
#pragma once

#include "source/engine.hpp"
#include "source/frame_source.hpp"
#include "source/raw_sound.hpp"

#include <memory>
#include <optional>
#include <string>

namespace tarnok {

// One opened file. The errors that its decoding meets are put into words.
class DecodedFile final : public FrameSource
{
public:
    // Opens a file and refuses what can't become a sound of a bank: unknown or damaged files, sequenced music, banks
    // that hold more than one sound or are encrypted, files without a single sample. path is UTF-8.
    static base::Result<std::unique_ptr<DecodedFile>> open(KESS::System& engine, const std::string& path);

    const FrameFacts& facts() const override { return mFacts; }
    base::Result<> seek(uint64_t frame) override;
    base::Result<> readFloat(float* frames, size_t count) override;
    base::Result<> readSamples(void* frames, size_t count) override;

    // Where the samples are in the file as readSamples() delivers them.
    std::optional<RawSampleRange> rawSamples() const;

    // The loop and the markers that the file brings.
    std::optional<base::Loop> loop() const;
    std::vector<base::SyncPoint> syncPoints() const;

    // Which of the markers were left out, in a sentence; empty when none were.
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

} // namespace tarnok
