// SPDX-License-Identifier: MIT
// How many workers fit into the available memory.
#pragma once

#include "base/result.hpp"

#include <cstdint>
#include <string>

namespace builder {

// What the process may still use, in bytes.
struct MemoryLeft
{
    static constexpr uint64_t kUnlimited = UINT64_MAX;

    uint64_t addressSpace = kUnlimited; // RLIMIT_AS
    uint64_t data = kUnlimited; // RLIMIT_DATA
    uint64_t controlGroup = kUnlimited; // the least that any enclosing group has left; cached files count as free
    uint64_t machine = kUnlimited; // free, or available immediately if needed
};

// What the system reports about this process. Unknown values count as unlimited.
MemoryLeft memoryLeft();

struct WorkerCount
{
    unsigned count = 1;
    std::string remark; // why there are fewer than wanted; empty if there are as many
};

// The number of workers that fit, at most `wanted`. The result of a build doesn't depend on it.
//
// Some codec libraries, such as libvorbis, don't check whether an allocation failed; the process would crash. So an
// encoder must not be started where memory may run out. ErrorCode::Memory if a limit of the process leaves too little
// for a single worker. If only the machine or the control group has too little left, the result is one worker: the
// system may free more.
base::Result<WorkerCount> affordableWorkers(unsigned wanted, const MemoryLeft& left);

} // namespace builder
