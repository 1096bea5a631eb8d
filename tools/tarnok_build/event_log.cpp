// SPDX-License-Identifier: MIT
#include "event_log.hpp"

#include "sound_bank.hpp"
#include "utility_functions.hpp"

#include <QFileInfo>

#include <cstdio>

namespace tarnok_build {

namespace {

using nlohmann::ordered_json;

long long millisecondsSince(std::chrono::steady_clock::time_point moment)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - moment).count();
}

const TARNOK_STATE_DATA_FAILED& failureOf(const TARNOK_PROGRESSITEM& item)
{
    return *static_cast<const TARNOK_STATE_DATA_FAILED*>(item.stateData);
}

const char* wordOf(EventLog::Outcome outcome)
{
    static constexpr const char* WORDS[] = {"written", "unchanged", "failed", "refused"};
    return WORDS[static_cast<int>(outcome)];
}

} // namespace

void EventLog::write(const ordered_json& event) const
{
    if (mIsWanted)
        std::printf("%s\n", dumped(event).c_str());
}

void EventLog::fault(const Fault& fault)
{
    ordered_json event = {{"event", "fault"}};
    event.update(asJson(fault));
    write(event);
}

void EventLog::message(const QString& text)
{
    write({{"event", "message"}, {"text", text.toStdString()}});
}

void EventLog::begin(const TARNOK::SoundBank* bank, const QString& output)
{
    mBegan = Clock::now();
    for (const TARNOK::Subsound* subsound : *bank) {
        Sound sound;
        sound.name = subsound->fileName();
        for (const TARNOK::SourceFile* file : *subsound)
            sound.files += file->wholePath();
        mSounds.push_back(sound);
    }
    const TARNOK::SoundProfile& profile = bank->profile();
    ordered_json event = {{"event", "begin"}, {"tool", "tarnok-build"}, {"version", TARNOK_BUILD_VERSION}};
    event["bank"] = output.toStdString();
    event["format"] = TARNOK::formatToString(profile.format());
    if (TARNOK::getFormatType(profile.format()) == TARNOK::FORMAT_TYPE_QUALITY)
        event["quality"] = profile.quality();
    event["encrypted"] = !bank->encryptionKey().isEmpty();
    event["sounds"] = mSounds.size();
    write(event);
}

ordered_json EventLog::soundEvent(int index, const char* state) const
{
    const Sound& sound = mSounds.at(size_t(index));
    ordered_json files = ordered_json::array();
    for (const QString& file : sound.files)
        files.push_back(file.toStdString());
    return {{"event", "sound"}, {"sound", index}, {"name", sound.name.toStdString()},
            {"files", files},   {"state", state}, {"milliseconds", sound.milliseconds}};
}

void EventLog::reported(const TARNOK_PROGRESSITEM& item)
{
    const char* state = TARNOK::buildSystem()->progressMonitor().stateToString(item.state);
    const bool hasFailed = item.state == TARNOK_STATE_FAILED;
    ordered_json event;
    if (item.subSoundIndex >= 0) {
        Sound& sound = mSounds.at(size_t(item.subSoundIndex));
        count(item, &sound);
        event = soundEvent(item.subSoundIndex, state);
        if (item.state == TARNOK_STATE_FINISHED)
            event["source"] = sound.isCached ? "cached" : "encoded";
    } else {
        event = {{"event", "bank"}, {"state", state}, {"milliseconds", millisecondsSince(mBegan)}};
    }
    if (hasFailed) {
        event["code"] = static_cast<int>(failureOf(item).errorCode);
        event["error"] = failureOf(item).errorString;
    }
    write(event);
}

void EventLog::count(const TARNOK_PROGRESSITEM& item, Sound* sound)
{
    if (!sound->isSeen) {
        sound->began = Clock::now();
        sound->isCached = item.state == TARNOK_STATE_FINISHED;
        sound->isSeen = true;
    }
    sound->milliseconds = millisecondsSince(sound->began);
    if (sound->isEnded || (item.state != TARNOK_STATE_FINISHED && item.state != TARNOK_STATE_FAILED))
        return;
    sound->isEnded = true;
    if (item.state == TARNOK_STATE_FAILED)
        ++mFailed;
    else
        ++(sound->isCached ? mCached : mEncoded);
}

void EventLog::ended(TARNOK_RESULT result, const char* text)
{
    mResult = result;
    mResultText = result == TARNOK_OK ? "" : text;
}

void EventLog::sizes(const std::vector<unsigned long long>& bytes)
{
    for (size_t index = 0; index < bytes.size() && index < mSounds.size(); ++index) {
        ordered_json event = soundEvent(int(index), "stored");
        event["source"] = mSounds[index].isCached ? "cached" : "encoded";
        event["bytes"] = bytes[index];
        write(event);
    }
}

void EventLog::end(Outcome outcome, const QString& output, const QString& header)
{
    ordered_json event = {{"event", "end"}, {"result", wordOf(outcome)}};
    if (!output.isEmpty())
        event["bank"] = output.toStdString();
    if (!header.isEmpty())
        event["header"] = header.toStdString();
    event["milliseconds"] = millisecondsSince(mBegan);
    event["sounds"] = mSounds.size();
    event["cached"] = mCached;
    event["encoded"] = mEncoded;
    event["failed"] = mFailed;
    if (outcome == Outcome::Written || outcome == Outcome::Unchanged)
        event["bytes"] = QFileInfo(output).size();
    if (mResult != TARNOK_OK) {
        event["code"] = static_cast<int>(mResult);
        event["error"] = mResultText.toStdString();
    }
    write(event);
}

} // namespace tarnok_build
