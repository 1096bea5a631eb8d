// Changes the sample rate of a sound, without a seam where it loops.
#pragma once

#include "source/frame_source.hpp"
#include "source/resampling_plan.hpp"
#include "support/temporary_folders.hpp"

#include <memory>
#include <stop_token>

namespace tarnok {

// How far below full scale images and aliases are: out of sight of 24 bits, or 20 bits (120 dB), which takes half the
// processor time and is as good for a codec whose own error is near 60 dB.
enum class ResamplingPrecision
{
    Bits24,
    Bits20
};

// Resamples all of source by soxr (band up to 0.913 of the lower Nyquist frequency). At the end of a loop the filter
// hears the loop's start; before the start of a sound that loops as a whole, the loop's end; elsewhere outside the
// sound, silence. spoolFolders: see FrameSpool. toRate becomes the rate of the result.
base::Result<std::unique_ptr<FrameSource>> resample(FrameSource& source, const ResamplingPlan& plan, double toRate,
                                                    const TemporaryFolders& spoolFolders, std::stop_token stop,
                                                    ResamplingPrecision precision = ResamplingPrecision::Bits24);

} // namespace tarnok
