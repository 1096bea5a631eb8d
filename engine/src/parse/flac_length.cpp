// SPDX-License-Identifier: MIT
#include "parse/flac_length.hpp"

#include "base/bytes.hpp"

#include <algorithm>
#include <array>
#include <vector>

namespace engine {

namespace {

// Slightly more than an uncompressed frame of 8 channels, 32 bits and the largest block.
constexpr uint64_t kMaximumFrameBytes = 2u << 20;

constexpr size_t kMaximumHeaderBytes = 16;

struct FlacFrame
{
    uint64_t start = 0; // first sample
    uint64_t samples = 0;
};

uint8_t crc8(const uint8_t* bytes, size_t count)
{
    uint8_t crc = 0;
    for (size_t i = 0; i < count; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<uint8_t>(crc & 0x80 ? crc << 1 ^ 0x07 : crc << 1);
    }
    return crc;
}

uint16_t crc16(const uint8_t* bytes, size_t count)
{
    uint16_t crc = 0;
    for (size_t i = 0; i < count; ++i) {
        crc = static_cast<uint16_t>(crc ^ bytes[i] << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<uint16_t>(crc & 0x8000 ? crc << 1 ^ 0x8005 : crc << 1);
    }
    return crc;
}

// A number in the form of an over-long UTF-8 character. *used gets its length.
std::optional<uint64_t> codedNumber(const uint8_t* bytes, size_t available, size_t* used)
{
    size_t length = 0;
    while (length < 8 && bytes[0] & 0x80 >> length)
        ++length;
    if (length == 1 || length == 8)
        return std::nullopt;
    *used = std::max<size_t>(length, 1);
    if (*used > available)
        return std::nullopt;
    uint64_t number = length == 0 ? bytes[0] : bytes[0] & 0x7f >> length;
    for (size_t i = 1; i < *used; ++i) {
        if ((bytes[i] & 0xc0) != 0x80)
            return std::nullopt;
        number = number << 6 | (bytes[i] & 0x3f);
    }
    return number;
}

// A frame header with a correct checksum. fixedBlock is the block size of streams in which all blocks are equal.
std::optional<FlacFrame> parseFrame(const uint8_t* bytes, size_t available, uint64_t fixedBlock)
{
    if (available < 6 || bytes[0] != 0xff || (bytes[1] & 0xfe) != 0xf8)
        return std::nullopt;
    size_t used = 0;
    const std::optional<uint64_t> number = codedNumber(bytes + 4, available - 4, &used);
    const unsigned blockCode = bytes[2] >> 4;
    const unsigned rateCode = bytes[2] & 15;
    const size_t blockBytes = blockCode == 6 ? 1 : blockCode == 7 ? 2 : 0;
    const size_t rateBytes = rateCode == 12 ? 1 : rateCode == 13 || rateCode == 14 ? 2 : 0;
    const size_t checked = 4 + used + blockBytes + rateBytes;
    if (!number || blockCode == 0 || checked >= available || crc8(bytes, checked) != bytes[checked])
        return std::nullopt;

    FlacFrame frame;
    if (blockCode == 1)
        frame.samples = 192;
    else if (blockCode < 6)
        frame.samples = uint64_t{144} << blockCode;
    else if (blockCode == 6)
        frame.samples = uint64_t{bytes[4 + used]} + 1;
    else if (blockCode == 7)
        frame.samples = uint64_t{base::loadBig<uint16_t>(bytes + 4 + used)} + 1;
    else
        frame.samples = uint64_t{1} << blockCode;
    const bool variable = bytes[1] & 1;
    frame.start = variable ? *number : *number * fixedBlock;
    return frame;
}

} // namespace

std::optional<uint64_t> flacLength(const InputFile& file, uint64_t begin, uint64_t end)
{
    std::array<uint8_t, 12> info; // "fLaC", the block's header, the least and the largest block size
    if (!file.readAllAt(begin, info.data(), info.size()))
        return std::nullopt;
    const uint64_t fixedBlock = base::loadBig<uint16_t>(&info[10]);

    const uint64_t from = end - std::min(end - begin, kMaximumFrameBytes);
    std::vector<uint8_t> tail(static_cast<size_t>(end - from));
    tail.resize(file.readAt(from, tail.data(), tail.size()));

    std::optional<uint64_t> cutFrame;
    for (size_t i = tail.size(); i-- > 0;) {
        const auto frame = parseFrame(&tail[i], std::min(tail.size() - i, kMaximumHeaderBytes), fixedBlock);
        if (!frame)
            continue;
        // Over a frame and its checksum, the remainder is zero.
        if (crc16(&tail[i], tail.size() - i) == 0)
            return frame->start + frame->samples;
        if (!cutFrame)
            cutFrame = frame->start;
        else
            break;
    }
    return cutFrame;
}

} // namespace engine
