// SPDX-License-Identifier: MIT
// Compares what two sounds decode to.
#pragma once

#include "opened_bank.hpp"

#include <optional>

namespace tnb {

struct AudioDifference
{
    // The first sample that differs; nothing if the sounds can't be compared sample by sample, because their numbers of
    // channels differ or one of them can't be decoded here.
    std::optional<uint64_t> firstSample;

    // The largest absolute difference of two samples, 1 is full scale; nothing if one sound only continues the other.
    std::optional<double> largest;
};

struct ComparedSound
{
    KESS::Sound& sound; // at its start
    const SoundProperties& facts;
};

// Decodes both sounds side by side, in pieces. Nothing: they have the same length and the same samples. Sounds that
// can't be decoded are equal if their encoded data are. The text of an error names no sound.
base::Result<std::optional<AudioDifference>> compareAudio(const ComparedSound& left, const ComparedSound& right);

} // namespace tnb
