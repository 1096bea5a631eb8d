// Makes one sound of several files.
#pragma once

#include "source/frame_source.hpp"

#include <memory>
#include <vector>

namespace tarnok {

// Several sounds of one rate side by side: the channels of the first, then those of the second, and so on. As long as
// the longest; after the end of a shorter one its channels are silent. The sample format is the widest of all: that of
// the greatest depth, or float if any of them is float. Integers are widened without a change of value.
std::unique_ptr<FrameSource> interleave(std::vector<std::unique_ptr<FrameSource>> parts);

} // namespace tarnok
