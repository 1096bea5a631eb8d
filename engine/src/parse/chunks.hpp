// SPDX-License-Identifier: MIT
// The chunks of RIFF, RIFX, RF64, W64 and AIFF files.
#pragma once

#include "parse/input_file.hpp"

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

namespace engine {

// Whether a length near the largest number of 31, 32, 63 or 64 bits means that the length was unknown. A program that
// writes into a pipe can't go back to fill in a length, and one that crashes doesn't. They leave such a number, or 0.
[[nodiscard]] bool isUnknownLength(uint64_t length);

// Marks a 32-bit length of an RF64 file whose value is in the chunk ds64 (EBU Tech 3306).
inline constexpr uint32_t kLengthElsewhere = 0xffffffffu;

// The name of a chunk and the range of its data.
struct Chunk
{
    std::array<char, 4> id{};
    uint64_t offset = 0;
    uint64_t length = 0; // cut at the end of the file
    uint64_t declared = 0; // the length in the file; where that is impossible, the one above
};

// The chunks of a file, in its order. The list ends where the file is damaged.
class ChunkList
{
public:
    ChunkList() = default;

    // The container begins at begin and is one of those above.
    ChunkList(FilePointer file, uint64_t begin, uint64_t end);

    // Whether the container is a FORM, of AIFF or of Amiga files.
    [[nodiscard]] bool isForm() const { return mIsForm; }

    [[nodiscard]] bool isBigEndian() const { return mBigEndian; }
    [[nodiscard]] const std::vector<Chunk>& all() const { return mChunks; }
    [[nodiscard]] const Chunk* find(std::string_view id) const;

    // Reads the start of the first chunk with that id. Returns false if it is missing or shorter.
    [[nodiscard]] bool read(std::string_view id, void* buffer, size_t count) const;

    // All data of a chunk; empty if it is missing or has more than maximumBytes.
    [[nodiscard]] std::vector<uint8_t> readAll(std::string_view id, size_t maximumBytes) const;
    [[nodiscard]] std::vector<uint8_t> readAll(const Chunk& chunk, size_t maximumBytes) const;

private:
    void setContainerEnd(uint64_t begin, uint64_t length);
    void add(Chunk chunk, uint64_t length, uint64_t end);
    void readW64(uint64_t begin, uint64_t end);
    void readIff(uint64_t begin, uint64_t end);

    FilePointer mFile;
    std::vector<Chunk> mChunks;
    uint64_t mContainerEnd = 0; // according to the file
    bool mContainerIsOpen = false; // its length is unknown
    uint64_t mOverflow = 0; // to be added to 32-bit lengths that began again at 0
    bool mIsForm = false;
    bool mBigEndian = false;
    bool mIsRf64 = false;
};

} // namespace engine
