// SPDX-License-Identifier: MIT
#include "diff.hpp"

#include "diff_report.hpp"
#include "json.hpp"
#include "text.hpp"

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <iostream>
#include <iterator>

namespace tnb {

namespace {

// A bank, and the names of its sounds.
struct Side
{
    const char* label; // "old" or "new"
    const std::string& path;
    OpenedBank bank;
    SoundNames names;
};

// The members that differ, each as an object with the old and the new value.
Json changedMembers(const Json& left, const Json& right, std::initializer_list<const char*> names)
{
    Json changes = Json::object();
    for (const char* name : names) {
        if (left[name] != right[name])
            changes[name] = {{"old", left[name]}, {"new", right[name]}};
    }
    return changes;
}

Json encodingJson(const SoundProperties& sound)
{
    Json json = toJson(sound);
    json["tableBytes"] = sound.tableBytes;
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(sound.checksum));
    json["checksum"] = digits;
    return json;
}

class Comparison
{
public:
    Comparison(Side oldSide, Side newSide, DiffReport& report)
        : mOld(std::move(oldSide))
        , mNew(std::move(newSide))
        , mReport(report)
    { }

    Status run()
    {
        const Json oldHead = toJson(mOld.path, mOld.bank.info());
        const Json newHead = toJson(mNew.path, mNew.bank.info());
        const Json changes =
            changedMembers(oldHead, newHead, {"version", "codec", "quality", "encrypted", "guid", "names"});
        mSummary.banksDiffer = !changes.empty();
        mReport.banks(oldHead, newHead, changes);
        readNames(mOld);
        readNames(mNew);
        const bool haveNames = mOld.bank.info().hasNames != 0 && mNew.bank.info().hasNames != 0;
        const SoundPairs pairs = haveNames ? pairByName(mOld.names, mNew.names) : pairByIndex(mOld.names, mNew.names);
        mReport.removed(pairs.removed, mOld.names);
        mReport.added(pairs.added, mNew.names);
        std::vector<SoundPair> moved;
        std::copy_if(pairs.kept.begin(), pairs.kept.end(), std::back_inserter(moved),
                     [](const SoundPair& pair) { return pair.oldIndex != pair.newIndex; });
        mReport.moved(moved, mNew.names);
        mSummary.removed = pairs.removed.size();
        mSummary.added = pairs.added.size();
        mSummary.moved = moved.size();
        mReport.beginChanged();
        for (const SoundPair& pair : pairs.kept)
            compare(pair);
        mReport.finish(mSummary);
        return mSummary.status();
    }

private:
    void readNames(Side& side)
    {
        side.names.resize(static_cast<size_t>(side.bank.soundCount()));
        for (int i = 0; i < side.bank.soundCount(); ++i) {
            if (base::Result<std::string> name = side.bank.name(i))
                side.names[static_cast<size_t>(i)] = std::move(*name);
            else
                fail(side, i, name.error());
        }
    }

    // A sound whose data match their checksum; otherwise reports the failure.
    SoundPointer openSound(Side& side, int index)
    {
        base::Result<SoundPointer> sound = side.bank.sound(index);
        if (!sound) {
            fail(side, index, sound.error());
            return {};
        }
        if (const KESS_RESULT result = (*sound)->verifyData(); result != KESS_OK) {
            fail(side, index, engineError(result));
            return {};
        }
        return std::move(*sound);
    }

    void compare(const SoundPair& pair)
    {
        const base::Result<SoundProperties> oldFacts = mOld.bank.properties(pair.oldIndex);
        const base::Result<SoundProperties> newFacts = mNew.bank.properties(pair.newIndex);
        if (!oldFacts)
            return fail(mOld, pair.oldIndex, oldFacts.error());
        if (!newFacts)
            return fail(mNew, pair.newIndex, newFacts.error());
        const SoundPointer oldSound = openSound(mOld, pair.oldIndex);
        const SoundPointer newSound = openSound(mNew, pair.newIndex);
        if (!oldSound || !newSound)
            return;
        const base::Result<std::optional<AudioDifference>> audio =
            compareAudio({*oldSound, *oldFacts}, {*newSound, *newFacts});
        if (!audio)
            return fail(mNew, pair.newIndex,
                        {audio.error().code, "its audio can't be compared: " + audio.error().text});

        const Json oldJson = encodingJson(*oldFacts);
        const Json newJson = encodingJson(*newFacts);
        SoundChange change{pair, newFacts->name, *audio, {}, {}};
        change.facts = changedMembers(oldJson, newJson,
                                      {"sampleFormat", "channels", "rate", "samples", "loop", "syncPoints", "peak"});
        // The tables hold loop and sync points, too, whose changes are reported as facts.
        change.encoding = change.facts.empty()
            ? changedMembers(oldJson, newJson, {"codec", "quality", "bytes", "checksum", "tableBytes"})
            : changedMembers(oldJson, newJson, {"codec", "quality", "bytes", "checksum"});
        if (!change.audio && change.facts.empty() && change.encoding.empty())
            return;
        ++mSummary.changed;
        mReport.changed(change);
    }

    void fail(const Side& side, int index, const base::Error& error)
    {
        std::cerr << "tnb: " << printable(side.path) << ": sound " << index << ": " << printable(error.text) << '\n';
        mSummary.failures.push_back({{"bank", side.label}, {"index", index}, {"error", error.text}});
    }

    Side mOld;
    Side mNew;
    DiffReport& mReport;
    DiffSummary mSummary;
};

std::optional<OpenedBank> openBank(KESS::System& engine, const std::string& path, const Key& key)
{
    base::Result<OpenedBank> bank = OpenedBank::open(engine, path, key);
    if (bank)
        return std::move(*bank);
    std::cerr << "tnb: " << printable(path) << ": " << printable(bank.error().text) << '\n';
    return std::nullopt;
}

} // namespace

base::Result<Status> showDiff(const DiffRequest& request)
{
    const base::Result<Engine> engine = startEngine();
    if (!engine)
        return engine.error();
    std::optional<OpenedBank> oldBank = openBank(**engine, request.oldBank, request.oldKey);
    std::optional<OpenedBank> newBank = openBank(**engine, request.newBank, request.newKey);
    if (!oldBank || !newBank)
        return Status::CannotRead;
    const std::unique_ptr<DiffReport> report = request.json ? makeJsonReport() : makeTextReport();
    return Comparison({"old", request.oldBank, std::move(*oldBank), {}},
                      {"new", request.newBank, std::move(*newBank), {}}, *report)
        .run();
}

} // namespace tnb
