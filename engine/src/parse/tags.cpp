// SPDX-License-Identifier: MIT
#include "parse/tags.hpp"

#include "base/bytes.hpp"
#include "base/utf8.hpp"
#include "parse/comments.hpp"
#include "parse/ogg_packets.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace engine {

namespace {

constexpr size_t kMaximumTagChunkBytes = 32u << 20;
constexpr size_t kMaximumSyncPoints = 65536;
constexpr size_t kMaximumNameBytes = 1024;

// Collects the markers of a file that lie inside its sound.
class TagCollector
{
public:
    explicit TagCollector(SoundFacts& facts)
        : mFacts(facts)
    { }

    // Many programs store an end that is one sample too high, and some editors shorten a sound and leave its loop
    // unchanged.
    void loop(uint64_t start, uint64_t end)
    {
        end = std::min(end, mFacts.sampleCount);
        if (start < end)
            mFacts.loop = base::Loop{start, end};
    }

    void syncPoint(uint64_t frame, std::string name)
    {
        if (frame > mFacts.sampleCount)
            return;
        if (mFacts.syncPoints.size() < kMaximumSyncPoints)
            mFacts.syncPoints.push_back({frame, std::move(name)});
        else
            ++mDropped;
    }

    // Called if this many further sync points weren't read, or if no names were.
    void dropSyncPoints(uint64_t count) { mDropped += count; }
    void dropNames() { mDropsNames = true; }

    void finish()
    {
        std::stable_sort(
            mFacts.syncPoints.begin(), mFacts.syncPoints.end(),
            [](const base::SyncPoint& left, const base::SyncPoint& right) { return left.frame < right.frame; });
        if (mDropped > 0)
            mFacts.remarks.push_back(std::to_string(mDropped)
                                     + " of its markers were left out, because a sound can't have more than "
                                     + std::to_string(kMaximumSyncPoints));
        if (mDropsNames && !mFacts.syncPoints.empty())
            mFacts.remarks.emplace_back("the names of its markers are left out, because they are too long in total");
    }

private:
    SoundFacts& mFacts;
    uint64_t mDropped = 0; // sync points
    bool mDropsNames = false;
};

// A text up to its first NUL. Old programs write names in Latin-1, so text that isn't UTF-8 is read as Latin-1.
std::string nameFrom(const uint8_t* bytes, size_t count)
{
    std::string_view text(reinterpret_cast<const char*>(bytes), std::min(count, kMaximumNameBytes));
    text = text.substr(0, text.find('\0'));
    if (base::isUtf8(text))
        return std::string(text);
    std::string converted;
    for (char character : text) {
        const auto code = static_cast<uint8_t>(character);
        if (code < 0x80) {
            converted += character;
        } else {
            converted += static_cast<char>(0xc0 | code >> 6);
            converted += static_cast<char>(0x80 | (code & 0x3f));
        }
    }
    return converted;
}

// Loads numbers in the byte order of the container.
struct ByteOrder
{
    bool isBigEndian;
    [[nodiscard]] uint32_t load32(const uint8_t* bytes) const
    {
        return isBigEndian ? base::loadBig<uint32_t>(bytes) : base::loadLittle<uint32_t>(bytes);
    }
};

// The names of cue points by identifier. Reports to the collector if there are more than are read.
std::map<uint32_t, std::string> readLabels(const ChunkList& chunks, const ByteOrder& order, TagCollector& collector)
{
    std::map<uint32_t, std::string> labels;
    for (const Chunk& chunk : chunks.all()) {
        if (std::string_view(chunk.id.data(), 4) != "LIST")
            continue;
        if (chunk.length > kMaximumTagChunkBytes)
            collector.dropNames();
        const std::vector<uint8_t> list = chunks.readAll(chunk, kMaximumTagChunkBytes);
        if (list.size() < 4 || std::memcmp(list.data(), "adtl", 4) != 0)
            continue;
        for (size_t i = 4; i + 12 <= list.size();) {
            const size_t length = order.load32(&list[i + 4]);
            const size_t data = i + 8;
            if (length > list.size() - data)
                break;
            if (std::memcmp(&list[i], "labl", 4) == 0 && length >= 4)
                labels[order.load32(&list[data])] = nameFrom(list.data() + data + 4, length - 4);
            i = data + length + (length & 1);
        }
    }
    return labels;
}

void readWavLoop(const ChunkList& chunks, const ByteOrder& order, TagCollector& collector)
{
    constexpr size_t kSamplerHeader = 36;
    constexpr size_t kSamplerLoop = 24;
    const std::vector<uint8_t> sampler = chunks.readAll("smpl", kMaximumTagChunkBytes);
    if (sampler.size() < kSamplerHeader + kSamplerLoop || order.load32(&sampler[28]) == 0)
        return;
    // The first loop is the one that is played while a note is held. Its last sample is included.
    const uint8_t* loop = &sampler[kSamplerHeader];
    collector.loop(order.load32(loop + 8), uint64_t{order.load32(loop + 12)} + 1);
}

void readWavTags(const ChunkList& chunks, TagCollector& collector)
{
    const ByteOrder order{chunks.isBigEndian()};
    readWavLoop(chunks, order, collector);

    constexpr size_t kCueHeader = 4;
    constexpr size_t kCuePoint = 24;
    const Chunk* chunk = chunks.find("cue ");
    const uint64_t available = chunk ? chunk->length : 0;
    std::vector<uint8_t> cues(size_t(std::min<uint64_t>(available, kCueHeader + kMaximumSyncPoints * kCuePoint)));
    if (cues.size() < kCueHeader || !chunks.read("cue ", cues.data(), cues.size()))
        return;
    std::map<uint32_t, std::string> labels = readLabels(chunks, order, collector);
    const uint64_t stored = std::min<uint64_t>(order.load32(cues.data()), (available - kCueHeader) / kCuePoint);
    const size_t count = std::min<size_t>(stored, (cues.size() - kCueHeader) / kCuePoint);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* point = &cues[kCueHeader + i * kCuePoint];
        collector.syncPoint(order.load32(point + 20), labels[order.load32(point)]);
    }
    collector.dropSyncPoints(stored - count);
}

