#include "info.hpp"

#include "text.hpp"

#include <nlohmann/json.hpp>

#include <cmath>
#include <iostream>

namespace tnb {

namespace {

using Json = nlohmann::ordered_json;

// A sound of the list, or why nothing is known of it.
struct Listed
{
    SoundFacts facts;
    std::string fault;
};

Listed listSound(OpenedBank& bank, int index)
{
    Listed listed;
    try {
        listed.facts = bank.facts(index);
    } catch (const Failure& failure) {
        listed.facts.index = index;
        listed.fault = failure.what();
    }
    return listed;
}

// Names of codecs and sample formats, in JSON and for people.
struct Names
{
    const char* json;
    const char* shown;
};

Names namesOf(KESS_CODEC codec)
{
    switch (codec) {
    case KESS_CODEC_PCM:
        return {"pcm", "PCM"};
    case KESS_CODEC_XMA:
        return {"xma", "XMA"};
    case KESS_CODEC_AT9:
        return {"at9", "AT9"};
    case KESS_CODEC_VORBIS:
        return {"vorbis", "Vorbis"};
    case KESS_CODEC_KADPCM:
        return {"kadpcm", "KADPCM"};
    case KESS_CODEC_OPUS:
        return {"opus", "Opus"};
    default:
        return {"unknown", "unknown"};
    }
}

Names namesOf(KESS_SOUND_FORMAT format)
{
    switch (format) {
    case KESS_SOUND_FORMAT_PCM8:
        return {"pcm8", "8-bit"};
    case KESS_SOUND_FORMAT_PCM16:
        return {"pcm16", "16-bit"};
    case KESS_SOUND_FORMAT_PCM24:
        return {"pcm24", "24-bit"};
    case KESS_SOUND_FORMAT_PCM32:
        return {"pcm32", "32-bit"};
    case KESS_SOUND_FORMAT_PCMFLOAT:
        return {"float", "float"};
    default:
        return {"unknown", "unknown"};
    }
}

std::string guidOf(const KESS_BANKINFO& info)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text += '-';
        text += kDigits[info.guid[i] >> 4];
        text += kDigits[info.guid[i] & 15];
    }
    return text;
}

std::string versionOf(const KESS_BANKINFO& info)
{
    return std::to_string(info.majorVersion) + "." + std::to_string(info.minorVersion);
}

// Decoded bytes for each encoded one, and encoded bits for each sample; nothing for a sound without either.
std::optional<double> ratioOf(double decodedBytes, uint64_t bytes)
{
    return decodedBytes > 0 && bytes > 0 ? std::optional(decodedBytes / static_cast<double>(bytes)) : std::nullopt;
}

std::optional<double> bitsPerSample(const SoundFacts& facts)
{
    const double samples = static_cast<double>(facts.samples) * facts.channels;
    return samples > 0 ? std::optional(static_cast<double>(facts.bytes) * 8 / samples) : std::nullopt;
}

// Rounded so that equal banks give equal text on every machine.
Json rounded(const std::optional<double>& value, double steps)
{
    return value ? Json(std::round(*value * steps) / steps) : Json();
}

Json jsonOf(const Listed& listed)
{
    const SoundFacts& facts = listed.facts;
    Json json{{"index", facts.index}};
    if (!listed.fault.empty()) {
        json["error"] = listed.fault;
        return json;
    }
    json["name"] = facts.name;
    json["codec"] = namesOf(facts.codec).json;
    json["quality"] = facts.quality > 0 ? Json(facts.quality) : Json();
    json["sampleFormat"] = namesOf(facts.format).json;
    json["channels"] = facts.channels;
    json["rate"] = facts.rate;
    json["samples"] = facts.samples;
    json["seconds"] = rounded(facts.seconds(), 1e6);
    json["loop"] = facts.loop ? Json{{"start", facts.loop->start}, {"end", facts.loop->end}} : Json();
    json["syncPoints"] = Json::array();
    for (const SyncPoint& point : facts.syncPoints)
        json["syncPoints"].push_back({{"sample", point.sample}, {"name", point.name}});
    json["peak"] = facts.peak ? rounded(*facts.peak, 1e6) : Json();
    json["bytes"] = facts.bytes;
    json["bitsPerSample"] = rounded(bitsPerSample(facts), 1e3);
    json["ratio"] = rounded(ratioOf(facts.decodedBytes(), facts.bytes), 1e3);
    return json;
}

