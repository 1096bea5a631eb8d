// SPDX-License-Identifier: MIT
#include "parse/chunks.hpp"

#include "base/bytes.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace engine {

namespace {

// More than any program writes. A file of nothing but empty chunks would otherwise be read for minutes.
constexpr size_t kMaximumChunks = 1024;

bool isNamed(const Chunk& chunk, std::string_view id)
{
    return std::string_view(chunk.id.data(), chunk.id.size()) == id;
}

bool holdsSamples(const Chunk& chunk)
{
    return isNamed(chunk, "data") || isNamed(chunk, "SSND") || isNamed(chunk, "BODY");
}

} // namespace

bool isUnknownLength(uint64_t length)
{
    constexpr uint64_t kNearly31Bits = 0x7effff00u;
    constexpr uint64_t kOver31Bits = 0x80001000u;
    constexpr uint64_t kNearly32Bits = 0xffff0000u;
    constexpr uint64_t kNearly63Bits = 0x7fffffffffff0000u;
    return (length >= kNearly31Bits && length <= kOver31Bits) || (length >= kNearly32Bits && length <= UINT32_MAX)
        || length >= kNearly63Bits;
}

ChunkList::ChunkList(FilePointer file, uint64_t begin, uint64_t end)
    : mFile(std::move(file))
{
    std::array<char, 4> magic{};
    if (!mFile->readAllAt(begin, magic.data(), magic.size()))
        return;
    const std::string_view name(magic.data(), magic.size());
    mIsForm = name == "FORM";
    mBigEndian = mIsForm || name == "RIFX";
    mIsRf64 = name == "RF64" || name == "BW64";
    if (name == "riff")
        readW64(begin, end);
    else
        readIff(begin, end);
}

void ChunkList::setContainerEnd(uint64_t begin, uint64_t length)
{
    mContainerIsOpenEnded = isUnknownLength(length);
    mContainerEnd = begin + std::min<uint64_t>(length, INT64_MAX);
}

// The samples extend to the end of the file in two cases. First, their length is 0, and the container ends before them
// or has an unknown length. Second, their own length is unknown. In a file of two or four gigabytes, a number that
// usually means "unknown" may be the true length. Then the length of the container is true, too.
void ChunkList::add(Chunk chunk, uint64_t length, uint64_t end)
{
    const uint64_t available = end - std::min(end, chunk.offset);
    const bool isEmpty = length == 0 && (mContainerIsOpenEnded || mContainerEnd <= chunk.offset);
    const bool isUnknown =
        isUnknownLength(length) && (length > available || (mContainerIsOpenEnded && mContainerEnd < end));
    const bool isOpenEnded = holdsSamples(chunk) && (isEmpty || isUnknown);
    chunk.length = isOpenEnded ? available : std::min(length, available);
    chunk.declared = isOpenEnded ? available : length;
    mChunks.push_back(chunk);
}

void ChunkList::readIff(uint64_t begin, uint64_t end)
{
    constexpr uint64_t kContainerHeader = 12;
    uint64_t dataLength = 0; // of an RF64 file's data chunk (EBU Tech 3306)
    uint64_t position = begin + kContainerHeader;
    std::array<uint8_t, 8> header;
    if (!mFile->readAllAt(begin, header.data(), header.size()))
        return;
    setContainerEnd(begin + header.size(),
                    mBigEndian ? base::loadBig<uint32_t>(&header[4]) : base::loadLittle<uint32_t>(&header[4]));
    // Some programs continue when a WAV file reaches 4 GiB, and its lengths wrap around.
    constexpr uint64_t kWrap = uint64_t{1} << 32;
    if (!mBigEndian && !mIsRf64 && mContainerEnd < end && (end - mContainerEnd) % kWrap == 0)
        mOverflow = end - mContainerEnd;
    while (mChunks.size() < kMaximumChunks && position < end
           && mFile->readAllAt(position, header.data(), header.size())) {
        Chunk chunk;
        std::memcpy(chunk.id.data(), header.data(), 4);
        uint64_t length = mBigEndian ? base::loadBig<uint32_t>(&header[4]) : base::loadLittle<uint32_t>(&header[4]);
        chunk.offset = position + header.size();
        if (mIsRf64 && isNamed(chunk, "data") && length == kLengthInDs64)
            length = dataLength;
        std::array<uint8_t, 16> sizes;
        if (mIsRf64 && isNamed(chunk, "ds64") && length >= sizes.size()
            && mFile->readAllAt(chunk.offset, sizes.data(), sizes.size())) {
            setContainerEnd(begin + header.size(), base::loadLittle<uint64_t>(&sizes[0]));
            dataLength = base::loadLittle<uint64_t>(&sizes[8]);
        }
        if (holdsSamples(chunk))
            length += mOverflow;
        add(chunk, length, end);
        length = std::max(length, mChunks.back().length);
        if (length > end - std::min(end, chunk.offset))
            return;
        position = chunk.offset + length + (length & 1);
    }
}

void ChunkList::readW64(uint64_t begin, uint64_t end)
{
    constexpr uint64_t kContainerHeader = 40;
    constexpr uint64_t kChunkHeader = 24; // a GUID and a length that includes this header
    uint64_t position = begin + kContainerHeader;
    std::array<uint8_t, kChunkHeader> header;
    if (!mFile->readAllAt(begin, header.data(), header.size()))
        return;
    setContainerEnd(begin, base::loadLittle<uint64_t>(&header[16]));
    while (mChunks.size() < kMaximumChunks && position < end
           && mFile->readAllAt(position, header.data(), header.size())) {
        Chunk chunk;
        std::memcpy(chunk.id.data(), header.data(), 4);
        const uint64_t length = base::loadLittle<uint64_t>(&header[16]);
        chunk.offset = position + kChunkHeader;
        const bool isUnknown = length == 0 && holdsSamples(chunk);
        if (length < kChunkHeader && !isUnknown)
            return;
        add(chunk, isUnknown ? 0 : length - kChunkHeader, end);
        if (isUnknown || length > end - position)
            return;
        position += (length + 7) & ~uint64_t{7};
    }
}

const Chunk* ChunkList::find(std::string_view id) const
{
    const auto found =
        std::find_if(mChunks.begin(), mChunks.end(), [&](const Chunk& chunk) { return isNamed(chunk, id); });
    return found == mChunks.end() ? nullptr : &*found;
}

bool ChunkList::read(std::string_view id, void* buffer, size_t count) const
{
    const Chunk* chunk = find(id);
    return chunk && chunk->length >= count && mFile->readAllAt(chunk->offset, buffer, count);
}

std::vector<uint8_t> ChunkList::readAll(std::string_view id, size_t maximumBytes) const
{
    const Chunk* chunk = find(id);
    return chunk ? readAll(*chunk, maximumBytes) : std::vector<uint8_t>{};
}

std::vector<uint8_t> ChunkList::readAll(const Chunk& chunk, size_t maximumBytes) const
{
    if (chunk.length > maximumBytes)
        return {};
    std::vector<uint8_t> bytes(static_cast<size_t>(chunk.length));
    if (!mFile->readAllAt(chunk.offset, bytes.data(), bytes.size()))
        return {};
    return bytes;
}

} // namespace engine
