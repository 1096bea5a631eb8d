// SPDX-License-Identifier: MIT
#include "json.hpp"

#include "text.hpp"

#include <cmath>
#include <iostream>

namespace tnb {

namespace {

std::optional<double> bitsPerSample(const SoundProperties& sound)
{
    const double samples = static_cast<double>(sound.samples) * sound.channels;
    return samples > 0 ? std::optional(static_cast<double>(sound.bytes) * 8 / samples) : std::nullopt;
}

std::string toText(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

} // namespace

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

std::optional<double> compressionRatio(double decodedBytes, uint64_t bytes)
{
    return decodedBytes > 0 && bytes > 0 ? std::optional(decodedBytes / static_cast<double>(bytes)) : std::nullopt;
}

Json rounded(const std::optional<double>& value, double steps)
{
    return value ? Json(std::round(*value * steps) / steps) : Json();
}

Json toJson(const std::string& path, const KESS_BANKINFO& info)
{
    return {{"file", path},
            {"version", versionText(info)},
            {"codec", names(info.codec).json},
            {"quality", info.quality > 0 ? Json(info.quality) : Json()},
            {"bytes", info.fileBytes},
            {"encrypted", info.encrypted != 0},
            {"guid", info.hasGuid ? Json(guidText(info)) : Json()},
            {"names", info.hasNames != 0}};
}

Json toJson(const SoundProperties& sound)
{
    Json json{{"index", sound.index}, {"name", sound.name}, {"codec", names(sound.codec).json}};
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

JsonOutput::JsonOutput()
{
    std::cout << '{';
}

JsonOutput::~JsonOutput()
{
    std::cout << (mHasMembers ? "\n}\n" : "}\n");
}

void JsonOutput::member(const std::string& name, const Json& value)
{
    // As part of an object, so that the lines of the value are indented.
    std::string text = toText(Json{{name, value}});
    text.resize(text.rfind("\n}"));
    std::cout << (mHasMembers ? "," : "");
    writeJson(std::cout, text.substr(1), 0);
    mHasMembers = true;
}

void JsonOutput::beginArray(const std::string& name)
{
    std::cout << (mHasMembers ? ",\n" : "\n") << "  " << toText(name) << ": [";
    mHasMembers = true;
    mHasItems = false;
}

void JsonOutput::item(const Json& value)
{
    std::cout << (mHasItems ? ",\n" : "\n");
    writeJson(std::cout, toText(value), 4);
    mHasItems = true;
}

void JsonOutput::endArray()
{
    std::cout << (mHasItems ? "\n  ]" : "]");
}

} // namespace tnb
