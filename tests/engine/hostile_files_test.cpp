// SPDX-License-Identifier: MIT
// Small files that demand huge resources: the engine answers each of them quickly and with little memory.
#include "support/engine_access.hpp"
#include "support/engine_use.hpp"
#include "support/hostile_files.hpp"
#include "support/sound_files.hpp"

#include <gtest/gtest.h>

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace test;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kMaximumSeconds = 20;
constexpr long kMaximumKilobytes = 1 << 30;
#else
constexpr double kMaximumSeconds = 2;
constexpr long kMaximumKilobytes = 200 << 10;
#endif

// Opens a file, reads and seeks in it, in a separate process.
void expectBearable(const std::string& path, const char* key)
{
    const pid_t child = fork();
    if (child == 0) {
        const rlimit seconds{rlim_t(2 * kMaximumSeconds), rlim_t(2 * kMaximumSeconds)};
        setrlimit(RLIMIT_CPU, &seconds);
        const std::string fault = useBank(path, key);
        std::fputs(fault.c_str(), stderr);
        _exit(fault.empty() ? 0 : 1);
    }
    int status = 0;
    rusage usage{};
    ASSERT_EQ(wait4(child, &status, 0, &usage), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << path << " ends with status " << status;
    const double seconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + 1e-6 * double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    EXPECT_LE(seconds, kMaximumSeconds) << path;
    EXPECT_LE(usage.ru_maxrss, kMaximumKilobytes) << path;
}

// The memory of the test counts for its child processes too, so all files are written before the first one is opened.
void expectAllBearable(std::vector<HostileFile> files, const char* key = nullptr)
{
    std::vector<std::string> paths;
    for (const auto& [name, bytes] : files) {
        paths.push_back(name);
        writeFile(name, bytes);
    }
    files = {};
    malloc_trim(0);
    for (const std::string& path : paths)
        expectBearable(path, key);
}

} // namespace

TEST(PlainFiles, MadeInTheSameWayAsTheHostileOnesAreDecoded)
{
    for (const auto& [name, bytes] : plainFiles()) {
        writeFile(name, bytes);
        const SoundPointer sound = engine().open(name);
        EXPECT_GT(readFloats(*sound).size(), 0u) << name;
    }
}

TEST(HostileFiles, CostLittleInEveryContainer)
{
    expectAllBearable(hostileVorbisFiles());
    expectAllBearable(hostileHeaders());
    expectAllBearable(hostileBanks(), "key");
}
