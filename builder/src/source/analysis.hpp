// Finds out about a sound what its settings ask for.
#pragma once

#include "source/frame_source.hpp"

#include <cstdint>
#include <stop_token>

namespace tarnok {

// Reads all of source once and returns its largest absolute sample; 1 is full scale. With lowestRate it also stores the
// lowest usual rate that keeps what is audible of the sound, or the sound's own rate if there is none below it.
//
// The criterion: the spectrum is looked at in windows of 2,048 samples (longer ones above 50 kHz, of some 43 ms;
// shorter ones in short sounds), half overlapping, in each channel. A rate will do when in no window the energy above
// the band that the resampler keeps at this rate (0.9 of its Nyquist frequency) exceeds either
//   - the energy of the loudest window less 75 dB: a sound that is played as loud as is bearable for long has its
//     faintest parts near the threshold of hearing there; or
//   - the rounding noise of the source's sample format in that band, plus 3 dB: it holds nothing of the recording.
// Noise counts as what it is in the spectrum, so white noise keeps its rate at any level above its rounding noise.
base::Result<float> analyse(FrameSource& source, uint32_t* lowestRate, const std::stop_token& stop);

} // namespace tarnok
