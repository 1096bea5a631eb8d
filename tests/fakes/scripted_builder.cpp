// SPDX-License-Identifier: MIT
#include "scripted_builder.hpp"

#include <span>
#include <sstream>
#include <utility>

namespace fakes {

namespace {

struct Shared
{
    std::recursive_mutex mutex;
    std::condition_variable_any changed;
    State state;
};

// Never destroyed, because singletons of the system call the library when the process ends.
Shared& shared = *new Shared;

} // namespace

Item::Item(const Report& report)
    : TARNOK_PROGRESSITEM{report.index, report.thread, report.state, 0, nullptr}
    , failure(std::string("\4\0\0\0", 4) + report.text)
{
    if (report.state == TARNOK_STATE_FAILED)
        stateData = failure.data();
}

ScriptedBuilder::ScriptedBuilder()
    : mLock(shared.mutex)
{ }

ScriptedBuilder::~ScriptedBuilder()
{
    shared.changed.notify_all();
}

State* ScriptedBuilder::operator->() const
{
    return &shared.state;
}

void ScriptedBuilder::reset()
{
    State& state = shared.state;
    State fresh;
    fresh.initialised = state.initialised;
    fresh.forgotten.splice(fresh.forgotten.end(), state.forgotten);
    fresh.forgotten.splice(fresh.forgotten.end(), state.held);
    state = std::move(fresh);
}

void ScriptedBuilder::waitUntil(const std::function<bool()>& condition)
{
    shared.changed.notify_all();
    shared.changed.wait(mLock, condition);
}

} // namespace fakes

extern "C" {

TARNOK_RESULT Tarnok_Init(TARNOK_TNBVERSION, unsigned int flags, unsigned int threadCount, const char* cacheDirectory)
{
    const fakes::ScriptedBuilder builder;
    builder->misused |= builder->initialised;
    builder->inits.push_back({flags, threadCount, cacheDirectory});
    builder->initialised = builder->initResult == TARNOK_OK;
    return builder->initResult;
}

TARNOK_RESULT Tarnok_Release(void)
{
    const fakes::ScriptedBuilder builder;
    builder->misused |= !builder->initialised;
    builder->initialised = false;
    ++builder->releases;
    return builder->releaseResult;
}

TARNOK_RESULT Tarnok_Build(const TARNOK_SUBSOUND* subsounds, unsigned int numSubsounds, TARNOK_FORMAT format,
                           unsigned int buildFlags, unsigned int quality, const char* encryptionKey,
                           const char* outputFileName)
{
    std::ostringstream text;
    text << "format " << format << " flags " << buildFlags << " quality " << quality << " key "
         << (encryptionKey ? encryptionKey : "-") << " to " << outputFileName;
    for (const TARNOK_SUBSOUND& sound : std::span(subsounds, numSubsounds)) {
        text << "\nflags " << sound.overrideFlags << " quality " << sound.overrideQuality << " hertz "
             << sound.desiredSampleRate;
        for (const char* file : std::span(sound.fileNames, sound.numFiles))
            text << ' ' << file;
    }

    fakes::ScriptedBuilder builder;
    builder->misused |= !builder->initialised || builder->running;
    builder->running = true;
    builder->cancelled = false;
    builder->posted.insert(builder->posted.end(), builder->reports.begin(), builder->reports.end());
    builder->postedRemarks.assign(builder->remarks.begin(), builder->remarks.end());
    builder->builds.push_back(text.str());
    builder.waitUntil([&] { return !builder->stall || builder->cancelled; });
    builder->running = false;
    ++builder->finished;
    return builder->cancelled ? TARNOK_ERR_CANCELLED : builder->buildResult;
}

TARNOK_RESULT Tarnok_BuildCancel(void)
{
    const fakes::ScriptedBuilder builder;
    builder->cancelled = true;
    return TARNOK_OK;
}

TARNOK_RESULT Tarnok_FetchNextProgressItem(const TARNOK_PROGRESSITEM** item)
{
    const fakes::ScriptedBuilder builder;
    *item = nullptr;
    if (!builder->posted.empty()) {
        builder->held.splice(builder->held.end(), builder->posted, builder->posted.begin());
        *item = &builder->held.back();
    }
    return TARNOK_OK;
}

TARNOK_RESULT Tarnok_ReleaseProgressItem(const TARNOK_PROGRESSITEM* item)
{
    const fakes::ScriptedBuilder builder;
    const auto isIt = [item](const fakes::Item& candidate) {
        return &candidate == item;
    };
    builder->misused |= builder->held.remove_if(isIt) + builder->forgotten.remove_if(isIt) == 0;
    return TARNOK_OK;
}

// Remarks of a script are never too long.
TARNOK_RESULT Tarnok_FetchNextRemark(char* text, unsigned int size)
{
    const fakes::ScriptedBuilder builder;
    std::list<std::string>& remarks = builder->postedRemarks;
    text[remarks.empty() ? 0 : remarks.front().copy(text, size - 1)] = '\0';
    if (!remarks.empty())
        remarks.pop_front();
    return TARNOK_OK;
}

} // extern "C"
