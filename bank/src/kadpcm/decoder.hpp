// SPDX-License-Identifier: MIT
// The decoder with a choice of its code. All codes give the same samples, and refuse the same bytes.
#pragma once

#include "bank/kadpcm.hpp"

namespace bank::kadpcm {

enum class VectorCode
{
    None, // sample by sample, on any processor
    Sse2,
    Avx2,
};

[[nodiscard]] VectorCode bestVectorCode();

// See bank/kadpcm.hpp. code: at most bestVectorCode().
[[nodiscard]] size_t decodeSuperblock(std::span<const uint8_t> bytes, int channels, int frames, int16_t* interleaved,
                                      VectorCode code);

} // namespace bank::kadpcm
