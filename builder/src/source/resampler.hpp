// SPDX-License-Identifier: MIT
// Changes the sample rate of a sound without a seam at its loop.
#pragma once

#include "source/frame_source.hpp"
#include "source/resampling_plan.hpp"
#include "support/temporary_folders.hpp"

#include <memory>
#include <stop_token>

namespace builder {

// The level of images and aliases: below the resolution of 24 bits, or below that of 20 bits (-120 dB). The latter
// takes half the processor time, and is sufficient for a codec whose own error is near -60 dB.
enum class ResamplingPrecision
{
    Bits24,
    Bits20
};

// Resamples all of source with soxr (band up to 0.913 of the lower Nyquist frequency). After the end of a loop the
// filter's input is the start of the loop; before the start of a sound that loops as a whole, it is the end of the
// loop; elsewhere outside the sound it is silence. toRate is the rate of the result. spoolFolders: see FrameSpool.
base::Result<std::unique_ptr<FrameSource>> resample(FrameSource& source, const ResamplingPlan& plan, double toRate,
                                                    const TemporaryFolders& spoolFolders, std::stop_token stop,
                                                    ResamplingPrecision precision = ResamplingPrecision::Bits24);

} // namespace builder