// A marker of an AIFF file.
struct AiffMarker
{
    uint16_t id;
    uint64_t frame;
    std::string name;
};

std::vector<AiffMarker> readAiffMarkers(const std::vector<uint8_t>& bytes)
{
    std::vector<AiffMarker> markers;
    if (bytes.size() < 2)
        return markers;
    const size_t count = base::loadBig<uint16_t>(bytes.data());
    size_t position = 2;
    while (markers.size() < count && position + 7 <= bytes.size()) {
        const size_t length = bytes[position + 6];
        if (length > bytes.size() - position - 7)
            break;
        markers.push_back(AiffMarker{base::loadBig<uint16_t>(&bytes[position]),
                                     base::loadBig<uint32_t>(&bytes[position + 2]),
                                     nameFrom(bytes.data() + position + 7, length)});
        position += 7 + length;
        position += position & 1; // the length byte and the text together are padded to an even number
    }
    return markers;
}

void readAiffTags(const ChunkList& chunks, TagCollector& collector)
{
    const std::vector<AiffMarker> markers = readAiffMarkers(chunks.readAll("MARK", kMaximumTagChunkBytes));
    const auto find = [&](uint16_t id) {
        return std::find_if(markers.begin(), markers.end(), [&](const AiffMarker& marker) { return marker.id == id; });
    };

    // Offsets of the two loops in the instrument: play mode, first and last marker each.
    constexpr size_t kSustain = 8;
    constexpr size_t kRelease = 14;
    std::vector<uint16_t> used;
    std::array<uint8_t, 20> instrument;
    if (chunks.read("INST", instrument.data(), instrument.size())) {
        for (size_t loop : {kRelease, kSustain}) {
            const uint16_t first = base::loadBig<uint16_t>(&instrument[loop + 2]);
            const uint16_t last = base::loadBig<uint16_t>(&instrument[loop + 4]);
            if (base::loadBig<uint16_t>(&instrument[loop]) == 0 || find(first) == markers.end()
                || find(last) == markers.end())
                continue;
            used.insert(used.end(), {first, last});
            // A marker lies between two samples: the marker of the end lies after the last sample.
            if (loop == kSustain)
                collector.loop(find(first)->frame, find(last)->frame);
        }
    }
    for (const AiffMarker& marker : markers) {
        if (std::find(used.begin(), used.end(), marker.id) == used.end())
            collector.syncPoint(marker.frame, marker.name);
    }
}

std::optional<uint64_t> parseNumber(std::string_view text)
{
    uint64_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || stop != text.data() + text.size())
        return std::nullopt;
    return number;
}

