// SPDX-License-Identifier: MIT
// The upper halves of the processor's vector registers.
#pragma once

namespace bank {

// Marks the upper halves as unused if the processor and the system support them; otherwise does nothing.
//
// AVX code that doesn't clean up leaves them in use, and a new thread inherits this state. While they are in use, many
// processors stall at each switch between SSE code (most codec libraries, and this project) and the AVX code of the C
// library's mathematical functions: a Vorbis build has taken 2 to 11 times as long. So they are cleared when a worker
// starts, after each hashing, and before calls of the engine, the resampler and each encoder.
//
// Which library leaves them in use depends on the processor, so no library is relied on. libvorbis, libopus and
// libsndfile have no AVX code. soxr, FLAC, mpg123, libsodium and FFmpeg have some and clean up, as XGETBV showed before
// and after their calls. On an Intel Xeon with AVX-512, Qt's settings left them in use; the C library's functions for
// such processors work in registers 16 and up and never clear them. Builds of xxHash that choose their code at run time
// leave them in use too.
void clearVectorState() noexcept;

} // namespace bank
