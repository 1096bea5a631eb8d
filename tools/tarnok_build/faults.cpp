// SPDX-License-Identifier: MIT
#include "faults.hpp"

#include "console_remarks.hpp"

#include <algorithm>

namespace tarnok_build {

namespace {

const char* wordOf(Severity severity)
{
    return severity == Severity::Warning ? "warning" : "error";
}

} // namespace

bool Faults::has(Severity severity) const
{
    return std::any_of(mFaults.begin(), mFaults.end(),
                       [severity](const Fault& fault) { return fault.severity <= severity; });
}

QString describe(const Fault& fault)
{
    QString text = fault.file;
    if (fault.line > 0)
        text += ":" + QString::number(fault.line);
    return TARNOK::withEscapedControls(text + ": " + wordOf(fault.severity) + ": " + fault.text);
}

nlohmann::ordered_json asJson(const Fault& fault)
{
    nlohmann::ordered_json json = {{"file", fault.file.toStdString()}};
    if (fault.line > 0)
        json["line"] = fault.line;
    json["severity"] = wordOf(fault.severity);
    json["code"] = fault.code;
    json["text"] = fault.text.toStdString();
    return json;
}

std::string dumped(const nlohmann::ordered_json& value)
{
    return value.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace tarnok_build
