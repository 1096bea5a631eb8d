// Included before everything else where the system's units are built for the fuzz targets. Some faults in a project or
// a profile end the process by an assertion, and must; here an assertion throws instead, so that the fuzzer goes on.
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
