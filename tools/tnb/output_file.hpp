// A file that appears under its name when it is complete, and not at all otherwise.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace tnb {

class OutputFile
{
public:
    // Begins a nameless file in folder, which exists. This and the calls below throw a Failure that names the file.
    OutputFile(std::filesystem::path folder, std::string name);

    // Without a commit, what was written is removed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    [[nodiscard]] std::filesystem::path path() const { return mFolder / mName; }

    void write(std::span<const uint8_t> bytes);

    // Gives the file its name. What has it already is a failure, or is replaced; a link is replaced, not followed.
    void commit(bool replace);

private:
    [[noreturn]] void fail(const std::string& what, int error) const;

    std::filesystem::path mFolder;
    std::string mName;
    std::string mTemporary;
    int mDescriptor = -1;
};

} // namespace tnb
