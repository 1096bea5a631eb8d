// SPDX-License-Identifier: MIT
// main() of every test program. Each run gets its own home folder, which is removed at the end, and all runs have the
// same locale.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);

    // A death test starts the program again and shares the home folder of its run.
    const char* inherited = std::getenv("TARNOK_TEST_HOME");
    std::string home = inherited ? inherited : std::filesystem::temp_directory_path() / "tarnok-test-XXXXXX";
    if (!inherited) {
        if (!mkdtemp(home.data())) {
            std::perror(home.c_str());
            return 1;
        }
        for (const char* folder : {".config", ".local/share", ".cache", "Documents"})
            std::filesystem::create_directories(std::filesystem::path(home) / folder);
    }

    setenv("TARNOK_TEST_HOME", home.c_str(), 1);
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
    setenv("XDG_DATA_HOME", (home + "/.local/share").c_str(), 1);
    setenv("XDG_CACHE_HOME", (home + "/.cache").c_str(), 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    setenv("LC_ALL", "C", 1); // the minimal locale, as on build servers
    std::filesystem::current_path(home);

    const int result = RUN_ALL_TESTS();

    std::filesystem::current_path("/");
    if (!inherited) {
        std::error_code ignored;
        std::filesystem::remove_all(home, ignored);
    }
    return result;
}
