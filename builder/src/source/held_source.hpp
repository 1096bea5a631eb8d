// Sounds and loops that are held in memory.
#pragma once

#include "source/frame_source.hpp"

#include <memory>
#include <optional>

namespace tarnok {

// A short sound held in memory, so that jumping about in it is cheap whatever its file is. A long one is handed back as
// it came.
std::unique_ptr<FrameSource> holdIfShort(std::unique_ptr<FrameSource> source);

// A sound whose loop is held in memory if it is short. Encoders and filters hear a short loop over and over at the end
// of the sound, and some files can't be sought in without being decoded anew. A short sound, which holdIfShort() holds,
// and one with a long loop or none are handed back as they came.
std::unique_ptr<FrameSource> holdLoopIfShort(std::unique_ptr<FrameSource> source,
                                             const std::optional<base::Loop>& loop);

} // namespace tarnok
