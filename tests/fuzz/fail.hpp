// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Ends the process, as the fuzzer expects it after a fault.
[[noreturn]] inline void fail(const char* what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

} // namespace fuzz
