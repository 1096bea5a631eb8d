// A file that gets its name when it is complete, and is removed otherwise.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace tnb {

class OutputFile
{
public:
    // Creates a temporary file in folder, which must exist. All members throw a Failure that names the file.
    OutputFile(std::filesystem::path folder, std::string name);

    // Removes the temporary file if it wasn't committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    [[nodiscard]] std::filesystem::path path() const { return mFolder / mName; }

    void write(std::span<const uint8_t> bytes);

    // Gives the file its name. An existing file is replaced if replace is set, otherwise it is a failure. A symbolic
    // link is replaced, not followed.
    void commit(bool replace);

private:
    [[noreturn]] void fail(const std::string& what, int error) const;

    std::filesystem::path mFolder;
    std::string mName;
    std::string mTemporary;
    int mDescriptor = -1;
};

} // namespace tnb
