// SPDX-License-Identifier: MIT
// The upper halves of the vector registers as the processor reports them.
#pragma once

#include <cpuid.h>

#include <cstdint>

namespace test {

// Whether this processor can report it.
inline bool reportsVectorState()
{
    constexpr unsigned hasXgetbv1 = 1u << 2;
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __builtin_cpu_supports("avx") && __get_cpuid_count(0xd, 1, &a, &b, &c, &d) && (a & hasXgetbv1);
}

// The halves of the first sixteen registers, which SSE code uses: from bit 128 and from bit 256 on.
inline bool upperHalvesInUse()
{
    constexpr uint32_t upperHalves = 1u << 2 | 1u << 6;
    uint32_t low = 0, high = 0;
    asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(1));
    return low & upperHalves;
}

// Leaves them in use, as AVX code without clean-up does.
inline void useUpperHalves()
{
    if (reportsVectorState())
        asm volatile("vcmptrueps %%ymm15, %%ymm15, %%ymm15" : : : "xmm15");
}

} // namespace test
