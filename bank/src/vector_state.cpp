#include "bank/vector_state.hpp"

#include <immintrin.h>

namespace bank {

namespace {

// The rest of the library stays code for any x86-64.
__attribute__((target("avx"))) void clearUpperHalves() noexcept
{
    _mm256_zeroupper();
}

} // namespace

void clearVectorState() noexcept
{
    // Looks at what the system saves of the registers, too.
    static const bool hasAvx = __builtin_cpu_supports("avx");
    if (hasAvx)
        clearUpperHalves();
}

} // namespace bank
