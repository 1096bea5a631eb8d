#include "parse/tags.hpp"

#include "parse/bytes.hpp"
#include "parse/chunks.hpp"
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

namespace kess {

namespace {

constexpr size_t kLongestTagChunk = 32u << 20;
constexpr size_t kMaxSyncPoints = 65536;
constexpr size_t kMaxComments = 65536;
constexpr size_t kLongestName = 1024;

// Adds what the file claims, as far as it lies inside the sound.
class TagCollector
{
public:
    explicit TagCollector(SoundFacts* facts)
        : mFacts(*facts)
    { }

    // Many programs count the end one sample further than the format wants it, and some editors cut a sound and leave
    // its loop as it was.
    void loop(uint64_t start, uint64_t end)
    {
        end = std::min(end, mFacts.sampleCount);
        if (start < end)
            mFacts.loop = Loop{start, end};
    }

    void syncPoint(uint64_t sample, std::string name)
    {
        if (sample > mFacts.sampleCount)
            return;
        if (mFacts.syncPoints.size() < kMaxSyncPoints)
            mFacts.syncPoints.push_back(SyncPoint{sample, std::move(name)});
        else
            ++mFacts.droppedSyncPoints;
    }

    // So many more couldn't be read, or their names couldn't.
    void dropSyncPoints(uint64_t count) { mFacts.droppedSyncPoints += count; }
    void dropNames() { mFacts.droppedNames = mFacts.syncPoints.size(); }

    void finish()
    {
        std::stable_sort(mFacts.syncPoints.begin(), mFacts.syncPoints.end(),
                         [](const SyncPoint& left, const SyncPoint& right) { return left.sample < right.sample; });
    }

private:
    SoundFacts& mFacts;
};

bool isUtf8(std::string_view text)
{
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<uint8_t>(text[i]);
        const size_t length = lead < 0x80 ? 1
            : lead >= 0xc2 && lead < 0xe0 ? 2
            : lead >= 0xe0 && lead < 0xf0 ? 3
            : lead >= 0xf0 && lead < 0xf5 ? 4
                                          : 0;
        if (length == 0 || i + length > text.size())
            return false;
        for (size_t j = 1; j < length; ++j) {
            if ((static_cast<uint8_t>(text[i + j]) & 0xc0) != 0x80)
                return false;
        }
        i += length;
    }
    return true;
}

// Text up to its first NUL. Old programs write names in Latin-1: what isn't UTF-8 is taken for that.
std::string nameFrom(const uint8_t* bytes, size_t count)
{
    std::string_view text(reinterpret_cast<const char*>(bytes), std::min(count, kLongestName));
    text = text.substr(0, text.find('\0'));
    if (isUtf8(text))
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

// Reads numbers in the order of bytes that the container has.
struct Order
{
    bool bigEndian;
    [[nodiscard]] uint32_t u32(const uint8_t* bytes) const { return bigEndian ? be32(bytes) : le32(bytes); }
};

// *isComplete is cleared where there are more of them than are read.
std::map<uint32_t, std::string> readLabels(const ChunkList& chunks, const Order& order, bool* isComplete)
{
    std::map<uint32_t, std::string> labels;
    for (const Chunk& chunk : chunks.all()) {
        if (std::string_view(chunk.id.data(), 4) != "LIST")
            continue;
        *isComplete = *isComplete && chunk.length <= kLongestTagChunk;
        const std::vector<uint8_t> list = chunks.readAll(chunk, kLongestTagChunk);
        if (list.size() < 4 || std::memcmp(list.data(), "adtl", 4) != 0)
            continue;
        for (size_t i = 4; i + 12 <= list.size();) {
            const size_t length = order.u32(&list[i + 4]);
            const size_t data = i + 8;
            if (length > list.size() - data)
                break;
            if (std::memcmp(&list[i], "labl", 4) == 0 && length >= 4)
                labels[order.u32(&list[data])] = nameFrom(list.data() + data + 4, length - 4);
            i = data + length + (length & 1);
        }
    }
    return labels;
}

void readWavTags(const SourceFile& file, const FileKind& kind, TagCollector& collector)
{
    const ChunkList chunks(file, kind.begin, kind.end);
    const Order order{chunks.isBigEndian()};

    constexpr size_t kSamplerHeader = 36;
    constexpr size_t kSamplerLoop = 24;
    const std::vector<uint8_t> sampler = chunks.readAll("smpl", kLongestTagChunk);
    if (sampler.size() >= kSamplerHeader + kSamplerLoop && order.u32(&sampler[28]) > 0) {
        // The first loop is the one that sounds while a note is held. Its last sample is played.
        const uint8_t* loop = &sampler[kSamplerHeader];
        collector.loop(order.u32(loop + 8), uint64_t{order.u32(loop + 12)} + 1);
    }

    constexpr size_t kCueHeader = 4;
    constexpr size_t kCuePoint = 24;
    const Chunk* chunk = chunks.find("cue ");
    std::vector<uint8_t> cues(chunk ? size_t(std::min<uint64_t>(chunk->length, kCueHeader + kMaxSyncPoints * kCuePoint))
                                    : 0);
    if (cues.size() < kCueHeader || !chunks.read("cue ", cues.data(), cues.size()))
        return;
    bool isComplete = true;
    std::map<uint32_t, std::string> labels = readLabels(chunks, order, &isComplete);
    const uint64_t there = std::min<uint64_t>(order.u32(cues.data()), (chunk->length - kCueHeader) / kCuePoint);
    const size_t count = std::min<size_t>(there, (cues.size() - kCueHeader) / kCuePoint);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* point = &cues[kCueHeader + i * kCuePoint];
        collector.syncPoint(order.u32(point + 20), labels[order.u32(point)]);
    }
    collector.dropSyncPoints(there - count);
    if (!isComplete)
        collector.dropNames();
}

// Markers of an AIFF file by their id, and in the order of the file.
struct AiffMarker
{
    uint16_t id;
    uint64_t sample;
    std::string name;
};

std::vector<AiffMarker> readAiffMarkers(const std::vector<uint8_t>& bytes)
{
    std::vector<AiffMarker> markers;
    if (bytes.size() < 2)
        return markers;
    const size_t count = be16(bytes.data());
    size_t position = 2;
    while (markers.size() < count && position + 7 <= bytes.size()) {
        const size_t length = bytes[position + 6];
        if (length > bytes.size() - position - 7)
            break;
        markers.push_back(AiffMarker{be16(&bytes[position]), be32(&bytes[position + 2]),
                                     nameFrom(bytes.data() + position + 7, length)});
        position += 7 + length;
        position += position & 1; // the length byte and the text together are padded to an even number
    }
    return markers;
}

void readAiffTags(const SourceFile& file, const FileKind& kind, TagCollector& collector)
{
    const ChunkList chunks(file, kind.begin, kind.end);
    const std::vector<AiffMarker> markers = readAiffMarkers(chunks.readAll("MARK", kLongestTagChunk));
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
            const uint16_t first = be16(&instrument[loop + 2]);
            const uint16_t last = be16(&instrument[loop + 4]);
            if (be16(&instrument[loop]) == 0 || find(first) == markers.end() || find(last) == markers.end())
                continue;
            used.insert(used.end(), {first, last});
            // A marker stands between two samples: that of the end is the one behind the last sample.
            if (loop == kSustain)
                collector.loop(find(first)->sample, find(last)->sample);
        }
    }
    for (const AiffMarker& marker : markers) {
        if (std::find(used.begin(), used.end(), marker.id) == used.end())
            collector.syncPoint(marker.sample, marker.name);
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

// "HH:MM:SS.mmm", in seconds. Not by the C library, whose decimal point depends on the locale.
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
    constexpr uint64_t kLongest = 1'000'000;
    if (!hours || !minutes || *hours > kLongest || *minutes > kLongest || error != std::errc{} || stop != end
        || !(seconds >= 0) || seconds > static_cast<double>(kLongest))
        return std::nullopt;
    return static_cast<double>(*hours) * 3600 + static_cast<double>(*minutes) * 60 + seconds;
}

