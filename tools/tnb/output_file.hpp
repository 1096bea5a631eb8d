// SPDX-License-Identifier: MIT
// A file that is renamed to its final name when it is complete, and otherwise removed, even if a signal ends the
// program.
#pragma once

#include "base/bytes.hpp"
#include "base/temporary_file.hpp"

#include <atomic>
#include <filesystem>
#include <string>

namespace tnb {

// The texts of its errors name the file.
class OutputFile final : public base::ByteSink
{
public:
    // folder must exist. Nothing is written yet.
    OutputFile(std::filesystem::path folder, std::string name);
    ~OutputFile() override;

    [[nodiscard]] std::filesystem::path path() const { return mFolder / mName; }

    // Creates a temporary file in the folder.
    base::Result<> open();

    base::Result<> write(std::span<const uint8_t> bytes) override;

    // Renames the file to its final name. An existing file is replaced if replace is set, otherwise it is an error. A
    // symbolic link is replaced, not followed.
    base::Result<> commit(bool replace);

    // Removes the temporary files of earlier runs that were killed.
    static void removeAbandoned(const std::filesystem::path& folder);

private:
    [[nodiscard]] base::Error error(const char* what, int systemError) const;
    void forget();

    std::filesystem::path mFolder;
    std::string mName;
    base::TemporaryFile mFile;
    uint64_t mBytes = 0; // written so far
    std::atomic<const char*>* mUnfinished = nullptr; // where a signal handler finds the temporary file
};

} // namespace tnb
