// Writes the hand-built files into two folders: seeds for fuzz_engine and for fuzz_bank.
#include "support/hostile_files.hpp"
#include "support/sound_files.hpp"

#include <cstdio>
#include <filesystem>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("usage: write_seeds ENGINE_FOLDER BANK_FOLDER\n", stderr);
        return 1;
    }
    const std::string folders[] = {std::string(argv[1]) + '/', std::string(argv[2]) + '/'};
    for (const std::string& folder : folders)
        std::filesystem::create_directories(folder);
    for (const auto& files : {test::hostileVorbisFiles(), test::hostileHeaders()}) {
        for (const auto& [name, bytes] : files)
            test::writeFile(folders[0] + name, bytes);
    }
    for (const auto& [name, bytes] : test::hostileBanks())
        test::writeFile(folders[1] + name, bytes);
    return 0;
}