// Parses "HH:MM:SS.mmm" and returns seconds. The C library isn't used: its decimal point depends on the locale.
std::optional<double> parseTime(std::string_view text)
{
    const size_t first = text.find(':');
    const size_t second = first == text.npos ? text.npos : text.find(':', first + 1);
    if (second == text.npos)
        return std::nullopt;
    const std::optional<uint64_t> hours = parseNumber(text.substr(0, first));
    const std::optional<uint64_t> minutes = parseNumber(text.substr(first + 1, second - first - 1));
    const char* end = text.data() + text.size();
    double seconds = 0;
    const auto [stop, error] = std::from_chars(text.data() + second + 1, end, seconds, std::chars_format::fixed);
    constexpr uint64_t kMaximumValue = 1'000'000;
    if (!hours || !minutes || *hours > kMaximumValue || *minutes > kMaximumValue || error != std::errc{} || stop != end
        || !(seconds >= 0) || seconds > static_cast<double>(kMaximumValue))
        return std::nullopt;
    return static_cast<double>(*hours) * 3600 + static_cast<double>(*minutes) * 60 + seconds;
}

void readCommentTags(const Comments& comments, double sampleRate, TagCollector& collector)
{
    const auto number = [&](const char* name) -> std::optional<uint64_t> {
        const auto found = comments.find(name);
        return found == comments.end() ? std::nullopt : parseNumber(found->second);
    };
    const std::optional<uint64_t> start = number("LOOPSTART");
    const std::optional<uint64_t> length = number("LOOPLENGTH");
    const std::optional<uint64_t> end = number("LOOPEND");
    if (start && length)
        collector.loop(*start, *start + std::min(*length, UINT64_MAX - *start));
    else if (start && end)
        collector.loop(*start, *end);

    constexpr std::string_view kChapter = "CHAPTER";
    for (auto entry = comments.lower_bound(std::string(kChapter)); entry != comments.end(); ++entry) {
        const auto& [name, value] = *entry;
        if (!name.starts_with(kChapter))
            break;
        if (!parseNumber(std::string_view(name).substr(kChapter.size())))
            continue;
        const std::optional<double> time = parseTime(value);
        if (!time)
            continue;
        const auto title = comments.find(name + "NAME");
        std::string text;
        if (title != comments.end())
            text = nameFrom(reinterpret_cast<const uint8_t*>(title->second.data()), title->second.size());
        collector.syncPoint(static_cast<uint64_t>(std::llround(*time * sampleRate)), std::move(text));
    }
}

// The block of comments among a FLAC file's metadata blocks.
std::vector<uint8_t> flacComments(const RecognisedFile& recognised)
{
    constexpr uint8_t kCommentBlock = 4;
    constexpr int kMaximumBlocks = 256;
    constexpr size_t kMaximumBlockBytes = 16u << 20;
    const InputFile& file = *recognised.file;
    uint64_t offset = recognised.kind.begin + 4;
    std::array<uint8_t, 4> header;
    for (int block = 0; block < kMaximumBlocks && file.readAllAt(offset, header.data(), header.size()); ++block) {
        const size_t length = base::loadBig<uint32_t>(header.data()) & 0xffffff;
        offset += header.size();
        if ((header[0] & 0x7f) == kCommentBlock) {
            std::vector<uint8_t> bytes(std::min({length, kMaximumBlockBytes, static_cast<size_t>(file.size())}));
            return file.readAllAt(offset, bytes.data(), bytes.size()) ? bytes : std::vector<uint8_t>{};
        }
        if (header[0] & 0x80)
            break;
        offset += length;
    }
    return {};
}

} // namespace

void readTags(const RecognisedFile& file, SoundFacts& facts)
{
    TagCollector collector(facts);
    switch (file.kind.type) {
    case KESS_SOUND_TYPE_WAV:
        readWavTags(file.chunks, collector);
        break;
    case KESS_SOUND_TYPE_AIFF:
        readAiffTags(file.chunks, collector);
        break;
    case KESS_SOUND_TYPE_FLAC:
        readCommentTags(parseComments(flacComments(file)), facts.sampleRate, collector);
        break;
    case KESS_SOUND_TYPE_OGG:
        readCommentTags(parseComments(oggComments(*file.file)), facts.sampleRate, collector);
        break;
    default:
        break;
    }
    collector.finish();
}

} // namespace engine
