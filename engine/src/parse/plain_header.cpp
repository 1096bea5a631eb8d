// SPDX-License-Identifier: MIT
#include "parse/plain_header.hpp"

#include "base/bytes.hpp"
#include "parse/sound_facts.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <string_view>

namespace engine {

namespace {

// Formats that include a table of coefficients or a name are longer than others, but not as long as this.
constexpr size_t kMaximumFormatBytes = 4096;

// Assembles a header.
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
    constexpr uint64_t kMaximumRiffBytes = 0xffff0000u;
    const std::vector<uint8_t> format = chunks.readAll("fmt ", kMaximumFormatBytes);
    if (format.empty())
        return std::nullopt;
    HeaderWriter body(chunks.isBigEndian());
    body.chunk("fmt ", format);
    std::vector<uint8_t> fact = chunks.readAll("fact", kMaximumFormatBytes);
    fact.resize(fact.size() < 4 ? 0 : 4);
    if (!fact.empty())
        body.chunk("fact", fact);

    HeaderWriter header(chunks.isBigEndian());
    const bool isLong = dataLength > kMaximumRiffBytes && !chunks.isBigEndian();
    if (isLong) {
        constexpr uint64_t kSizesChunk = 36; // the two lengths, the count of samples and an empty table
        const uint64_t riffLength = 4 + kSizesChunk + body.size() + 8 + dataLength;
        header.text("RF64");
        header.number(kLengthInDs64, 4);
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
    body.number(isLong ? kLengthInDs64 : dataLength, 4);
    const std::vector<uint8_t> rest = body.take();
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

// A complete FORM: its body so far, to be followed by dataLength bytes of samples.
std::vector<uint8_t> makeForm(HeaderWriter& body, uint64_t dataLength)
{
    HeaderWriter header(true);
    header.text("FORM");
    header.number(body.size() + dataLength, 4);
    std::vector<uint8_t> bytes = header.take();
    const std::vector<uint8_t> rest = body.take();
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

std::optional<std::vector<uint8_t>> aiffHeader(const RecognisedFile& file, uint64_t dataLength)
{
    const std::vector<uint8_t> common = file.chunks.readAll("COMM", kMaximumFormatBytes);
    char type[4];
    if (common.empty() || !file.file->readAllAt(file.kind.begin + 8, type, sizeof type))
        return std::nullopt;
    HeaderWriter body(true);
    body.text(std::string_view(type, sizeof type));
    body.chunk("COMM", common);
    body.text("SSND");
    body.number(dataLength, 4);
    return makeForm(body, dataLength);
}

// A header of the old Amiga format, whose samples are in BODY. Decoding needs no other chunk.
std::optional<std::vector<uint8_t>> amigaHeader(const RecognisedFile& file, uint64_t dataLength)
{
    const std::vector<uint8_t> voice = file.chunks.readAll("VHDR", kMaximumFormatBytes);
    const std::vector<uint8_t> channels = file.chunks.readAll("CHAN", kMaximumFormatBytes);
    char type[4];
    if (voice.empty() || !file.file->readAllAt(file.kind.begin + 8, type, sizeof type))
        return std::nullopt;
    HeaderWriter body(true);
    body.text(std::string_view(type, sizeof type));
    body.chunk("VHDR", voice);
    if (!channels.empty())
        body.chunk("CHAN", channels);
    body.text("BODY");
    body.number(dataLength, 4);
    return makeForm(body, dataLength);
}

// A file without samples needs no chunk for them (Audio Interchange File Format 1.3). If there are samples, a missing
// chunk was cut off.
bool isMeantToBeEmpty(const ChunkList& chunks)
{
    std::array<uint8_t, 6> common;
    return chunks.read("COMM", common.data(), common.size()) && base::loadBig<uint32_t>(&common[2]) == 0;
}

std::optional<Cursor> emptyAiff(const RecognisedFile& file)
{
    constexpr size_t kBeforeSamples = 8; // two numbers at the start of every chunk of samples
    auto header = aiffHeader(file, kBeforeSamples);
    if (!header)
        return std::nullopt;
    header->resize(header->size() + kBeforeSamples);
    return Cursor(file.file, file.kind.end, file.kind.end, std::move(*header));
}

// Whether a WAV format stores plain samples exactly as they are delivered. Some programs pad samples or count bits in
// their own way, so all fields must agree.
bool isPlain(const std::vector<uint8_t>& format, const SoundFacts& facts)
{
    constexpr uint16_t kIntegers = 1;
    constexpr uint16_t kFloats = 3;
    constexpr uint16_t kExtensible = 0xfffe;
    constexpr size_t kExtensibleBytes = 40;
    // The rest of the GUID of an encoding, after the number.
    static constexpr std::array<uint8_t, 14> kGuidRest{0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xaa, 0, 0x38, 0x9b, 0x71};
    if (format.size() < 16)
        return false;
    const size_t sampleBytes = bytesPerSample(facts.format);
    const size_t bits = 8 * sampleBytes;
    uint16_t encoding = base::loadLittle<uint16_t>(&format[0]);
    if (encoding == kExtensible) {
        if (format.size() < kExtensibleBytes || base::loadLittle<uint16_t>(&format[18]) != bits
            || !std::equal(kGuidRest.begin(), kGuidRest.end(), &format[26]))
            return false;
        encoding = base::loadLittle<uint16_t>(&format[24]);
    }
    // Samples of 8 bits are stored without a sign and delivered with one.
    const bool isFloat = facts.format == KESS_SOUND_FORMAT_PCMFLOAT;
    return sampleBytes > 1 && encoding == (isFloat ? kFloats : kIntegers)
        && base::loadLittle<uint16_t>(&format[2]) == facts.channels
        && base::loadLittle<uint16_t>(&format[12]) == static_cast<size_t>(facts.channels) * sampleBytes
        && base::loadLittle<uint16_t>(&format[14]) == bits;
}

} // namespace

std::optional<RawSamples> rawSamples(const RecognisedFile& file, const SoundFacts& facts)
{
    static_assert(std::endian::native == std::endian::little, "samples are delivered in the processor's order");
    if (file.kind.type != KESS_SOUND_TYPE_WAV)
        return std::nullopt;
    const ChunkList& chunks = file.chunks;
    const Chunk* data = chunks.find("data");
    if (!data || chunks.isBigEndian() || !isPlain(chunks.readAll("fmt ", kMaximumFormatBytes), facts))
        return std::nullopt;
    const uint64_t frameBytes = static_cast<uint64_t>(facts.channels) * bytesPerSample(facts.format);
    if (facts.sampleCount == 0 || facts.sampleCount != data->length / frameBytes)
        return std::nullopt;
    return RawSamples{data->offset, facts.sampleCount * frameBytes};
}

std::optional<Cursor> plainView(const RecognisedFile& file)
{
    const ChunkList& chunks = file.chunks;
    const bool isWav = file.kind.type == KESS_SOUND_TYPE_WAV;
    const bool isAiff = file.kind.type == KESS_SOUND_TYPE_AIFF;
    if (!isWav && !chunks.isForm())
        return file.cursor();
    const Chunk* data = chunks.find(isWav ? "data" : isAiff ? "SSND" : "BODY");
    if (!data)
        return isAiff && isMeantToBeEmpty(chunks) ? emptyAiff(file) : std::nullopt;
    auto header = isWav ? wavHeader(chunks, data->length)
        : isAiff        ? aiffHeader(file, data->length)
                        : amigaHeader(file, data->length);
    if (!header)
        return std::nullopt;
    return Cursor(file.file, data->offset, data->offset + data->length, std::move(*header));
}

} // namespace engine
