// SPDX-License-Identifier: MIT
// The chunks of RIFF, RIFX, RF64, W64 and AIFF files.
#pragma once

#include "parse/input_file.hpp"

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

namespace engine {

// Whether length is a number that means "unknown": one near the largest number of 31, 32, 63 or 64 bits. A program that
// writes into a pipe can't go back to fill in the length, and one that crashes doesn't. They leave such a number, or 0.
// For 0 this returns false, since an empty chunk has that length, too.
[[nodiscard]] bool isUnknownLength(uint64_t length);

// Stands in an RF64 file for a 32-bit length whose value is in the chunk ds64 (EBU Tech 3306).
inline constexpr uint32_t kLengthInDs64 = 0xffffffffu;

// The name of a chunk and the range of its data.
struct Chunk
{
    std::array<char, 4> id{};
    uint64_t offset = 0;
    uint64_t length = 0; // cut at the end of the file
    uint64_t declared = 0; // the length that the file declares; equal to `length` if it declares none
};

// The chunks of a file, in its order. The list ends where the file is damaged.
class ChunkList
{
public:
    ChunkList() = default;

    // begin and end: the range of the file that contains the container.
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
    bool mContainerIsOpenEnded = false; // its length is unknown
    uint64_t mOverflow = 0; // to be added to 32-bit lengths that wrapped around
    bool mIsForm = false;
    bool mBigEndian = false;
    bool mIsRf64 = false;
};

} // namespace engine
