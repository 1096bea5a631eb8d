// SPDX-License-Identifier: MIT
// Opens the fuzzer's input, reads and seeks a little in it. Compiled as fuzz_bank, it treats the input as a bank and
// corrects the checksums, because otherwise they would reject everything. A bank of an odd size is encrypted.
#include "support/engine_use.hpp"
#ifdef FUZZ_BANK
#include "support/bank_seal.hpp"
#endif

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<uint8_t> bytes(data, data + size);
    const char* key = nullptr;
#ifdef FUZZ_BANK
    key = "key";
    bank_test::sealBank(&bytes);
    if (size % 2 != 0)
        bytes = bank_test::encryptBank(bytes, key);
#endif
    const int file = memfd_create("input", 0);
    if (file < 0 || write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        std::abort();
    const std::string fault = test::useBank("/proc/self/fd/" + std::to_string(file), key);
    if (!fault.empty()) {
        std::fprintf(stderr, "%s\n", fault.c_str());
        std::abort();
    }
    close(file);
    return 0;
}
