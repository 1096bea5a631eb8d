// The chunks of RIFF, RIFX, RF64, W64 and AIFF files.
#pragma once

#include "parse/source_file.hpp"

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kess {

// Whoever writes into a pipe can't come back to fill in a length that was not known at the start, and whoever crashes
// doesn't. What stands there then is 0 or a number near the largest one of 31, 32, 63 or 64 bits: this tells the
// latter.
[[nodiscard]] bool standsForUnknown(uint64_t length);

// Stands where an RF64 file's fields of 32 bits are too narrow: the length is told in its chunk ds64 (EBU Tech 3306).
inline constexpr uint32_t kLengthElsewhere = 0xffffffffu;

// One chunk: what it is called, and where its data lies.
struct Chunk
{
    std::array<char, 4> id{};
    uint64_t offset = 0; // of its data
    uint64_t length = 0; // of its data, cut at the end of the file
    uint64_t declared = 0; // of its data, as the file tells it; where it can't be meant, the one above
};

// The list of a file's chunks, as it was when this was made. It ends where the file is damaged.
class ChunkList
{
public:
    // The container begins at begin and is known to be one of those above.
    ChunkList(const SourceFile& file, uint64_t begin, uint64_t end);

    [[nodiscard]] bool isBigEndian() const { return mBigEndian; }
    [[nodiscard]] const std::vector<Chunk>& all() const { return mChunks; }
    [[nodiscard]] const Chunk* find(std::string_view id) const;

    // Start of the first chunk with that id; false when it is absent or shorter.
    [[nodiscard]] bool read(std::string_view id, void* buffer, size_t count) const;

    // The whole data of a chunk; empty when it is absent or longer than longest.
    [[nodiscard]] std::vector<uint8_t> readAll(std::string_view id, size_t longest) const;
    [[nodiscard]] std::vector<uint8_t> readAll(const Chunk& chunk, size_t longest) const;

private:
    void setContainerEnd(uint64_t begin, uint64_t length);
    void add(Chunk chunk, uint64_t length, uint64_t end);
    void readW64(uint64_t begin, uint64_t end);
    void readIff(uint64_t begin, uint64_t end);

    const SourceFile& mFile;
    std::vector<Chunk> mChunks;
    uint64_t mContainerEnd = 0; // as the file tells it
    bool mContainerIsOpen = false; // what it tells stands for unknown
    uint64_t mOverflown = 0; // what lengths of 32 bits couldn't tell
    bool mBigEndian = false;
    bool mIsRf64 = false;
};

} // namespace kess
