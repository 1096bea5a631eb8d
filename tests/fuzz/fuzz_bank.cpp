// Reads, seeks and verifies whatever the fuzzer makes of a bank, with its checksums made to fit: otherwise nothing
// behind them would ever be reached. An odd size of the input has the bank encrypted.
#include "fuzz_engine_access.hpp"
#include "support/bank_seal.hpp"

#include <algorithm>
#include <vector>

using fuzz::engine;
using fuzz::require;

namespace {

constexpr const char* kKey = "key";

void useSound(KESS::Sound& sound)
{
    std::vector<float> buffer(8192);
    int channels = 0;
    uint64_t samples = 0;
    require(sound.getFormat(nullptr, nullptr, &channels, nullptr) == KESS_OK && channels > 0);
    require(sound.getSampleCount(&samples) == KESS_OK);
    uint64_t start = 0;
    uint64_t end = 0;
    require(sound.getLoopPoints(&start, &end) != KESS_OK || (start < end && end <= samples));
    static_cast<void>(sound.setLoopCount(1));
    const auto frames = static_cast<unsigned>(buffer.size()) / static_cast<unsigned>(channels);
    for (const uint64_t place : {uint64_t{0}, samples / 2}) {
        unsigned got = 0;
        static_cast<void>(sound.seekData(place));
        static_cast<void>(sound.readFloat(buffer.data(), frames, &got));
        require(got <= frames);
    }
    KESS_ENCODING encoding{};
    encoding.cbsize = sizeof encoding;
    require(sound.getEncoding(&encoding) == KESS_OK);
    char name[16];
    static_cast<void>(sound.getName(name, sizeof name));
    static_cast<void>(sound.getSyncPoint(0, nullptr, name, sizeof name));
}

void useBank(KESS::Sound& bank)
{
    if (bank.setEncryptionKey(kKey) != KESS_OK)
        return;
    int count = 0;
    require(bank.getNumSubSounds(&count) == KESS_OK);
    for (int i = 0; i < std::min(count, 3); ++i) {
        KESS::Sound* sound = nullptr;
        if (bank.getSubSound(i, &sound) == KESS_OK)
            useSound(*sound);
    }
}

// As long as nothing was told, nothing is wrong, and the other way round.
void verify(const std::string& path)
{
    int faults = 0;
    const auto take = [](void* data, int, KESS_RESULT result, const char* text) -> int {
        require(text && *text);
        *static_cast<int*>(data) += result == KESS_ERR_FILE_BAD;
        return 1;
    };
    const KESS_RESULT result = engine()->verifyBank(path.c_str(), kKey, take, &faults);
    require(result != KESS_OK || faults == 0);
    require(faults == 0 || result == KESS_ERR_FILE_BAD || result == KESS_ERR_MEMORY);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<uint8_t> bytes(data, data + size);
    bank_test::sealBank(&bytes);
    if (size % 2 != 0)
        bytes = bank_test::encryptBank(bytes, kKey);
    const fuzz::InputFile file(bytes);
    KESS::Sound* bank = nullptr;
    if (engine()->createSound(file.path().c_str(), 0, nullptr, &bank) == KESS_OK) {
        useBank(*bank);
        bank->release();
    }
    verify(file.path());
    return 0;
}
