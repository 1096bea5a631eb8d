// Opens whatever the fuzzer makes up, reads and seeks a little in it. Any result but those that stand for a file's
// fault ends the run.
#include "kess.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

namespace {

KESS::System* engine()
{
    static KESS::System* const system = [] {
        KESS::System* created = nullptr;
        if (KESS_System_Create(&created, KESS_VERSION) != KESS_OK || created->init(0, 0, nullptr) != KESS_OK)
            std::abort();
        return created;
    }();
    return system;
}

void exercise(KESS::Sound& sound)
{
    std::vector<uint8_t> buffer(32768);
    const auto bytes = static_cast<unsigned>(buffer.size());
    uint64_t samples = 0;
    uint64_t start = 0;
    uint64_t end = 0;
    sound.getSampleCount(&samples);
    static_cast<void>(sound.readData(buffer.data(), bytes, nullptr));
    if (sound.getLoopPoints(&start, &end) == KESS_OK && (start >= end || end > samples))
        std::abort();
    static_cast<void>(sound.setLoopCount(3));
    static_cast<void>(sound.seekData(std::min<uint64_t>(samples, 2000)));
    static_cast<void>(sound.readFloat(reinterpret_cast<float*>(buffer.data()), 64, nullptr));
    char name[64];
    static_cast<void>(sound.getSyncPoint(0, nullptr, name, sizeof name));
    static_cast<void>(sound.setEncryptionKey("key"));
    KESS::Sound* subsound = nullptr;
    if (sound.getSubSound(0, &subsound) == KESS_OK)
        static_cast<void>(subsound->readData(buffer.data(), bytes, nullptr));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int file = memfd_create("input", 0);
    if (file < 0 || write(file, data, size) != static_cast<ssize_t>(size))
        std::abort();
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    KESS::Sound* sound = nullptr;
    const int result = engine()->createSound(path.c_str(), 0, nullptr, &sound);
    constexpr int kAllowed[] = {0, 13, 14, 18, 19, 64, 69};
    if (std::find(std::begin(kAllowed), std::end(kAllowed), result) == std::end(kAllowed))
        std::abort();
    if (sound) {
        exercise(*sound);
        sound->release();
    }
    close(file);
    return 0;
}
