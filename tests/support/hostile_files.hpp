// SPDX-License-Identifier: MIT
// Files that no encoder writes: a few bytes in them demand enormous memory or time of a library.
#pragma once

#include <string>
#include <vector>

namespace test {

struct HostileFile
{
    std::string name;
    std::string bytes;
};

// Third headers of Vorbis streams, which declare the tables.
[[nodiscard]] std::vector<HostileFile> hostileVorbisSetups();

// Sounds in the same containers, with headers that stay within the limits.
[[nodiscard]] std::vector<HostileFile> plainFiles();

// One sound with a hostile header in each container that can contain it, and chains of them.
[[nodiscard]] std::vector<HostileFile> hostileVorbisFiles();

// The same headers as setups of banks.
[[nodiscard]] std::vector<HostileFile> hostileBanks();

// Other numbers in headers, by library: channels, streams, comments, chunks, packets.
[[nodiscard]] std::vector<HostileFile> hostileHeaders();

} // namespace test
