// SPDX-License-Identifier: MIT
// The interface of everything that decodes a sound.
#pragma once

#include "base/result.hpp"
#include "parse/sound_facts.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace engine {

// One opened sound. Positions and counts are in frames, that is, samples of one channel. After a failure, a decoder can
// seek again.
//
// Decoders of files report that no more could be decoded, but not why: their libraries only notice that bytes are
// missing. InputFile::takeReadError() returns the error of the medium, if there was one.
class Decoder
{
public:
    virtual ~Decoder() = default;

    [[nodiscard]] virtual const SoundFacts& facts() const = 0;

    // The next read begins exactly at frame, which is at most facts().sampleCount. ErrorCode::NotSeekable.
    virtual base::Result<> seek(uint64_t frame) = 0;

    // Decodes up to count interleaved frames into buffer, in the format of facts(), and returns their number. It is
    // less than count only at the end of the sound and before damage; the next call then returns 0 or the error.
    virtual base::Result<size_t> read(void* buffer, size_t count) = 0;

    // The same as float, full scale -1 to 1, with the full precision of the file.
    virtual base::Result<size_t> readFloat(float* buffer, size_t count) = 0;

protected:
    Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
};
using DecoderPointer = std::unique_ptr<Decoder>;

} // namespace engine
