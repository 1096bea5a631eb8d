// SPDX-License-Identifier: MIT
// Sounds and loops that are held in memory.
#pragma once

#include "source/frame_source.hpp"

#include <memory>
#include <optional>

namespace builder {

// Loads a short sound into memory, so that seeking in it is cheap whatever its file format is. A long one is returned
// unchanged.
std::unique_ptr<FrameSource> holdIfShort(std::unique_ptr<FrameSource> source);

// Loads the loop of a sound into memory if the loop is short. Encoders and filters read a short loop many times at the
// end of the sound, and in some files seeking means decoding from the start. Sounds that are short themselves (see
// holdIfShort()), or have a long loop or none, are returned unchanged.
std::unique_ptr<FrameSource> holdLoopIfShort(std::unique_ptr<FrameSource> source,
                                             const std::optional<base::Loop>& loop);

} // namespace builder
