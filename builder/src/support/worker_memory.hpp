// How many workers the memory that is there can carry.
#pragma once

#include "base/result.hpp"

#include <cstdint>
#include <string>

namespace tarnok {

// What the process may still take, in bytes.
struct MemoryLeft
{
    static constexpr uint64_t kUnlimited = UINT64_MAX;

    uint64_t addressSpace = kUnlimited; // RLIMIT_AS
    uint64_t data = kUnlimited; // RLIMIT_DATA
    uint64_t controlGroup = kUnlimited; // of the nearest one with a limit, without what is cached of files
    uint64_t machine = kUnlimited; // free, or at once if need be
};

// What the system says about this process. What can't be found out counts as unlimited.
MemoryLeft memoryLeft();

struct WorkerCount
{
    unsigned count = 1;
    std::string remark; // why it is less than wanted; empty: it isn't
};

// As many workers as fit, at most `wanted`. The result of a build doesn't depend on their number.
//
// Some codec libraries, libvorbis for one, don't look whether they got the memory that they asked for, so that an
// encoder must not be begun where it may run out: the process would crash. ErrorCode::Memory where a limit of the
// process leaves too little for a single worker. Where only the machine or the control group has little left there is
// always one: the system may find more.
base::Result<WorkerCount> affordableWorkers(unsigned wanted, const MemoryLeft& left);

} // namespace tarnok
