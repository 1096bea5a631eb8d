// SPDX-License-Identifier: MIT
// Opens the fuzzer's input, reads and seeks a little in it: as a file, compiled with FUZZ_MEMORY from memory, or with
// FUZZ_CALLBACKS through functions, which return short reads and fail as the first four bytes of the input say. Banks
// get right checksums, because otherwise they would reject everything. A bank of an odd size is encrypted.
#include "support/bank_seal.hpp"
#include "support/engine_access.hpp"
#include "support/engine_use.hpp"

#include "base/bytes.hpp"
#include "fail.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr const char* kKey = "key";

// The input, or the bank that is made from it.
std::vector<uint8_t> makeBytes(const uint8_t* data, size_t size)
{
    constexpr uint8_t kBankSignature[] = {0x89, 'T', 'N', 'B'};
    std::vector<uint8_t> bytes(data, data + size);
    if (!std::ranges::equal(std::span(bytes).first(std::min<size_t>(size, 4)), kBankSignature))
        return bytes;
    bank_test::sealBank(&bytes);
    return size % 2 != 0 ? bank_test::encryptBank(bytes, kKey) : bytes;
}

#if defined(FUZZ_CALLBACKS)

// The first bytes: the most bytes per read in units of 8, or 0; the kind of failure; the part of the source, in
// 1/65536, after which it fails.
std::string use(const uint8_t* data, size_t size)
{
    constexpr size_t kControlBytes = 4;
    constexpr int64_t kFailures[] = {0, 0, -EIO, INT64_MAX};
    if (size < kControlBytes)
        return {};
    test::FunctionSource source{makeBytes(data + kControlBytes, size - kControlBytes)};
    source.mostAtOnce = data[0] > 0 ? data[0] * 8 : UINT64_MAX;
    source.failure = kFailures[data[1] % 4];
    if (data[1] % 4 > 0)
        source.failsFrom = source.bytes.size() * base::loadLittle<uint16_t>(data + 2) / 65536;
    bool isOpen = false;
    const auto open = [&](KESS::Sound** sound) {
        test::SoundPointer opened;
        const KESS_RESULT result = source.open(&opened);
        isOpen = result == KESS_OK;
        *sound = opened.release();
        return result;
    };
    const std::string fault = test::useSource(open, kKey);
    if (fault.empty() && (source.closed != isOpen || source.wrongReads > 0))
        return "the source was read outside its bytes, or not closed once";
    return fault;
}

#elif defined(FUZZ_MEMORY)

std::string use(const uint8_t* data, size_t size)
{
    // Of the exact size, so that the sanitizer finds a read past the end.
    const std::vector<uint8_t> made = makeBytes(data, size);
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[made.size()]);
    std::copy(made.begin(), made.end(), bytes.get());
    const auto open = [&](KESS::Sound** sound) {
        return test::engine().system().createSoundFromMemory(bytes.get(), made.size(), 0, nullptr, sound);
    };
    return test::useSource(open, kKey);
}

#else

std::string use(const uint8_t* data, size_t size)
{
    const std::vector<uint8_t> bytes = makeBytes(data, size);
    const int file = memfd_create("input", 0);
    if (file < 0 || write(file, bytes.data(), bytes.size()) != ssize_t(bytes.size()))
        return "the input can't be stored";
    const std::string fault = test::useBank("/proc/self/fd/" + std::to_string(file), kKey);
    close(file);
    return fault;
}

#endif

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string fault = use(data, size);
    if (!fault.empty())
        fuzz::fail(fault.c_str());
    return 0;
}
