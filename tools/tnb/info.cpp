#include "info.hpp"

#include "text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
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

std::vector<Listed> listSounds(OpenedBank& bank)
{
    std::vector<Listed> sounds;
    for (int i = 0; i < bank.soundCount(); ++i) {
        Listed listed;
        try {
            listed.facts = bank.facts(i);
        } catch (const Failure& failure) {
            listed.facts.index = i;
            listed.fault = failure.what();
        }
        sounds.push_back(std::move(listed));
    }
    return sounds;
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

bool hasQuality(KESS_CODEC codec)
{
    return codec != KESS_CODEC_PCM && codec != KESS_CODEC_KADPCM;
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

void printJson(const std::string& path, const KESS_BANKINFO& info, const std::vector<Listed>& sounds)
{
    Json json;
    json["file"] = path;
    json["version"] = versionOf(info);
    json["codec"] = namesOf(info.codec).json;
    json["quality"] = hasQuality(info.codec) && info.quality > 0 ? Json(info.quality) : Json();
    json["bytes"] = info.fileBytes;
    json["encrypted"] = info.encrypted != 0;
    json["guid"] = info.hasGuid ? Json(guidOf(info)) : Json();
    json["names"] = info.hasNames != 0;
    json["sounds"] = Json::array();
    for (const Listed& listed : sounds)
        json["sounds"].push_back(jsonOf(listed));
    // Names and paths need not be UTF-8.
    std::cout << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
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

std::vector<std::string> cellsOf(const Listed& listed)
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

void printHead(const std::string& path, const KESS_BANKINFO& info)
{
    std::string format = namesOf(info.codec).shown;
    if (hasQuality(info.codec) && info.quality > 0)
        format += ", quality " + std::to_string(info.quality);
    std::cout << printable(path) << ": sound bank, version " << versionOf(info) << '\n'
              << "  format     " << format << '\n'
              << "  size       " << grouped(info.fileBytes) << " bytes\n"
              << "  encrypted  " << (info.encrypted ? "yes" : "no") << '\n'
              << "  GUID       " << (info.hasGuid ? guidOf(info) : "none") << '\n'
              << "  names      " << (info.hasNames ? "yes" : "none") << "\n\n";
}

void printTable(const std::vector<Listed>& sounds)
{
    Table table({{"sound", Align::Right},
                 {"name", Align::Left},
                 {"codec", Align::Left},
                 {"rate", Align::Right},
                 {"channels", Align::Right},
                 {"length", Align::Right},
                 {"loop", Align::Right},
                 {"sync points", Align::Right},
                 {"peak", Align::Right},
                 {"bytes", Align::Right},
                 {"ratio", Align::Right}});
    for (const Listed& listed : sounds)
        table.add(cellsOf(listed));
    std::cout << table.text();
}

void printSyncPoints(const std::vector<Listed>& sounds)
{
    Table table({{"sound", Align::Right}, {"sync point", Align::Right}, {"name", Align::Left}});
    bool any = false;
    for (const Listed& listed : sounds) {
        for (const SyncPoint& point : listed.facts.syncPoints) {
            table.add({std::to_string(listed.facts.index), std::to_string(point.sample), printable(point.name)});
            any = true;
        }
    }
    if (any)
        std::cout << '\n' << table.text();
}

void printTotal(const std::vector<Listed>& sounds)
{
    double seconds = 0;
    double decoded = 0;
    uint64_t bytes = 0;
    for (const Listed& listed : sounds) {
        seconds += listed.facts.seconds();
        decoded += listed.facts.decodedBytes();
        bytes += listed.facts.bytes;
    }
    std::cout << '\n'
              << grouped(sounds.size()) << (sounds.size() == 1 ? " sound, " : " sounds, ") << fixed(seconds, 3)
              << " s, " << grouped(bytes) << " bytes, " << ratioText(ratioOf(decoded, bytes)) << '\n';
}

} // namespace

Status showInfo(const InfoRequest& request)
{
    const Engine engine;
    OpenedBank bank(engine, request.bank, request.key);
    const std::vector<Listed> sounds = listSounds(bank);
    if (request.json) {
        printJson(request.bank, bank.info(), sounds);
    } else {
        printHead(request.bank, bank.info());
        printTable(sounds);
        printSyncPoints(sounds);
        printTotal(sounds);
    }
    const bool damaged = std::any_of(sounds.begin(), sounds.end(), [](const Listed& s) { return !s.fault.empty(); });
    return damaged ? Status::Damaged : Status::Whole;
}

} // namespace tnb
