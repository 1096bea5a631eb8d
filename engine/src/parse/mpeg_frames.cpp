// SPDX-License-Identifier: MIT
#include "parse/mpeg_frames.hpp"

#include "base/bytes.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace engine {

namespace {

// A sync word has 11 bits, so noise contains one now and then. This many consistent headers in a row, each at the end
// of the previous frame, don't occur by chance. A shorter file must end with a frame.
constexpr int kConfirmingFrames = 4;

// Tags in a row at the start of a file. Programs write one or two.
constexpr int kMaximumTags = 16;

constexpr uint16_t kBitRates[5][16] = {
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0}, // MPEG-1, layer I
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0}, // MPEG-1, layer II
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0}, // MPEG-1, layer III
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0}, // MPEG-2, layer I
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0}, // MPEG-2, layers II and III
};

constexpr uint32_t kSampleRates[4][3] = {
    {11025, 12000, 8000}, // MPEG-2.5
    {0, 0, 0}, // reserved
    {22050, 24000, 16000}, // MPEG-2
    {44100, 48000, 32000}, // MPEG-1
};

enum Layer : uint32_t
{
    LayerIII = 1,
    LayerII = 2,
    LayerI = 3
};

const uint16_t* bitRates(uint32_t version, uint32_t layer)
{
    if (version == 3)
        return kBitRates[3 - layer];
    return kBitRates[layer == LayerI ? 3 : 4];
}

template <typename Parse>
bool framesFollow(const InputFile& file, uint64_t begin, uint64_t end, Parse parse)
{
    uint64_t position = begin;
    std::optional<uint32_t> signature;
    for (int frame = 0; frame < kConfirmingFrames; ++frame) {
        std::array<uint8_t, 6> bytes;
        if (end - position < bytes.size() || !file.readAllAt(position, bytes.data(), bytes.size()))
            return false;
        const std::optional<FrameHeader> header = parse(bytes.data());
        if (!header || (signature && *signature != header->signature))
            return false;
        signature = header->signature;
        if (end - position == header->bytes)
            return true;
        if (end - position < header->bytes)
            return frame > 0; // the last frame may be cut off
        position += header->bytes;
    }
    return true;
}

} // namespace

std::optional<FrameHeader> parseMpegFrame(uint32_t header)
{
    const uint32_t version = header >> 19 & 3;
    const uint32_t layer = header >> 17 & 3;
    const uint32_t rateIndex = header >> 10 & 3;
    const uint32_t bitRateIndex = header >> 12 & 15;
    const uint32_t emphasis = header & 3;
    if (header >> 21 != 0x7ff || version == 1 || layer == 0 || rateIndex == 3 || emphasis == 2)
        return std::nullopt;
    const uint32_t bitRate = bitRates(version, layer)[bitRateIndex] * 1000u;
    if (bitRate == 0)
        return std::nullopt;
    const uint32_t sampleRate = kSampleRates[version][rateIndex];
    const uint32_t padding = header >> 9 & 1;
    FrameHeader frame;
    if (layer == LayerI)
        frame.bytes = (12 * bitRate / sampleRate + padding) * 4;
    else
        frame.bytes = (layer == LayerIII && version != 3 ? 72 : 144) * bitRate / sampleRate + padding;
    frame.signature = header & 0xfffe0c00u;
    return frame;
}

std::optional<uint32_t> freeFormatLength(const InputFile& file, uint64_t begin, uint64_t end)
{
    constexpr uint32_t kSame = 0xfffefcc0u; // all but protection, padding and what may change from frame to frame
    constexpr size_t kMaximumFrameBytes = 3456;
    std::array<uint8_t, kMaximumFrameBytes + 8> bytes;
    const size_t available =
        file.readAt(begin, bytes.data(), static_cast<size_t>(std::min<uint64_t>(bytes.size(), end - begin)));
    if (available < 4)
        return std::nullopt;
    const uint32_t header = base::loadBig<uint32_t>(bytes.data());
    if (header >> 21 != 0x7ff || (header >> 17 & 3) == 0 || (header >> 12 & 15) != 0 || (header >> 10 & 3) == 3)
        return std::nullopt;
    for (uint32_t next = 5; next + 4 <= available; ++next) {
        if ((base::loadBig<uint32_t>(&bytes[next]) & kSame) == (header & kSame))
            return next - 4 - (header >> 9 & 1);
    }
    return std::nullopt;
}

