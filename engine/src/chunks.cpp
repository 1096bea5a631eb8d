#include "chunks.hpp"

#include "bytes.hpp"

#include <algorithm>
#include <cstring>

namespace kess {

namespace {

// More than any program writes. A file of nothing but empty chunks would otherwise be read for minutes.
constexpr size_t kMaxChunks = 1024;

constexpr uint32_t kLengthElsewhere = 0xffffffffu;

bool isNamed(const Chunk& chunk, std::string_view id)
{
    return std::string_view(chunk.id.data(), chunk.id.size()) == id;
}

} // namespace

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

void ChunkList::readIff(uint64_t begin, uint64_t end)
{
    constexpr uint64_t kContainerHeader = 12;
    uint64_t dataLength = 0; // of an RF64 file's data chunk (EBU Tech 3306)
    uint64_t position = begin + kContainerHeader;
    std::array<uint8_t, 8> header;
    while (mChunks.size() < kMaxChunks && position < end && mFile.readAllAt(position, header.data(), header.size())) {
        Chunk chunk;
        std::memcpy(chunk.id.data(), header.data(), 4);
        uint64_t length = mBigEndian ? be32(&header[4]) : le32(&header[4]);
        chunk.offset = position + header.size();
        if (mIsRf64 && isNamed(chunk, "data") && length == kLengthElsewhere)
            length = dataLength;
        chunk.length = std::min(length, end - std::min(end, chunk.offset));
        std::array<uint8_t, 16> sizes;
        if (mIsRf64 && isNamed(chunk, "ds64") && chunk.length >= sizes.size()
            && mFile.readAllAt(chunk.offset, sizes.data(), sizes.size()))
            dataLength = le64(&sizes[8]);
        mChunks.push_back(chunk);
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
    while (mChunks.size() < kMaxChunks && position < end && mFile.readAllAt(position, header.data(), header.size())) {
        Chunk chunk;
        std::memcpy(chunk.id.data(), header.data(), 4);
        const uint64_t length = le64(&header[16]);
        if (length < kChunkHeader)
            return;
        chunk.offset = position + kChunkHeader;
        chunk.length = std::min(length - kChunkHeader, end - std::min(end, chunk.offset));
        mChunks.push_back(chunk);
        if (length > end - position)
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
