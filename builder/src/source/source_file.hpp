// A source file as the engine decodes it.
#pragma once

#include "kess.hpp"
#include "source/frame_source.hpp"
#include "source/raw_sound.hpp"

#include <memory>
#include <optional>
#include <string>

namespace tarnok {

struct KessRelease
{
    void operator()(KESS::System* system) const { system->release(); }
    void operator()(KESS::Sound* sound) const { sound->release(); }
};
using KessSystem = std::unique_ptr<KESS::System, KessRelease>;

// A silent engine. TARNOK_ERR_KESS when it can't be had.
Result<KessSystem> startEngine();

// One opened file, with the faults that its decoding meets put into words.
class SourceFile final : public FrameSource
{
public:
    // Opens a file and refuses what can't become a sound of a bank: unknown or damaged files, sequenced music, banks
    // that hold more than one sound or are encrypted, files without a single sample. path is UTF-8.
    static Result<std::unique_ptr<SourceFile>> open(KESS::System& engine, const std::string& path);

    const FrameFacts& facts() const override { return mFacts; }
    Status seek(uint64_t frame) override;
    Status readFloat(float* frames, size_t count) override;
    Status readSamples(void* frames, size_t count) override;

    // Where the samples stand in the file as readSamples() delivers them.
    std::optional<RawSamples> rawSamples() const;

    // The loop and the markers that the file brings.
    std::optional<base::Loop> loop() const;
    std::vector<base::SyncPoint> syncPoints() const;

    // Which of the markers can't be had, in a sentence; empty when there are none.
    std::string remark() const;

private:
    SourceFile(std::string path, KESS::Sound* sound)
        : mPath(std::move(path))
        , mSound(sound)
    { }

    Status checkBank();
    Status readFacts();
    Fault endsEarly(uint64_t end, uint64_t length) const;
    Fault faultOf(KESS_RESULT result) const;

    std::string mPath;
    std::unique_ptr<KESS::Sound, KessRelease> mSound;
    FrameFacts mFacts;
    uint64_t mPosition = 0;
};

} // namespace tarnok
