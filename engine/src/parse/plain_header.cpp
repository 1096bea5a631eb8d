#include "parse/plain_header.hpp"

#include "parse/bytes.hpp"
#include "parse/chunks.hpp"
#include "parse/sound_facts.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <string_view>

namespace kess {

namespace {

// Formats with a table of coefficients or a name are longer than the plain ones, but not by this much.
constexpr size_t kLongestFormat = 4096;

// Puts a header together.
class HeaderWriter
{
public:
    explicit HeaderWriter(bool bigEndian)
        : mBigEndian(bigEndian)
    { }

    void text(std::string_view text) { mBytes.insert(mBytes.end(), text.begin(), text.end()); }

    void number(uint64_t value, int bytes)
    {
        for (int i = 0; i < bytes; ++i) {
            const int shift = 8 * (mBigEndian ? bytes - 1 - i : i);
            mBytes.push_back(static_cast<uint8_t>(value >> shift));
        }
    }

    void chunk(std::string_view id, const std::vector<uint8_t>& data)
    {
        text(id);
        number(data.size(), 4);
        mBytes.insert(mBytes.end(), data.begin(), data.end());
        if (data.size() % 2)
            mBytes.push_back(0);
    }

    [[nodiscard]] size_t size() const { return mBytes.size(); }
    [[nodiscard]] std::vector<uint8_t> take() { return std::move(mBytes); }

private:
    bool mBigEndian;
    std::vector<uint8_t> mBytes;
};

std::optional<std::vector<uint8_t>> wavHeader(const ChunkList& chunks, uint64_t dataLength)
{
    constexpr uint64_t kLongestRiff = 0xffff0000u;
    const std::vector<uint8_t> format = chunks.readAll("fmt ", kLongestFormat);
    if (format.empty())
        return std::nullopt;
    HeaderWriter body(chunks.isBigEndian());
    body.chunk("fmt ", format);
    std::vector<uint8_t> fact = chunks.readAll("fact", kLongestFormat);
    fact.resize(fact.size() < 4 ? 0 : 4);
    if (!fact.empty())
        body.chunk("fact", fact);

    HeaderWriter header(chunks.isBigEndian());
    const bool isLong = dataLength > kLongestRiff && !chunks.isBigEndian();
    if (isLong) {
        constexpr uint64_t kSizesChunk = 36; // the two lengths, the count of samples and an empty table
        const uint64_t riffLength = 4 + kSizesChunk + body.size() + 8 + dataLength;
        header.text("RF64");
        header.number(kLengthElsewhere, 4);
        header.text("WAVEds64");
        header.number(kSizesChunk - 8, 4);
        header.number(riffLength, 8);
        header.number(dataLength, 8);
        header.number(0, 8);
        header.number(0, 4);
    } else {
        header.text(chunks.isBigEndian() ? "RIFX" : "RIFF");
        header.number(4 + body.size() + 8 + dataLength, 4);
        header.text("WAVE");
    }
    std::vector<uint8_t> bytes = header.take();
    body.text("data");
    body.number(isLong ? kLengthElsewhere : dataLength, 4);
    const std::vector<uint8_t> rest = body.take();
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

// The whole of a FORM: its body so far, with samples of dataLength bytes to follow.
std::vector<uint8_t> formOf(HeaderWriter& body, uint64_t dataLength)
{
    HeaderWriter header(true);
    header.text("FORM");
    header.number(body.size() + dataLength, 4);
    std::vector<uint8_t> bytes = header.take();
    const std::vector<uint8_t> rest = body.take();
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

std::optional<std::vector<uint8_t>> aiffHeader(const SourceFile& file, const FileKind& kind, const ChunkList& chunks,
                                               uint64_t dataLength)
{
    const std::vector<uint8_t> common = chunks.readAll("COMM", kLongestFormat);
    char type[4];
    if (common.empty() || !file.readAllAt(kind.begin + 8, type, sizeof type))
        return std::nullopt;
    HeaderWriter body(true);
    body.text(std::string_view(type, sizeof type));
    body.chunk("COMM", common);
    body.text("SSND");
    body.number(dataLength, 4);
    return formOf(body, dataLength);
}

// A header of the old Amiga format, whose samples are in BODY. No other chunk but these is needed to decode them.
std::optional<std::vector<uint8_t>> amigaHeader(const SourceFile& file, const FileKind& kind, const ChunkList& chunks,
                                                uint64_t dataLength)
{
    const std::vector<uint8_t> voice = chunks.readAll("VHDR", kLongestFormat);
    const std::vector<uint8_t> channels = chunks.readAll("CHAN", kLongestFormat);
    char type[4];
    if (voice.empty() || !file.readAllAt(kind.begin + 8, type, sizeof type))
        return std::nullopt;
    HeaderWriter body(true);
    body.text(std::string_view(type, sizeof type));
    body.chunk("VHDR", voice);
    if (!channels.empty())
        body.chunk("CHAN", channels);
    body.text("BODY");
    body.number(dataLength, 4);
    return formOf(body, dataLength);
}

bool isAmiga(const SourceFile& file, const FileKind& kind)
{
    std::array<char, 4> magic;
    return kind.type == KESS_SOUND_TYPE_OTHER && file.readAllAt(kind.begin, magic.data(), magic.size())
        && std::string_view(magic.data(), magic.size()) == "FORM";
}

// A file of no samples needs no chunk for them, as its format says (Audio Interchange File Format 1.3). A chunk that is
// missing although there are samples was cut off.
bool isMeantToBeEmpty(const ChunkList& chunks)
{
    std::array<uint8_t, 6> common;
    return chunks.read("COMM", common.data(), common.size()) && be32(&common[2]) == 0;
}

std::optional<Cursor> emptyAiff(const std::shared_ptr<const SourceFile>& file, const FileKind& kind,
                                const ChunkList& chunks)
{
    constexpr size_t kBeforeSamples = 8; // two numbers that every chunk of samples begins with
    auto header = aiffHeader(*file, kind, chunks, kBeforeSamples);
    if (!header)
        return std::nullopt;
    header->resize(header->size() + kBeforeSamples);
    return Cursor(file, kind.end, kind.end, std::move(*header));
}

// Whether a WAV format is one of plain samples that are stored in the way in which they are delivered. Programs that
// padded samples or counted bits in ways of their own exist, so everything that is told must agree.
bool isPlain(const std::vector<uint8_t>& format, const SoundFacts& facts)
{
    constexpr uint16_t kIntegers = 1;
    constexpr uint16_t kFloats = 3;
    constexpr uint16_t kExtensible = 0xfffe;
    constexpr size_t kExtensibleBytes = 40;
    // What follows the number of the encoding in a GUID that stands for one.
    static constexpr std::array<uint8_t, 14> kGuidRest{0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xaa, 0, 0x38, 0x9b, 0x71};
    if (format.size() < 16)
        return false;
    const size_t sampleBytes = bytesPerSample(facts.format);
    const size_t bits = 8 * sampleBytes;
    uint16_t encoding = le16(&format[0]);
    if (encoding == kExtensible) {
        if (format.size() < kExtensibleBytes || le16(&format[18]) != bits
            || !std::equal(kGuidRest.begin(), kGuidRest.end(), &format[26]))
            return false;
        encoding = le16(&format[24]);
    }
    // Samples of 8 bits are stored without a sign and delivered with one.
    const bool isFloat = facts.format == KESS_SOUND_FORMAT_PCMFLOAT;
    return sampleBytes > 1 && encoding == (isFloat ? kFloats : kIntegers) && le16(&format[2]) == facts.channels
        && le16(&format[12]) == static_cast<size_t>(facts.channels) * sampleBytes && le16(&format[14]) == bits;
}

} // namespace

std::optional<RawSamples> rawSamples(const SourceFile& file, const FileKind& kind, const SoundFacts& facts)
{
    static_assert(std::endian::native == std::endian::little, "samples are delivered in the processor's order");
    if (kind.type != KESS_SOUND_TYPE_WAV)
        return std::nullopt;
    const ChunkList chunks(file, kind.begin, kind.end);
    const Chunk* data = chunks.find("data");
    if (!data || chunks.isBigEndian() || !isPlain(chunks.readAll("fmt ", kLongestFormat), facts))
        return std::nullopt;
    const uint64_t frameBytes = static_cast<uint64_t>(facts.channels) * bytesPerSample(facts.format);
    if (facts.sampleCount == 0 || facts.sampleCount != data->length / frameBytes)
        return std::nullopt;
    return RawSamples{data->offset, facts.sampleCount * frameBytes};
}

std::optional<Cursor> plainView(const std::shared_ptr<const SourceFile>& file, const FileKind& kind)
{
    const bool isWav = kind.type == KESS_SOUND_TYPE_WAV;
    const bool isOld = isAmiga(*file, kind);
    if (!isWav && !isOld && kind.type != KESS_SOUND_TYPE_AIFF)
        return Cursor(file, kind.begin, kind.end);
    const ChunkList chunks(*file, kind.begin, kind.end);
    const Chunk* data = chunks.find(isWav ? "data" : isOld ? "BODY" : "SSND");
    if (!data)
        return !isWav && !isOld && isMeantToBeEmpty(chunks) ? emptyAiff(file, kind, chunks) : std::nullopt;
    auto header = isWav ? wavHeader(chunks, data->length)
        : isOld         ? amigaHeader(*file, kind, chunks, data->length)
                        : aiffHeader(*file, kind, chunks, data->length);
    if (!header)
        return std::nullopt;
    return Cursor(file, data->offset, data->offset + data->length, std::move(*header));
}

} // namespace kess
