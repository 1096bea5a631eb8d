// SPDX-License-Identifier: MIT
#include "diff_report.hpp"

#include "text.hpp"

#include <cmath>
#include <iostream>

namespace tnb {

namespace {

const std::string& nameOf(const SoundNames& names, int index)
{
    static const std::string kNone;
    const std::optional<std::string>& name = names[static_cast<size_t>(index)];
    return name ? *name : kNone;
}

class JsonReport final : public DiffReport
{
public:
    void banks(const Json& oldBank, const Json& newBank, const Json& changes) override
    {
        mOutput.member("old", oldBank);
        mOutput.member("new", newBank);
        mOutput.member("bank", changes);
    }

    void removed(const std::vector<int>& indices, const SoundNames& oldNames) override
    {
        list("removed", indices, oldNames);
    }

    void added(const std::vector<int>& indices, const SoundNames& newNames) override
    {
        list("added", indices, newNames);
    }

    void moved(const std::vector<SoundPair>& pairs, const SoundNames& newNames) override
    {
        mOutput.beginArray("moved");
        for (const SoundPair& pair : pairs)
            mOutput.item(identity(pair, nameOf(newNames, pair.newIndex)));
        mOutput.endArray();
    }

    void beginChanged() override { mOutput.beginArray("changed"); }

    void changed(const SoundChange& change) override
    {
        Json json = identity(change.pair, change.name);
        json["by"] = change.audio ? "audio" : !change.facts.empty() ? "facts" : "encoding";
        json["audio"] = Json();
        if (change.audio) {
            const std::optional<uint64_t>& first = change.audio->firstSample;
            json["audio"] = {{"firstSample", first ? Json(*first) : Json()},
                             {"largest", rounded(change.audio->largest, 1e12)}};
        }
        json["facts"] = change.facts;
        json["encoding"] = change.encoding;
        mOutput.item(json);
    }

    void finish(const DiffSummary& summary) override
    {
        mOutput.endArray();
        mOutput.beginArray("errors");
        for (const Json& failure : summary.failures)
            mOutput.item(failure);
        mOutput.endArray();
        const Status status = summary.status();
        mOutput.member("same", status == Status::CannotRead ? Json() : Json(status == Status::Same));
    }

private:
    static Json identity(const SoundPair& pair, const std::string& name)
    {
        return {{"name", name}, {"oldIndex", pair.oldIndex}, {"newIndex", pair.newIndex}};
    }

    void list(const char* member, const std::vector<int>& indices, const SoundNames& names)
    {
        mOutput.beginArray(member);
        for (const int index : indices)
            mOutput.item({{"index", index}, {"name", nameOf(names, index)}});
        mOutput.endArray();
    }

    JsonOutput mOutput;
};

// "4", or "4-20" for several.
std::string rangeText(int first, size_t count)
{
    const int last = first + static_cast<int>(count) - 1;
    return std::to_string(first) + (count > 1 ? "-" + std::to_string(last) : "");
}

// A value of a changed member as text.
std::string valueText(const std::string& member, const Json& value)
{
    if (value.is_null())
        return "none";
    if (value.is_boolean())
        return value.get<bool>() ? "yes" : "no";
    if (member == "loop")
        return value["start"].dump() + "-" + value["end"].dump();
    if (member == "syncPoints")
        return std::to_string(value.size());
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string changeText(const std::string& member, const Json& change)
{
    if (member == "checksum")
        return "other data";
    const std::string before = valueText(member, change["old"]);
    const std::string after = valueText(member, change["new"]);
    const std::string shown = member == "syncPoints" ? "sync points" : member == "guid" ? "GUID" : member;
    return shown + (before == after ? " changed" : " " + before + " -> " + after);
}

std::string audioText(const AudioDifference& audio)
{
    if (!audio.firstSample)
        return "audio can't be compared sample by sample";
    std::string text = "audio from sample " + grouped(*audio.firstSample) + " on";
    if (audio.largest)
        text += ", by up to " + fixed(20 * std::log10(*audio.largest), 1) + " dB";
    return text;
}

class TextReport final : public DiffReport
{
public:
    void banks(const Json& oldBank, const Json& newBank, const Json& changes) override
    {
        std::cout << printable(oldBank["file"].get<std::string>()) << " -> "
                  << printable(newBank["file"].get<std::string>()) << '\n';
        for (const auto& [member, change] : changes.items())
            std::cout << "  bank     " << changeText(member, change) << '\n';
    }

    void removed(const std::vector<int>& indices, const SoundNames& oldNames) override
    {
        for (const int index : indices)
            line("removed", std::to_string(index), nameOf(oldNames, index));
    }

    void added(const std::vector<int>& indices, const SoundNames& newNames) override
    {
        for (const int index : indices)
            line("added", std::to_string(index), nameOf(newNames, index));
    }

    // Sounds that stayed in order are one line.
    void moved(const std::vector<SoundPair>& pairs, const SoundNames& newNames) override
    {
        for (size_t first = 0, count = 0; first < pairs.size(); first += count) {
            const SoundPair& start = pairs[first];
            for (count = 1; first + count < pairs.size(); ++count) {
                const SoundPair& next = pairs[first + count];
                const int step = static_cast<int>(count);
                if (next.oldIndex != start.oldIndex + step || next.newIndex != start.newIndex + step)
                    break;
            }
            line("moved", rangeText(start.oldIndex, count) + " -> " + rangeText(start.newIndex, count),
                 count > 1 ? grouped(count) + " sounds" : nameOf(newNames, start.newIndex));
        }
    }

    void beginChanged() override { }

    void changed(const SoundChange& change) override
    {
        std::string text;
        const auto add = [&text](const std::string& part) {
            text += (text.empty() ? "" : "; ") + part;
        };
        if (change.audio)
            add(audioText(*change.audio));
        for (const Json& group : {change.facts, change.encoding}) {
            for (const auto& [member, value] : group.items()) {
                // Other data are no news if the audio or the size has changed.
                if (member != "checksum" || text.empty())
                    add(changeText(member, value));
            }
        }
        const auto [before, after] = change.pair;
        line("changed", std::to_string(before) + (before == after ? "" : " -> " + std::to_string(after)), change.name,
             text);
    }

    void finish(const DiffSummary& summary) override
    {
        const auto count = [](size_t number, const char* what) {
            return grouped(number) + " " + what;
        };
        if (summary.status() == Status::Same)
            std::cout << "no difference\n";
        else
            std::cout << count(summary.removed, "removed, ") << count(summary.added, "added, ")
                      << count(summary.moved, "moved, ") << count(summary.changed, "changed")
                      << (summary.failures.empty() ? "" : ", " + count(summary.failures.size(), "can't be read"))
                      << '\n';
    }

private:
    static void line(const char* kind, const std::string& index, const std::string& name, const std::string& text = {})
    {
        std::cout << "  " << kind << std::string(9 - std::char_traits<char>::length(kind), ' ') << index
                  << (name.empty() ? "" : ": " + printable(name)) << (text.empty() ? "" : ": " + text) << '\n';
    }
};

} // namespace

Status DiffSummary::status() const
{
    if (!failures.empty())
        return Status::CannotRead;
    return banksDiffer || removed + added + moved + changed > 0 ? Status::Different : Status::Same;
}

std::unique_ptr<DiffReport> makeTextReport()
{
    return std::make_unique<TextReport>();
}

std::unique_ptr<DiffReport> makeJsonReport()
{
    return std::make_unique<JsonReport>();
}

} // namespace tnb
