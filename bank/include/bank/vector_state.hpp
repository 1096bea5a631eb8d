// The upper halves of the processor's vector registers.
#pragma once

namespace bank {

// Marks the upper halves as unused, where the processor and the system have them; else does nothing.
//
// Code for AVX that doesn't clean up leaves them in use, and a thread inherits them from the one that starts it. While
// they are in use, many processors stall at each change between SSE code, which most codec libraries and ours are, and
// the AVX code of the C library's mathematics: a Vorbis build has taken 2 to 11 times as long. So they are cleared
// where a worker starts, after all that is hashed, and before the engine, the resampler and each encoder are entered.
//
// Who leaves them in use depends on the processor, so nobody is relied on. libvorbis, libopus and libsndfile have no
// AVX code. soxr, FLAC, mpg123, libsodium and FFmpeg have, and were found to clean up by asking the processor (XGETBV)
// around their calls. On an Intel Xeon with AVX-512 Qt's settings left them in use, which the C library's functions for
// such processors, in the registers from 16 on, never clear; so do builds of xxHash that choose their code at run time.
void clearVectorState() noexcept;

} // namespace bank
