// SPDX-License-Identifier: MIT
// Banks and sounds as JSON, in the form described by docs/schemas.
#pragma once

#include "opened_bank.hpp"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace tnb {

using Json = nlohmann::ordered_json;

// The name of a codec or sample format, in JSON and in text.
struct Names
{
    const char* json;
    const char* shown;
};

[[nodiscard]] Names names(KESS_CODEC codec);
[[nodiscard]] Names names(KESS_SOUND_FORMAT format);
[[nodiscard]] std::string guidText(const KESS_BANKINFO& info);
[[nodiscard]] std::string versionText(const KESS_BANKINFO& info);

// Decoded bytes per encoded byte; nothing if either is 0.
[[nodiscard]] std::optional<double> compressionRatio(double decodedBytes, uint64_t bytes);

// Rounded to 1/steps, so that equal banks give equal text on every machine.
[[nodiscard]] Json rounded(const std::optional<double>& value, double steps);

[[nodiscard]] Json toJson(const std::string& path, const KESS_BANKINFO& info);
[[nodiscard]] Json toJson(const SoundProperties& sound);

// Prints one JSON object to standard output, and the items of its arrays one by one, so that memory doesn't grow with
// their number. Names and paths may be invalid UTF-8, which is replaced.
class JsonOutput
{
public:
    JsonOutput();

    // The object ends with the last member.
    ~JsonOutput();
    JsonOutput(const JsonOutput&) = delete;
    JsonOutput& operator=(const JsonOutput&) = delete;

    void member(const std::string& name, const Json& value);

    void beginArray(const std::string& name);
    void item(const Json& value);
    void endArray();

private:
    bool mHasMembers = false;
    bool mHasItems = false; // in the current array
};

} // namespace tnb
