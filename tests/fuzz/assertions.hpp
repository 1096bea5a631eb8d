// SPDX-License-Identifier: MIT
// Included first when the system's units are compiled for the fuzz targets. Some faults in a project or a profile must
// end the process by an assertion. Here an assertion throws instead, so that the fuzzer continues.
#pragma once

namespace fuzz {

struct AssertionFailed
{ };

[[noreturn]] inline void assertionFailed()
{
    throw AssertionFailed();
}

} // namespace fuzz

#define Q_ASSERT(condition) ((condition) ? static_cast<void>(0) : fuzz::assertionFailed())
