// SPDX-License-Identifier: MIT
// Measures the peak of a sound and the lowest rate that it needs.
#pragma once

#include "source/frame_source.hpp"

#include <cstdint>
#include <stop_token>

namespace builder {

// Reads all of source once and returns its largest absolute sample; 1 is full scale. With lowestRate it also stores the
// lowest common rate that keeps everything audible in the sound, or the sound's own rate if no lower one does.
//
// The criterion: the spectrum of each channel is computed in windows of 2,048 samples that overlap by half (above 50
// kHz the windows are longer, about 43 ms; in short sounds they are shorter). A rate is sufficient if in no window the
// energy above the band that the resampler keeps at this rate (0.9 of its Nyquist frequency) exceeds either
//   - the energy of the loudest window minus 75 dB: if a sound is played at the highest bearable level, parts that
//     faint are near the threshold of hearing; or
//   - the rounding noise of the source's sample format in that band, plus 3 dB: such a band contains nothing of the
//     recording.
// Noise is treated like any other signal, so white noise keeps its rate at any level above the rounding noise.
base::Result<float> analyse(FrameSource& source, uint32_t* lowestRate, const std::stop_token& stop);

} // namespace builder
