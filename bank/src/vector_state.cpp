// SPDX-License-Identifier: MIT
#include "bank/vector_state.hpp"

#include <immintrin.h>

namespace bank {

namespace {

// Only this function needs AVX; the rest of the library runs on any x86-64.
__attribute__((target("avx"))) void clearUpperHalves() noexcept
{
    _mm256_zeroupper();
}

} // namespace

void clearVectorState() noexcept
{
    // Also checks whether the system saves these registers.
    static const bool hasAvx = __builtin_cpu_supports("avx");
    if (hasAvx)
        clearUpperHalves();
}

} // namespace bank
