// SPDX-License-Identifier: MIT
// Conversions between sample formats.
#pragma once

#include "base/bytes.hpp"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace engine {

// Full scale is 32768, so that integers converted to float and back stay the same. Higher samples are clipped.
inline void floatToInt16(const float* from, int16_t* to, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        const float scaled = from[i] * 32768.0f;
        // A NaN fails both comparisons and would be undefined as an integer.
        to[i] = scaled >= 32767.0f ? int16_t{32767}
            : scaled > -32768.0f   ? static_cast<int16_t>(std::lrintf(scaled))
            : scaled <= -32768.0f  ? int16_t{-32768}
                                   : int16_t{0};
    }
}

// from: the bytes of 16-bit samples, little-endian, at any address.
inline void int16ToFloat(const void* from, float* to, size_t count)
{
    const auto* bytes = static_cast<const uint8_t*>(from);
    const auto convert = [&](size_t samples) {
        std::array<int16_t, 8> part;
        for (size_t i = 0; i < samples; ++i)
            part[i] = base::loadLittle<int16_t>(bytes + 2 * i);
        for (size_t i = 0; i < samples; ++i)
            to[i] = static_cast<float>(part[i]) / 32'768;
        bytes += 2 * samples;
        to += samples;
    };
    for (; count >= 8; count -= 8) // a constant, which compilers turn into vectors
        convert(8);
    convert(count);
}

// Packs the top bytes of 32-bit samples without gaps: 1, 2 or 3 bytes per sample, little-endian.
inline void packTopBytes(const int32_t* from, size_t count, size_t bytes, uint8_t* to)
{
    for (size_t i = 0; i < count; ++i) {
        const uint32_t sample = static_cast<uint32_t>(from[i]) >> (32 - 8 * bytes);
        for (size_t byte = 0; byte < bytes; ++byte)
            *to++ = static_cast<uint8_t>(sample >> 8 * byte);
    }
}

} // namespace engine
