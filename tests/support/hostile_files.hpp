// Files that nobody's encoder writes: a few bytes in them ask a library for memory or time without end.
#pragma once

#include <string>
#include <vector>

namespace test {

struct HostileFile
{
    std::string name;
    std::string bytes;
};

// Headers of Vorbis: the third of a stream, which declares its tables.
[[nodiscard]] std::vector<HostileFile> hostileVorbisSetups();

// Sounds in the same containers whose headers ask for no more than is let through.
[[nodiscard]] std::vector<HostileFile> plainFiles();

// One sound of a hostile header in each container that can carry it, and chains of them.
[[nodiscard]] std::vector<HostileFile> hostileVorbisFiles();

// The same in a bank, whose setup is one or another.
[[nodiscard]] std::vector<HostileFile> hostileBanks();

// What else a header decides, by library: numbers of channels, streams, comments, chunks, packets.
[[nodiscard]] std::vector<HostileFile> hostileHeaders();

} // namespace test
