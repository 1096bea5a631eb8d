#include "parse/chunks.hpp"

#include "parse/bytes.hpp"

#include <algorithm>
#include <cstring>

namespace kess {

namespace {

// More than any program writes. A file of nothing but empty chunks would otherwise be read for minutes.
constexpr size_t kMaxChunks = 1024;

bool isNamed(const Chunk& chunk, std::string_view id)
{
    return std::string_view(chunk.id.data(), chunk.id.size()) == id;
}

bool holdsSamples(const Chunk& chunk)
{
    return isNamed(chunk, "data") || isNamed(chunk, "SSND") || isNamed(chunk, "BODY");
}

} // namespace

bool standsForUnknown(uint64_t length)
{
    constexpr uint64_t kNearly31Bits = 0x7effff00u;
    constexpr uint64_t kOver31Bits = 0x80001000u;
    constexpr uint64_t kNearly32Bits = 0xffff0000u;
    constexpr uint64_t kNearly63Bits = 0x7fffffffffff0000u;
    return (length >= kNearly31Bits && length <= kOver31Bits) || (length >= kNearly32Bits && length <= UINT32_MAX)
        || length >= kNearly63Bits;
}

ChunkList::ChunkList(const SourceFile& file, uint64_t begin, uint64_t end)
    : mFile(file)
{
    std::array<char, 4> magic{};
    if (!file.readAllAt(begin, magic.data(), magic.size()))
        return;
    const std::string_view name(magic.data(), magic.size());
    mBigEndian = name == "FORM" || name == "RIFX";
    mIsRf64 = name == "RF64" || name == "BW64";
    if (name == "riff")
        readW64(begin, end);
    else
        readIff(begin, end);
}

void ChunkList::setContainerEnd(uint64_t begin, uint64_t length)
{
    mContainerIsOpen = standsForUnknown(length);
    mContainerEnd = begin + std::min<uint64_t>(length, INT64_MAX);
}

// Samples run to the end of the file where an empty chunk of them isn't meant to be empty, because the container says
// that it ends there or doesn't know, and where the length stands for an unknown one. In a file of two or four
// gigabytes it may be the true one; then the container's length is true, too.
void ChunkList::add(Chunk chunk, uint64_t length, uint64_t end)
{
    const uint64_t there = end - std::min(end, chunk.offset);
    const bool isEmpty = length == 0 && (mContainerIsOpen || mContainerEnd <= chunk.offset);
    const bool isUnknown = standsForUnknown(length) && (length > there || (mContainerIsOpen && mContainerEnd < end));
    const bool isOpen = holdsSamples(chunk) && (isEmpty || isUnknown);
    chunk.length = isOpen ? there : std::min(length, there);
    chunk.declared = isOpen ? there : length;
    mChunks.push_back(chunk);
}

void ChunkList::readIff(uint64_t begin, uint64_t end)
{
    constexpr uint64_t kContainerHeader = 12;
    uint64_t dataLength = 0; // of an RF64 file's data chunk (EBU Tech 3306)
    uint64_t position = begin + kContainerHeader;
    std::array<uint8_t, 8> header;
    if (!mFile.readAllAt(begin, header.data(), header.size()))
        return;
    setContainerEnd(begin + header.size(), mBigEndian ? be32(&header[4]) : le32(&header[4]));
    // Some programs go on when a WAV file reaches 4 GiB, and its lengths begin again at 0.
    constexpr uint64_t kTurn = uint64_t{1} << 32;
    if (!mBigEndian && !mIsRf64 && mContainerEnd < end && (end - mContainerEnd) % kTurn == 0)
        mOverflown = end - mContainerEnd;
    while (mChunks.size() < kMaxChunks && position < end && mFile.readAllAt(position, header.data(), header.size())) {
        Chunk chunk;
        std::memcpy(chunk.id.data(), header.data(), 4);
        uint64_t length = mBigEndian ? be32(&header[4]) : le32(&header[4]);
        chunk.offset = position + header.size();
        if (mIsRf64 && isNamed(chunk, "data") && length == kLengthElsewhere)
            length = dataLength;
        std::array<uint8_t, 16> sizes;
        if (mIsRf64 && isNamed(chunk, "ds64") && length >= sizes.size()
            && mFile.readAllAt(chunk.offset, sizes.data(), sizes.size())) {
            setContainerEnd(begin + header.size(), le64(&sizes[0]));
            dataLength = le64(&sizes[8]);
        }
        if (holdsSamples(chunk))
            length += mOverflown;
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
    if (!mFile.readAllAt(begin, header.data(), header.size()))
        return;
    setContainerEnd(begin, le64(&header[16]));
    while (mChunks.size() < kMaxChunks && position < end && mFile.readAllAt(position, header.data(), header.size())) {
        Chunk chunk;
        std::memcpy(chunk.id.data(), header.data(), 4);
        const uint64_t length = le64(&header[16]);
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
    return chunk && chunk->length >= count && mFile.readAllAt(chunk->offset, buffer, count);
}

std::vector<uint8_t> ChunkList::readAll(std::string_view id, size_t longest) const
{
    const Chunk* chunk = find(id);
    return chunk ? readAll(*chunk, longest) : std::vector<uint8_t>{};
}

std::vector<uint8_t> ChunkList::readAll(const Chunk& chunk, size_t longest) const
{
    if (chunk.length > longest)
        return {};
    std::vector<uint8_t> bytes(static_cast<size_t>(chunk.length));
    if (!mFile.readAllAt(chunk.offset, bytes.data(), bytes.size()))
        return {};
    return bytes;
}

} // namespace kess
