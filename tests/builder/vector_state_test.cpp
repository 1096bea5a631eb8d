// SPDX-License-Identifier: MIT
// The state of the vector registers where the workers enter other libraries. The functions of this program replace
// those of the libraries.
#include "builder_test.hpp"
#include "support/vector_state.hpp"

#include <opus/opus_multistream.h>
#include <soxr.h>
#include <vorbis/codec.h>
#include <xxhash.h>

#include <map>
#include <mutex>
#include <set>

#include <dlfcn.h>

using namespace test;

namespace {

struct Entries
{
    std::mutex mutex;
    std::map<std::string, int> calls;
    std::set<std::string> inUse; // functions that were entered with the upper halves in use
};
Entries entries;

void entered(const char* function)
{
    const bool inUse = reportsVectorState() && upperHalvesInUse();
    const std::lock_guard lock(entries.mutex);
    ++entries.calls[function];
    if (inUse)
        entries.inUse.insert(function);
}

// Leaves the registers in the worst state in which a library may leave them.
struct Careless
{
    ~Careless() { useUpperHalves(); }
};
struct Careful
{ };

} // namespace

// Defines a function that calls the library's own one of that name, and how it leaves the registers.
#define REPLACE(leaves, result, function, parameters, arguments)                                                       \
    result function parameters                                                                                         \
    {                                                                                                                  \
        entered(#function);                                                                                            \
        [[maybe_unused]] const leaves registers;                                                                       \
        return reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, #function)) arguments;                         \
    }

// The builder library also uses these, because they precede the libraries' own functions.
#pragma GCC visibility push(default)
extern "C" {

REPLACE(Careful, int, vorbis_analysis_init, (vorbis_dsp_state * state, vorbis_info* info), (state, info))
REPLACE(Careful, int, vorbis_analysis_wrote, (vorbis_dsp_state * state, int count), (state, count))
REPLACE(Careful, int, opus_multistream_encode_float,
        (OpusMSEncoder * encoder, const float* frames, int count, unsigned char* packet, opus_int32 bytes),
        (encoder, frames, count, packet, bytes))
REPLACE(Careless, soxr_error_t, soxr_process,
        (soxr_t resampler, soxr_in_t in, size_t length, size_t* taken, soxr_out_t out, size_t room, size_t* made),
        (resampler, in, length, taken, out, room, made))
REPLACE(Careless, SNDFILE*, sf_open_virtual, (SF_VIRTUAL_IO * io, int mode, SF_INFO* info, void* user),
        (io, mode, info, user))
REPLACE(Careless, sf_count_t, sf_readf_float, (SNDFILE * file, float* frames, sf_count_t count), (file, frames, count))

REPLACE(Careless, XXH_errorcode, XXH3_64bits_update, (XXH3_state_t * state, const void* bytes, size_t count),
        (state, bytes, count))

} // extern "C"
#pragma GCC visibility pop

using VectorState = BuilderTest;

// With the upper halves in use, each switch between a library's SSE code and the AVX code of the C library's
// mathematical functions takes a hundred times as long on many processors.
TEST_F(VectorState, IsUnusedWhereALibraryIsEntered)
{
    if (!reportsVectorState())
        GTEST_SKIP() << "this processor has no AVX, or doesn't report the state (XGETBV with ECX = 1)";
    BuildArguments arguments = makeArguments(makeSounds(4, 20000));
    arguments.each.desiredSampleRate = 32000;
    for (const TARNOK_FORMAT format : allFormats) {
        arguments.format = format;
        useUpperHalves();
        mustBuild(arguments);
    }
    entries.inUse.erase("XXH3_64bits_update"); // may be entered in any state
    EXPECT_EQ(entries.inUse, std::set<std::string>());
    for (const char* function : {"vorbis_analysis_init", "vorbis_analysis_wrote", "opus_multistream_encode_float",
                                 "soxr_process", "sf_open_virtual", "sf_readf_float"})
        EXPECT_GE(entries.calls[function], 4) << function;
}
