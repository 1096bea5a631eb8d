// SPDX-License-Identifier: MIT
#include "support/worker_memory.hpp"

#include "base/worker_thread.hpp"

#include <algorithm>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>

#include <sys/resource.h>
#include <unistd.h>

namespace builder {

namespace {

constexpr uint64_t kMegabyte = 1 << 20;

// Per worker. Measured with resampled sounds of 32 channels: 11 MB for each of PCM, Vorbis, KADPCM and Opus; 4 MB for
// stereo.
constexpr uint64_t kWorkingBytes = 12 * kMegabyte;

// The C library's allocator reserves this for each thread, and briefly twice as much while it does so. A single thread
// works without the reservation; several would leave each other too little.
constexpr uint64_t kReservedBytes = 64 * kMegabyte;

uint64_t difference(uint64_t limit, uint64_t used)
{
    return limit == MemoryLeft::kUnlimited ? limit : limit - std::min(limit, used);
}

uint64_t resourceLimit(__rlimit_resource resource)
{
    rlimit limit{};
    return getrlimit(resource, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY ? limit.rlim_cur
                                                                               : MemoryLeft::kUnlimited;
}

// The only number in a file, or the one that follows name at the start of a line.
std::optional<uint64_t> numberIn(const std::string& path, std::string_view name = {})
{
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        uint64_t number = 0;
        if (line.starts_with(name) && std::istringstream(line.substr(name.size())) >> number)
            return number;
    }
    return std::nullopt;
}

// Bytes that a group may still use. Its file cache counts as free, since it is dropped when memory is needed.
uint64_t leftInGroup(const std::string& folder, const char* limitFile, const char* usageFile, const std::string& total)
{
    const std::optional<uint64_t> limit = numberIn(folder + limitFile);
    const std::optional<uint64_t> used = numberIn(folder + usageFile);
    if (!limit || !used)
        return MemoryLeft::kUnlimited;
    const uint64_t files = numberIn(folder + "/memory.stat", total + "inactive_file ").value_or(0)
        + numberIn(folder + "/memory.stat", total + "active_file ").value_or(0);
    return difference(*limit, *used - std::min(*used, files));
}

// The minimum over the group of this process and all groups that contain it.
uint64_t leftInControlGroups()
{
    uint64_t left = MemoryLeft::kUnlimited;
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        const bool second = line.starts_with("0::");
        const size_t controllersEnd = line.find(":/");
        if (!second && (controllersEnd == std::string::npos || line.find(":memory") == std::string::npos))
            continue;
        const std::string path = second ? line.substr(3) : line.substr(controllersEnd + 1);
        for (size_t end = path.size(); end != std::string::npos; end = end > 0 ? path.rfind('/', end - 1) : end - 1) {
            const std::string group = path.substr(0, end);
            left = std::min(left,
                            second ? leftInGroup("/sys/fs/cgroup" + group, "/memory.max", "/memory.current", "")
                                   : leftInGroup("/sys/fs/cgroup/memory" + group, "/memory.limit_in_bytes",
                                                 "/memory.usage_in_bytes", "total_"));
        }
    }
    return left;
}

} // namespace

MemoryLeft memoryLeft()
{
    MemoryLeft left;
    uint64_t sizePages = 0, ignored = 0, dataPages = 0;
    std::ifstream("/proc/self/statm") >> sizePages >> ignored >> ignored >> ignored >> ignored >> dataPages;
    const auto pageBytes = uint64_t(sysconf(_SC_PAGESIZE));
    left.addressSpace = difference(resourceLimit(RLIMIT_AS), sizePages * pageBytes);
    left.data = difference(resourceLimit(RLIMIT_DATA), dataPages * pageBytes);
    left.controlGroup = leftInControlGroups();
    if (const std::optional<uint64_t> kilobytes = numberIn("/proc/meminfo", "MemAvailable:"))
        left.machine = *kilobytes << 10;
    return left;
}

base::Result<WorkerCount> affordableWorkers(unsigned wanted, const MemoryLeft& left)
{
    struct Bound
    {
        uint64_t left;
        uint64_t each;
        uint64_t once;
        bool isHard;
        const char* what;
    };
    constexpr uint64_t stack = base::kWorkerStackBytes;
    const Bound bounds[] = {
        {left.addressSpace, stack + kReservedBytes + kWorkingBytes, kReservedBytes, true,
         "the limit on the address space of this process (ulimit -v)"},
        {left.data, stack + kWorkingBytes, 0, true, "the limit on the data of this process (ulimit -d)"},
        {left.controlGroup, kWorkingBytes, 0, false, "the memory limit of the control group"},
        {left.machine, kWorkingBytes, 0, false, "the free memory of this machine"},
    };
    constexpr uint64_t least = stack + 2 * kWorkingBytes;
    WorkerCount result{wanted, {}};
    for (const Bound& bound : bounds) {
        const uint64_t fit = bound.left > bound.once ? (bound.left - bound.once) / bound.each : 0;
        if (fit >= result.count)
            continue;
        if (fit == 0 && bound.isHard && bound.left < least)
            return base::Error{base::ErrorCode::Memory,
                               std::string(bound.what) + " leaves " + std::to_string(bound.left / kMegabyte)
                                   + " MB; encoding takes " + std::to_string(least / kMegabyte) + " MB"};
        result.count = std::max(1u, unsigned(fit));
        result.remark = "only " + std::to_string(result.count) + " of " + std::to_string(wanted)
            + " workers are used: " + bound.what + " leaves no room for more";
    }
    if (result.count == wanted)
        result.remark.clear();
    return result;
}

} // namespace builder