// Names and paths need not be UTF-8.
std::string textOf(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

// Sound after sound, so that memory doesn't grow with their number.
Status printJson(const std::string& path, OpenedBank& bank)
{
    const KESS_BANKINFO& info = bank.info();
    Json head;
    head["file"] = path;
    head["version"] = versionOf(info);
    head["codec"] = namesOf(info.codec).json;
    head["quality"] = info.quality > 0 ? Json(info.quality) : Json();
    head["bytes"] = info.fileBytes;
    head["encrypted"] = info.encrypted != 0;
    head["guid"] = info.hasGuid ? Json(guidOf(info)) : Json();
    head["names"] = info.hasNames != 0;
    std::string text = textOf(head);
    text.resize(text.rfind("\n}"));
    writeJson(std::cout, text, 0);
    std::cout << ",\n  \"sounds\": [";

    Status status = Status::Whole;
    for (int i = 0; i < bank.soundCount(); ++i) {
        const Listed listed = listSound(bank, i);
        if (!listed.fault.empty())
            status = Status::Damaged;
        std::cout << (i > 0 ? ",\n" : "\n");
        writeJson(std::cout, textOf(jsonOf(listed)), 4);
    }
    std::cout << (bank.soundCount() > 0 ? "\n  ]\n}\n" : "]\n}\n");
    return status;
}

std::string codecText(const SoundFacts& facts)
{
    std::string text = namesOf(facts.codec).shown;
    if (facts.codec == KESS_CODEC_PCM)
        text += std::string(" ") + namesOf(facts.format).shown;
    else if (facts.quality > 0)
        text += " " + std::to_string(facts.quality);
    return text;
}

std::string peakText(const std::optional<float>& peak)
{
    if (!peak)
        return "-";
    return *peak > 0 ? fixed(20 * std::log10(*peak), 1) + " dB" : "-inf dB";
}

std::string loopText(const std::optional<Loop>& loop)
{
    return loop ? std::to_string(loop->start) + "-" + std::to_string(loop->end) : "-";
}

std::string ratioText(const std::optional<double>& ratio)
{
    return ratio ? fixed(*ratio, 1) + ":1" : "-";
}

void printHead(const std::string& path, const KESS_BANKINFO& info)
{
    std::string format = namesOf(info.codec).shown;
    if (info.quality > 0)
        format += ", quality " + std::to_string(info.quality);
    std::cout << printable(path) << ": sound bank, version " << versionOf(info) << '\n'
              << "  format     " << format << '\n'
              << "  size       " << grouped(info.fileBytes) << " bytes\n"
              << "  encrypted  " << (info.encrypted ? "yes" : "no") << '\n'
              << "  GUID       " << (info.hasGuid ? guidOf(info) : "none") << '\n'
              << "  names      " << (info.hasNames ? "yes" : "none") << "\n\n";
}

// What a bank holds, in columns. Everything is read once for their widths and once more to be printed: to keep it would
// take many times the memory of the bank.
class Listing
{
public:
    explicit Listing(OpenedBank& bank)
        : mBank(bank)
    {
        for (int i = 0; i < bank.soundCount(); ++i)
            measure(listSound(bank, i));
    }

    void print()
    {
        std::cout << mTable.titles();
        for (int i = 0; i < mBank.soundCount(); ++i)
            std::cout << mTable.line(cellsOf(listSound(mBank, i)));
        if (!mWithPoints.empty())
            printSyncPoints();
        std::cout << '\n'
                  << grouped(static_cast<unsigned>(mBank.soundCount()))
                  << (mBank.soundCount() == 1 ? " sound, " : " sounds, ") << fixed(mSeconds, 3) << " s, "
                  << grouped(mBytes) << " bytes, " << ratioText(ratioOf(mDecodedBytes, mBytes)) << '\n';
    }

    [[nodiscard]] Status status() const { return mStatus; }

private:
    void measure(const Listed& listed)
    {
        const SoundFacts& facts = listed.facts;
        mTable.measure(cellsOf(listed));
        for (const SyncPoint& point : facts.syncPoints)
            mPointTable.measure(cellsOf(facts.index, point));
        if (!facts.syncPoints.empty())
            mWithPoints.push_back(facts.index);
        if (!listed.fault.empty())
            mStatus = Status::Damaged;
        mSeconds += facts.seconds();
        mDecodedBytes += facts.decodedBytes();
        mBytes += facts.bytes;
    }

    static std::vector<std::string> cellsOf(const Listed& listed)
    {
        const SoundFacts& facts = listed.facts;
        if (!listed.fault.empty())
            return {std::to_string(facts.index), "(" + listed.fault + ")", "", "", "", "", "", "", "", "", ""};
        return {std::to_string(facts.index),
                printable(facts.name),
                codecText(facts),
                std::to_string(facts.rate) + " Hz",
                std::to_string(facts.channels),
                fixed(facts.seconds(), 3) + " s",
                loopText(facts.loop),
                std::to_string(facts.syncPoints.size()),
                peakText(facts.peak),
                grouped(facts.bytes),
                ratioText(ratioOf(facts.decodedBytes(), facts.bytes))};
    }

    static std::vector<std::string> cellsOf(int sound, const SyncPoint& point)
    {
        return {std::to_string(sound), std::to_string(point.sample), printable(point.name)};
    }

    void printSyncPoints() const
    {
        std::cout << '\n' << mPointTable.titles();
        for (const int sound : mWithPoints) {
            for (const SyncPoint& point : mBank.facts(sound).syncPoints)
                std::cout << mPointTable.line(cellsOf(sound, point));
        }
    }

    OpenedBank& mBank;
    std::vector<int> mWithPoints; // the sounds that have sync points
    double mSeconds = 0; // of all sounds, as the two below
    double mDecodedBytes = 0;
    uint64_t mBytes = 0;
    Status mStatus = Status::Whole;
    Table mTable{{{"sound", Align::Right},
                  {"name", Align::Left},
                  {"codec", Align::Left},
                  {"rate", Align::Right},
                  {"channels", Align::Right},
                  {"length", Align::Right},
                  {"loop", Align::Right},
                  {"sync points", Align::Right},
                  {"peak", Align::Right},
                  {"bytes", Align::Right},
                  {"ratio", Align::Right}}};
    Table mPointTable{{{"sound", Align::Right}, {"sync point", Align::Right}, {"name", Align::Left}}};
};

} // namespace

Status showInfo(const InfoRequest& request)
{
    const Engine engine;
    OpenedBank bank(engine, request.bank, request.key);
    if (request.json)
        return printJson(request.bank, bank);
    Listing listing(bank);
    printHead(request.bank, bank.info());
    listing.print();
    return listing.status();
}

} // namespace tnb
