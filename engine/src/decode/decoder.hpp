// The narrow interface that each kind of file is decoded through.
#pragma once

#include "parse/sound_facts.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kess {

// One opened sound. Positions and counts are in frames, that is samples of one channel. After a failure the decoder
// may be asked to seek again, or destroyed.
class Decoder
{
public:
    virtual ~Decoder() = default;

    [[nodiscard]] virtual const SoundFacts& facts() const = 0;

    // The next read begins exactly at frame, which is at most facts().sampleCount.
    [[nodiscard]] virtual KESS_RESULT seek(uint64_t frame) = 0;

    // Decodes up to count interleaved frames into buffer, which holds facts().format, and stores how many came.
    // Fewer than count, with KESS_OK, only at the end of the sound.
    [[nodiscard]] virtual KESS_RESULT read(void* buffer, size_t count, size_t* done) = 0;

    // The same as float, full scale -1 to 1, without going through the integers of facts().format where the file
    // holds more than those.
    [[nodiscard]] virtual KESS_RESULT readFloat(float* buffer, size_t count, size_t* done) = 0;

protected:
    Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
};
using DecoderPointer = std::unique_ptr<Decoder>;

} // namespace kess
