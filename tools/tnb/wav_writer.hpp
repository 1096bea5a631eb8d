// WAV files: RIFF, or RF64 (EBU Tech 3306) if a size needs more than 32 bits.
#pragma once

#include "opened_bank.hpp"
#include "output_file.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace tnb {

// Writes one sound as a WAV file with the sample format of the sound. The loop is stored in a smpl chunk, sync points
// in a cue chunk, their names in a LIST adtl chunk.
class WavWriter
{
public:
    // facts and file must outlive the writer. Writes nothing yet.
    WavWriter(const SoundFacts& facts, OutputFile& file);

    // Whether the loop or a sync point was left out because its position needs more than 32 bits.
    [[nodiscard]] bool leavesPointsOut() const { return mLeavesPointsOut; }

    void begin();

    // Takes samples as the engine delivers them and converts them in place. The total length must be that of facts.
    void write(std::span<uint8_t> samples);

    void finish();

private:
    [[nodiscard]] std::vector<uint8_t> formatChunk() const;
    void appendSampler(std::vector<uint8_t>& chunks);
    void appendCues(std::vector<uint8_t>& chunks);

    const SoundFacts& mFacts;
    OutputFile& mFile;
    uint64_t mDataBytes;
    std::vector<uint8_t> mTail; // the chunks after the samples
    bool mLeavesPointsOut = false;
};

} // namespace tnb
