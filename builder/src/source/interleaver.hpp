// SPDX-License-Identifier: MIT
// Combines several files into one sound.
#pragma once

#include "source/frame_source.hpp"

#include <memory>
#include <vector>

namespace builder {

// Combines sounds of the same rate: the channels of the first, then those of the second, and so on. The result is as
// long as the longest sound; channels of shorter ones are silent after their end. The sample format is the widest one,
// or float if any is float. Widening integers doesn't change their values.
std::unique_ptr<FrameSource> interleave(std::vector<std::unique_ptr<FrameSource>> parts);

} // namespace builder
