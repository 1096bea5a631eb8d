// SPDX-License-Identifier: MIT
// Opens the fuzzer's input from memory, reads and seeks a little in it. Compiled with FUZZ_CALLBACKS, it opens the
// input through functions, which return short reads and fail as the first four bytes of the input say. Banks get right
// checksums, because otherwise they would reject everything. A bank of an odd size is encrypted.
#include "support/bank_seal.hpp"
#include "support/engine_access.hpp"
#include "support/engine_use.hpp"

#include "base/bytes.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr const char* kKey = "key";

// The input, or the bank that is made from it.
std::vector<uint8_t> makeBytes(const uint8_t* data, size_t size)
{
    constexpr uint8_t kBankSignature[] = {0x89, 'T', 'N', 'B'};
    std::vector<uint8_t> bytes(data, data + size);
    if (size < sizeof kBankSignature || std::memcmp(data, kBankSignature, sizeof kBankSignature) != 0)
        return bytes;
    bank_test::sealBank(&bytes);
    return size % 2 != 0 ? bank_test::encryptBank(bytes, kKey) : bytes;
}

#ifdef FUZZ_CALLBACKS

struct Source
{
    std::vector<uint8_t> bytes;
    uint64_t mostAtOnce = UINT64_MAX;
    uint64_t failsFrom = UINT64_MAX;
    int64_t failure = 0;
    int closed = 0;
};

constexpr size_t kControlBytes = 4;

// control: the most bytes per read in units of 8, or 0; the kind of failure; the part of the source, in 1/65536, after
// which it fails.
void control(Source& source, const uint8_t* bytes)
{
    if (bytes[0] > 0)
        source.mostAtOnce = bytes[0] * 8;
    constexpr int64_t kFailures[] = {0, 0, -EIO, INT64_MAX};
    const size_t kind = bytes[1] % 4;
    source.failure = kFailures[kind];
    if (kind > 0)
        source.failsFrom = source.bytes.size() * base::loadLittle<uint16_t>(bytes + 2) / 65536;
}

int64_t readSource(void* user, uint64_t offset, void* buffer, uint64_t count)
{
    const Source& source = *static_cast<const Source*>(user);
    if (count == 0 || !base::rangeInside(offset, count, source.bytes.size()) || source.closed > 0)
        std::abort();
    if (offset >= source.failsFrom)
        return source.failure;
    const uint64_t got = std::min({count, source.mostAtOnce, source.failsFrom - offset});
    std::memcpy(buffer, source.bytes.data() + offset, got);
    return int64_t(got);
}

#endif

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
#ifdef FUZZ_CALLBACKS
    if (size < kControlBytes)
        return -1;
    Source source{makeBytes(data + kControlBytes, size - kControlBytes)};
    control(source, data);
    KESS_SOURCE record{};
    record.cbsize = sizeof record;
    record.size = source.bytes.size();
    record.userData = &source;
    record.read = readSource;
    record.close = [](void* user) {
        ++static_cast<Source*>(user)->closed;
    };
    bool isOpen = false;
    const auto open = [&](KESS::Sound** sound) {
        const KESS_RESULT result = test::engine().system().createSoundFromCallbacks(&record, 0, nullptr, sound);
        isOpen = result == KESS_OK;
        return result;
    };
#else
    // Of the exact size, so that the sanitizer finds a read past the end.
    const std::vector<uint8_t> made = makeBytes(data, size);
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[made.size()]);
    std::copy(made.begin(), made.end(), bytes.get());
    const auto open = [&](KESS::Sound** sound) {
        return test::engine().system().createSoundFromMemory(bytes.get(), made.size(), 0, nullptr, sound);
    };
#endif
    std::string fault = test::useSource(open, kKey);
#ifdef FUZZ_CALLBACKS
    if (fault.empty() && source.closed != isOpen)
        fault = "the source was closed " + std::to_string(source.closed) + " times";
#endif
    if (!fault.empty()) {
        std::fprintf(stderr, "%s\n", fault.c_str());
        std::abort();
    }
    return 0;
}
