// WAV files: RIFF, or RF64 (EBU Tech 3306) where 32 bits don't hold the sizes.
#pragma once

#include "opened_bank.hpp"
#include "output_file.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace tnb {

// What goes around the samples of one sound. The sample format of the file is that of the sound, with loop points in a
// smpl chunk, and sync points in a cue chunk with their names in a LIST adtl chunk.
class WavWriter
{
public:
    // facts must outlive the writer. Nothing is written yet.
    WavWriter(const SoundFacts& facts, OutputFile& file);

    // Loop and sync points lie behind what WAV can tell with 32 bits, and are left out where they do.
    [[nodiscard]] bool leavesPointsOut() const { return mLeavesPointsOut; }

    void begin();

    // Samples as the engine delivers them; changes them to what WAV wants. All together as many as facts tells.
    void write(std::span<uint8_t> samples);

    void finish();

private:
    [[nodiscard]] std::vector<uint8_t> formatChunk() const;
    void appendSampler(std::vector<uint8_t>& chunks);
    void appendCues(std::vector<uint8_t>& chunks);

    const SoundFacts& mFacts;
    OutputFile& mFile;
    uint64_t mDataBytes;
    std::vector<uint8_t> mTail; // the chunks behind the samples
    bool mLeavesPointsOut = false;
};

} // namespace tnb
