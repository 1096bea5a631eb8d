#include "plain_header.hpp"

#include "bytes.hpp"
#include "chunks.hpp"

#include <array>
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
    constexpr uint32_t kLengthElsewhere = 0xffffffffu;
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
    HeaderWriter header(true);
    header.text("FORM");
    header.number(body.size() + dataLength, 4);
    std::vector<uint8_t> bytes = header.take();
    const std::vector<uint8_t> rest = body.take();
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
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

} // namespace

std::optional<Cursor> plainView(const std::shared_ptr<const SourceFile>& file, const FileKind& kind)
{
    const bool isWav = kind.type == KESS_SOUND_TYPE_WAV;
    if (!isWav && kind.type != KESS_SOUND_TYPE_AIFF)
        return Cursor(file, kind.begin, kind.end);
    const ChunkList chunks(*file, kind.begin, kind.end);
    const Chunk* data = chunks.find(isWav ? "data" : "SSND");
    if (!data)
        return !isWav && isMeantToBeEmpty(chunks) ? emptyAiff(file, kind, chunks) : std::nullopt;
    auto header = isWav ? wavHeader(chunks, data->length) : aiffHeader(*file, kind, chunks, data->length);
    if (!header)
        return std::nullopt;
    return Cursor(file, data->offset, data->offset + data->length, std::move(*header));
}

} // namespace kess
