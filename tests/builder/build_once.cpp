// build_once CACHE OUTPUT FORMAT THREADS FILE... : one build, whose result is the exit status.
#include "tarnok.h"

#include <cstdlib>
#include <vector>

int main(int argc, char** argv)
{
    if (argc < 6)
        return 100;
    if (Tarnok_Init(TARNOK_TNBVERSION_CURRENT, TARNOK_INIT_ALWAYS, unsigned(std::atoi(argv[4])), argv[1]) != TARNOK_OK)
        return 101;
    std::vector<TARNOK_SUBSOUND> sounds;
    for (int i = 5; i < argc; ++i) {
        TARNOK_SUBSOUND sound{};
        sound.fileNames = argv + i;
        sound.numFiles = 1;
        sounds.push_back(sound);
    }
    const TARNOK_RESULT result = Tarnok_Build(sounds.data(), unsigned(sounds.size()), TARNOK_FORMAT(std::atoi(argv[3])),
                                              0, 50, nullptr, argv[2]);
    Tarnok_Release();
    return result;
}
