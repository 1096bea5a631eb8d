// Opens whatever the fuzzer makes up, reads and seeks a little in it. Any result but those that stand for a file's
// fault ends the run.
#include "fuzz_engine_access.hpp"

#include <algorithm>
#include <iterator>
#include <vector>

namespace {

void exercise(KESS::Sound& sound)
{
    std::vector<uint8_t> buffer(32768);
    const auto bytes = static_cast<unsigned>(buffer.size());
    uint64_t samples = 0;
    uint64_t start = 0;
    uint64_t end = 0;
    sound.getSampleCount(&samples);
    static_cast<void>(sound.readData(buffer.data(), bytes, nullptr));
    fuzz::require(sound.getLoopPoints(&start, &end) != KESS_OK || (start < end && end <= samples));
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
    const fuzz::InputFile file({data, size});
    KESS::Sound* sound = nullptr;
    const int result = fuzz::engine()->createSound(file.path().c_str(), 0, nullptr, &sound);
    constexpr int kAllowed[] = {0, 13, 14, 18, 19, 64, 69};
    fuzz::require(std::find(std::begin(kAllowed), std::end(kAllowed), result) != std::end(kAllowed));
    if (sound) {
        exercise(*sound);
        sound->release();
    }
    return 0;
}
