// SPDX-License-Identifier: MIT
#include "info.hpp"

#include "text.hpp"

#include <nlohmann/json.hpp>

#include <cmath>
#include <iostream>

namespace tnb {

namespace {

using Json = nlohmann::ordered_json;

// The properties of one sound, or the reason why they can't be read.
using Listed = base::Result<SoundProperties>;

// The name of a codec or sample format, in JSON and in text.
struct Names
{
    const char* json;
    const char* shown;
};

Names names(KESS_CODEC codec)
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

Names names(KESS_SOUND_FORMAT format)
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

std::string guidText(const KESS_BANKINFO& info)
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

std::string versionText(const KESS_BANKINFO& info)
{
    return std::to_string(info.majorVersion) + "." + std::to_string(info.minorVersion);
}

// Decoded bytes per encoded byte; nullopt if either is 0.
std::optional<double> compressionRatio(double decodedBytes, uint64_t bytes)
{
    return decodedBytes > 0 && bytes > 0 ? std::optional(decodedBytes / static_cast<double>(bytes)) : std::nullopt;
}

std::optional<double> bitsPerSample(const SoundProperties& sound)
{
    const double samples = static_cast<double>(sound.samples) * sound.channels;
    return samples > 0 ? std::optional(static_cast<double>(sound.bytes) * 8 / samples) : std::nullopt;
}

// Rounded so that equal banks give equal text on every machine.
Json rounded(const std::optional<double>& value, double steps)
{
    return value ? Json(std::round(*value * steps) / steps) : Json();
}

Json toJson(int index, const Listed& listed)
{
    Json json{{"index", index}};
    if (!listed) {
        json["error"] = listed.error().text;
        return json;
    }
    const SoundProperties& sound = *listed;
    json["name"] = sound.name;
    json["codec"] = names(sound.codec).json;
    json["quality"] = sound.quality > 0 ? Json(sound.quality) : Json();
    json["sampleFormat"] = names(sound.format).json;
    json["channels"] = sound.channels;
    json["rate"] = sound.rate;
    json["samples"] = sound.samples;
    json["seconds"] = rounded(sound.seconds(), 1e6);
    json["loop"] = sound.loop ? Json{{"start", sound.loop->start}, {"end", sound.loop->end}} : Json();
    json["syncPoints"] = Json::array();
    for (const base::SyncPoint& point : sound.syncPoints)
        json["syncPoints"].push_back({{"sample", point.frame}, {"name", point.name}});
    json["peak"] = sound.peak ? rounded(*sound.peak, 1e6) : Json();
    json["bytes"] = sound.bytes;
    json["bitsPerSample"] = rounded(bitsPerSample(sound), 1e3);
    json["ratio"] = rounded(compressionRatio(sound.decodedBytes(), sound.bytes), 1e3);
    return json;
}

// Names and paths may be invalid UTF-8, which is replaced.
std::string toText(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

// Writes sound after sound, so that memory doesn't grow with their number.
Status printJson(const std::string& path, OpenedBank& bank)
{
    const KESS_BANKINFO& info = bank.info();
    Json head;
    head["file"] = path;
    head["version"] = versionText(info);
    head["codec"] = names(info.codec).json;
    head["quality"] = info.quality > 0 ? Json(info.quality) : Json();
    head["bytes"] = info.fileBytes;
    head["encrypted"] = info.encrypted != 0;
    head["guid"] = info.hasGuid ? Json(guidText(info)) : Json();
    head["names"] = info.hasNames != 0;
    std::string text = toText(head);
    text.resize(text.rfind("\n}"));
    writeJson(std::cout, text, 0);
    std::cout << ",\n  \"sounds\": [";

    Status status = Status::Success;
    for (int i = 0; i < bank.soundCount(); ++i) {
        const Listed listed = bank.properties(i);
        if (!listed)
            status = Status::Damaged;
        std::cout << (i > 0 ? ",\n" : "\n");
        writeJson(std::cout, toText(toJson(i, listed)), 4);
    }
    std::cout << (bank.soundCount() > 0 ? "\n  ]\n}\n" : "]\n}\n");
    return status;
}

std::string codecText(const SoundProperties& sound)
{
    std::string text = names(sound.codec).shown;
    if (sound.codec == KESS_CODEC_PCM)
        text += std::string(" ") + names(sound.format).shown;
    else if (sound.quality > 0)
        text += " " + std::to_string(sound.quality);
    return text;
}

std::string peakText(const std::optional<float>& peak)
{
    if (!peak)
        return "-";
    return *peak > 0 ? fixed(20 * std::log10(*peak), 1) + " dB" : "-inf dB";
}

std::string loopText(const std::optional<base::Loop>& loop)
{
    return loop ? std::to_string(loop->start) + "-" + std::to_string(loop->end) : "-";
}

std::string ratioText(const std::optional<double>& ratio)
{
    return ratio ? fixed(*ratio, 1) + ":1" : "-";
}

void printHead(const std::string& path, const KESS_BANKINFO& info)
{
    std::string format = names(info.codec).shown;
    if (info.quality > 0)
        format += ", quality " + std::to_string(info.quality);
    std::cout << printable(path) << ": sound bank, version " << versionText(info) << '\n'
              << "  format     " << format << '\n'
              << "  size       " << grouped(info.fileBytes) << " bytes\n"
              << "  encrypted  " << (info.encrypted ? "yes" : "no") << '\n'
              << "  GUID       " << (info.hasGuid ? guidText(info) : "none") << '\n'
              << "  names      " << (info.hasNames ? "yes" : "none") << "\n\n";
}

// The contents of a bank in columns. All sounds are read twice, once for the widths of the columns and once for
// printing: keeping them would take many times the memory of the bank.
class Listing
{
public:
    explicit Listing(OpenedBank& bank)
        : mBank(bank)
    {
        for (int i = 0; i < bank.soundCount(); ++i)
            measure(i, bank.properties(i));
    }

    void print()
    {
        std::cout << mTable.titles();
        for (int i = 0; i < mBank.soundCount(); ++i)
            std::cout << mTable.line(cells(i, mBank.properties(i)));
        if (!mWithPoints.empty())
            printSyncPoints();
        std::cout << '\n'
                  << grouped(static_cast<unsigned>(mBank.soundCount()))
                  << (mBank.soundCount() == 1 ? " sound, " : " sounds, ") << fixed(mSeconds, 3) << " s, "
                  << grouped(mBytes) << " bytes, " << ratioText(compressionRatio(mDecodedBytes, mBytes)) << '\n';
    }

    [[nodiscard]] Status status() const { return mStatus; }

private:
    void measure(int index, const Listed& listed)
    {
        mTable.measure(cells(index, listed));
        if (!listed) {
            mStatus = Status::Damaged;
            return;
        }
        const SoundProperties& sound = *listed;
        for (const base::SyncPoint& point : sound.syncPoints)
            mPointTable.measure(cells(index, point));
        if (!sound.syncPoints.empty())
            mWithPoints.push_back(index);
        mSeconds += sound.seconds();
        mDecodedBytes += sound.decodedBytes();
        mBytes += sound.bytes;
    }

    static std::vector<std::string> cells(int index, const Listed& listed)
    {
        if (!listed)
            return {std::to_string(index), "(" + listed.error().text + ")", "", "", "", "", "", "", "", "", ""};
        const SoundProperties& sound = *listed;
        return {std::to_string(index),
                printable(sound.name),
                codecText(sound),
                std::to_string(sound.rate) + " Hz",
                std::to_string(sound.channels),
                fixed(sound.seconds(), 3) + " s",
                loopText(sound.loop),
                std::to_string(sound.syncPoints.size()),
                peakText(sound.peak),
                grouped(sound.bytes),
                ratioText(compressionRatio(sound.decodedBytes(), sound.bytes))};
    }

    static std::vector<std::string> cells(int index, const base::SyncPoint& point)
    {
        return {std::to_string(index), std::to_string(point.frame), printable(point.name)};
    }

    void printSyncPoints() const
    {
        std::cout << '\n' << mPointTable.titles();
        for (const int sound : mWithPoints) {
            const Listed listed = mBank.properties(sound);
            for (const base::SyncPoint& point : listed ? listed->syncPoints : std::vector<base::SyncPoint>())
                std::cout << mPointTable.line(cells(sound, point));
        }
    }

    OpenedBank& mBank;
    std::vector<int> mWithPoints; // the sounds that have sync points
    double mSeconds = 0; // of all sounds, like the next two
    double mDecodedBytes = 0;
    uint64_t mBytes = 0;
    Status mStatus = Status::Success;
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

base::Result<Status> showInfo(const InfoRequest& request)
{
    const base::Result<Engine> engine = startEngine();
    if (!engine)
        return engine.error();
    base::Result<OpenedBank> bank = OpenedBank::open(**engine, request.bank, request.key);
    if (!bank)
        return std::move(bank.error());
    if (request.json)
        return printJson(request.bank, *bank);
    Listing listing(*bank);
    printHead(request.bank, bank->info());
    listing.print();
    return listing.status();
}

} // namespace tnb
