// SPDX-License-Identifier: MIT
// Reads a sound and repeats its loop.
#pragma once

#include "decode/decoder.hpp"

#include <array>
#include <cstdint>
#include <vector>

namespace engine {

class LoopPlayer
{
public:
    // The sample format that is delivered.
    enum Form
    {
        AsStored, // the format of the decoder's facts
        AsFloat
    };

    // Must be called before anything else. The decoder must be at the start of its sound.
    void open(DecoderPointer decoder) { mDecoder = std::move(decoder); }
    [[nodiscard]] bool isOpen() const { return bool(mDecoder); }

    // How often the loop is repeated from now on: 0 never, -1 for ever. Only for a sound that has a loop.
    void setLoopCount(int count) { mLoopsLeft = count; }

    // frame is at most the length of the sound.
    base::Result<> seek(uint64_t frame);

    // Fills buffer with count frames and returns their number. It is less than count only at the end of the sound and
    // before damage. 0 at the end. Allocates only what wasn't needed before: by the first read, by the first in another
    // form, and by the first after setLoopCount().
    base::Result<size_t> read(void* buffer, Form form, size_t count);

private:
    [[nodiscard]] const SoundFacts& facts() const { return mDecoder->facts(); }
    [[nodiscard]] const base::Loop& loop() const { return *mDecoder->facts().loop; }
    [[nodiscard]] size_t frameBytes(Form form) const;
    [[nodiscard]] bool isInLoop() const { return facts().loop && mPosition < loop().end; }
    base::Result<> moveTo(uint64_t frame);
    base::Result<size_t> decode(uint8_t* buffer, Form form, size_t count);
    base::Result<size_t> readSome(uint8_t* buffer, Form form, size_t count);
    base::Result<> repeatLoop(Form form);
    [[nodiscard]] bool isShortLoop() const;
    [[nodiscard]] bool storeLoop(Form form);
    base::Result<> leaveStoredLoop(Form form);

    DecoderPointer mDecoder;
    uint64_t mPosition = 0;
    int mLoopsLeft = 0;
    bool mAtSeam = false; // at the loop's end, before the next read decides whether to repeat the loop

    // The decoded samples of a short loop, by form, stored when it is repeated for the first time. Seeking at each
    // repetition would be slow: after a seek, a codec decodes thousands of samples even for a loop of a few. Reserved
    // before that.
    std::array<std::vector<uint8_t>, 2> mStoredLoop;
    bool mInStoredLoop = false; // the next samples come from mStoredLoop; the decoder's position is arbitrary
};

} // namespace engine
