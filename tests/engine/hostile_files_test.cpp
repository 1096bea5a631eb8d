// Small files that ask for more than there is: each is answered soon, and within little memory.
#include "support/engine_access.hpp"
#include "support/engine_use.hpp"
#include "support/hostile_files.hpp"
#include "support/sound_files.hpp"

#include <gtest/gtest.h>

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

using namespace test;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kMostSeconds = 20;
constexpr long kMostKilobytes = 1 << 30;
#else
constexpr double kMostSeconds = 2;
constexpr long kMostKilobytes = 200 << 10;
#endif

double secondsOf(const timeval& time)
{
    return double(time.tv_sec) + double(time.tv_usec) * 1e-6;
}

// Has a process of its own open a file, read and seek in it.
void expectBearable(const std::string& path, const char* key)
{
    const pid_t child = fork();
    if (child == 0) {
        const rlimit seconds{rlim_t(2 * kMostSeconds), rlim_t(2 * kMostSeconds)};
        setrlimit(RLIMIT_CPU, &seconds);
        const std::string fault = useBank(path, key);
        std::fputs(fault.c_str(), stderr);
        _exit(fault.empty() ? 0 : 1);
    }
    int status = 0;
    rusage usage{};
    ASSERT_EQ(wait4(child, &status, 0, &usage), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << path << " ends with status " << status;
    const double seconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    EXPECT_LE(seconds, kMostSeconds) << path;
    EXPECT_LE(usage.ru_maxrss, kMostKilobytes) << path;
    if (std::getenv("TARNOK_TELL_COSTS"))
        std::printf("%6.2f s %7ld kB  %s\n", seconds, usage.ru_maxrss, path.c_str());
}

// What a test holds counts for its children, too: the files are written before any is tried.
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

TEST(HostileFiles, OfVorbisCostLittleInWhateverContainer)
{
    expectAllBearable(hostileVorbisFiles());
}

TEST(HostileFiles, ThatAreBanksCostLittle)
{
    expectAllBearable(hostileBanks(), "key");
}

TEST(HostileFiles, OfOtherLibrariesCostLittle)
{
    expectAllBearable(hostileHeaders());
}