using Comments = std::map<std::string, std::string>; // by name in capitals

// The list of comments as Vorbis writes it, which all of Xiph's formats share (Vorbis I, 5.2).
Comments parseComments(const std::vector<uint8_t>& bytes)
{
    Comments comments;
    size_t position = 0;
    const auto readLength = [&](size_t* length) {
        if (bytes.size() - position < 4)
            return false;
        *length = le32(&bytes[position]);
        position += 4;
        return true;
    };
    size_t length = 0;
    size_t count = 0;
    if (!readLength(&length) || length > bytes.size() - position)
        return comments;
    position += length;
    if (!readLength(&count))
        return comments;
    for (size_t i = 0; i < count && comments.size() < kMaxComments; ++i) {
        if (!readLength(&length) || length > bytes.size() - position)
            break;
        const std::string_view text(reinterpret_cast<const char*>(bytes.data()) + position, length);
        position += length;
        const size_t equals = text.find('=');
        if (equals == text.npos || length > kLongestName)
            continue;
        std::string name(text.substr(0, equals));
        for (char& character : name) {
            if (character >= 'a' && character <= 'z')
                character = static_cast<char>(character - 'a' + 'A');
        }
        comments.emplace(std::move(name), text.substr(equals + 1));
    }
    return comments;
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
std::vector<uint8_t> flacComments(const SourceFile& file, uint64_t begin)
{
    constexpr uint8_t kCommentBlock = 4;
    constexpr int kMaxBlocks = 256;
    constexpr size_t kLongestComments = 16u << 20;
    uint64_t position = begin + 4;
    std::array<uint8_t, 4> header;
    for (int block = 0; block < kMaxBlocks && file.readAllAt(position, header.data(), header.size()); ++block) {
        const size_t length = be24(&header[1]);
        position += header.size();
        if ((header[0] & 0x7f) == kCommentBlock) {
            std::vector<uint8_t> bytes(std::min({length, kLongestComments, static_cast<size_t>(file.size())}));
            return file.readAllAt(position, bytes.data(), bytes.size()) ? bytes : std::vector<uint8_t>{};
        }
        if (header[0] & 0x80)
            break;
        position += length;
    }
    return {};
}

} // namespace

uint64_t commentCount(const SourceFile& file)
{
    uint64_t most = 0;
    for (const std::vector<uint8_t>& bytes : allOggComments(file)) {
        const uint64_t vendorBytes = bytes.size() < 4 ? 0 : le32(bytes.data());
        if (bytes.size() >= 8 && vendorBytes <= bytes.size() - 8)
            most = std::max<uint64_t>(most, le32(&bytes[4 + vendorBytes]));
    }
    return most;
}

void readTags(const SourceFile& file, const FileKind& kind, SoundFacts* facts)
{
    TagCollector collector(facts);
    switch (kind.type) {
    case KESS_SOUND_TYPE_WAV:
        readWavTags(file, kind, collector);
        break;
    case KESS_SOUND_TYPE_AIFF:
        readAiffTags(file, kind, collector);
        break;
    case KESS_SOUND_TYPE_FLAC:
        readCommentTags(parseComments(flacComments(file, kind.begin)), facts->sampleRate, collector);
        break;
    case KESS_SOUND_TYPE_OGG:
        readCommentTags(parseComments(oggComments(file)), facts->sampleRate, collector);
        break;
    default:
        break;
    }
    collector.finish();
}

} // namespace kess
