// SPDX-License-Identifier: MIT
// WAV files: RIFF, or RF64 (EBU Tech 3306) if a size needs more than 32 bits.
#pragma once

#include "base/bytes.hpp"
#include "opened_bank.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace tnb {

// Writes one sound as a WAV file with the sample format of the sound. The loop is stored in a smpl chunk, sync points
// in a cue chunk, their names in a LIST adtl chunk.
class WavWriter
{
public:
    // sound and file must outlive the writer. Writes nothing yet.
    WavWriter(const SoundProperties& sound, base::ByteSink& file);

    // Whether the loop or a sync point is omitted because its position needs more than 32 bits.
    [[nodiscard]] bool omitsPoints() const { return mOmitsPoints; }

    base::Result<> begin();

    // Takes samples as the engine delivers them and converts them in place. The total length must be that of the sound.
    base::Result<> write(std::span<uint8_t> samples);

    base::Result<> finish();

private:
    [[nodiscard]] std::vector<uint8_t> formatChunk() const;
    void appendSampler(std::vector<uint8_t>& chunks);
    void appendCues(std::vector<uint8_t>& chunks);

    const SoundProperties& mSound;
    base::ByteSink& mFile;
    uint64_t mDataBytes;
    std::vector<uint8_t> mTail; // the chunks after the samples
    bool mOmitsPoints = false;
};

} // namespace tnb