std::optional<FrameHeader> parseAdtsFrame(const uint8_t* header)
{
    const uint32_t word = base::loadBig<uint32_t>(header);
    const uint32_t rateIndex = word >> 10 & 15;
    if (word >> 20 != 0xfff || (word >> 17 & 3) != 0 || rateIndex > 12)
        return std::nullopt;
    FrameHeader frame;
    frame.bytes = (word & 3) << 11 | static_cast<uint32_t>(header[4]) << 3 | header[5] >> 5;
    frame.signature = word & 0xfffefcc0u;
    if (frame.bytes < 7)
        return std::nullopt;
    return frame;
}

uint64_t skipLeadingTags(const InputFile& file, uint64_t offset)
{
    std::array<uint8_t, 10> header;
    for (int tag = 0; tag < kMaximumTags && file.readAllAt(offset, header.data(), header.size()); ++tag) {
        if (std::memcmp(header.data(), "ID3", 3) != 0)
            break;
        // Four bytes of 7 bits (ID3v2.4.0, 3.1); the length leaves out the header, and the footer if there is one.
        uint64_t length = 0;
        for (size_t i = 6; i < 10; ++i)
            length = length << 7 | (header[i] & 0x7f);
        offset += header.size() + length + (header[5] & 0x10 ? 10 : 0);
    }
    return offset;
}

uint64_t endWithoutTrailingTags(const InputFile& file)
{
    uint64_t end = file.size();
    std::array<uint8_t, 32> bytes;
    if (end > 128 && file.readAllAt(end - 128, bytes.data(), 3) && std::memcmp(bytes.data(), "TAG", 3) == 0)
        end -= 128;
    if (end > bytes.size() && file.readAllAt(end - bytes.size(), bytes.data(), bytes.size())
        && std::memcmp(bytes.data(), "APETAGEX", 8) == 0) {
        // The length in the footer includes the items and the footer. A header of 32 bytes may precede them.
        const uint64_t length = base::loadLittle<uint32_t>(&bytes[12])
            + (base::loadLittle<uint32_t>(&bytes[20]) & 0x80000000u ? uint64_t{32} : 0);
        if (length < end)
            end -= length;
    }
    return end;
}

std::optional<uint64_t> findMpegStart(const InputFile& file, uint64_t begin, uint64_t end, size_t searchBytes)
{
    if (begin >= end)
        return std::nullopt;
    std::vector<uint8_t> bytes(static_cast<size_t>(std::min<uint64_t>(searchBytes + 4, end - begin)));
    bytes.resize(file.readAt(begin, bytes.data(), bytes.size()));
    const auto parse = [](const uint8_t* header) {
        return parseMpegFrame(base::loadBig<uint32_t>(header));
    };
    for (size_t i = 0; i + 4 <= bytes.size(); ++i) {
        if (bytes[i] == 0xff && parse(&bytes[i]) && framesFollow(file, begin + i, end, parse))
            return begin + i;
    }
    return std::nullopt;
}

std::optional<MpegLength> lengthInFirstFrame(const InputFile& file, uint64_t begin)
{
    std::array<uint8_t, 64> frame{};
    if (!file.readAllAt(begin, frame.data(), frame.size()))
        return std::nullopt;
    const uint32_t header = base::loadBig<uint32_t>(frame.data());
    const std::optional<FrameHeader> parsed = parseMpegFrame(header);
    if (!parsed || (header >> 17 & 3) != LayerIII)
        return std::nullopt;
    // After the header and the side information of the one or two granules of a frame.
    const bool isFirstVersion = (header >> 19 & 3) == 3;
    const bool isMono = (header >> 6 & 3) == 3;
    const size_t xing = 4 + (isFirstVersion ? (isMono ? 17 : 32) : (isMono ? 9 : 17));
    constexpr size_t kVbri = 36;
    MpegLength length;
    if (std::memcmp(&frame[xing], "Xing", 4) == 0 || std::memcmp(&frame[xing], "Info", 4) == 0) {
        const uint32_t flags = base::loadBig<uint32_t>(&frame[xing + 4]);
        if (!(flags & 1))
            return std::nullopt;
        length.frames = base::loadBig<uint32_t>(&frame[xing + 8]);
        length.bytes = flags & 2 ? base::loadBig<uint32_t>(&frame[xing + 12]) : 0;
        return length;
    }
    if (std::memcmp(&frame[kVbri], "VBRI", 4) != 0)
        return std::nullopt;
    length.bytes = base::loadBig<uint32_t>(&frame[kVbri + 10]);
    length.frames = base::loadBig<uint32_t>(&frame[kVbri + 14]);
    return length;
}

bool startsWithAdts(const InputFile& file, uint64_t begin, uint64_t end)
{
    return begin < end && framesFollow(file, begin, end, parseAdtsFrame);
}

} // namespace engine
