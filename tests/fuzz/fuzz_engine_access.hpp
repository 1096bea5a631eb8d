// The engine, and what the fuzzer makes up as a file for it.
#pragma once

#include "kess.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

namespace fuzz {

inline void require(bool holds)
{
    if (!holds)
        std::abort();
}

// One for the whole run.
inline KESS::System* engine()
{
    static KESS::System* const system = [] {
        KESS::System* created = nullptr;
        require(KESS_System_Create(&created, KESS_VERSION) == KESS_OK && created->init(0, 0, nullptr) == KESS_OK);
        return created;
    }();
    return system;
}

// A file in memory.
class InputFile
{
public:
    explicit InputFile(std::span<const uint8_t> bytes)
        : mFile(memfd_create("input", 0))
        , mPath("/proc/self/fd/" + std::to_string(mFile))
    {
        require(mFile >= 0 && write(mFile, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    }
    ~InputFile() { close(mFile); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    [[nodiscard]] const std::string& path() const { return mPath; }

private:
    int mFile;
    std::string mPath;
};

} // namespace fuzz
