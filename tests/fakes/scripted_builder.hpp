// SPDX-License-Identifier: MIT
// A builder library that encodes nothing: it records every call, and reports, stalls, fails and cancels as its script
// says.
#pragma once

#include "tarnok.h"

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <vector>

namespace fakes {

struct InitCall
{
    unsigned int flags;
    unsigned int threadCount;
    std::string cacheDirectory;
};

// One report; text is the reason for a failure.
struct Report
{
    int index;
    int thread;
    TARNOK_STATE state;
    std::string text = {};
};

// A report as the library passes it to callers.
struct Item : TARNOK_PROGRESSITEM
{
    explicit Item(const Report& report);
    Item(const Item&) = delete; // it points into itself
    std::string failure; // text of a TARNOK_STATE_DATA_FAILED
};

struct State
{
    // The script of builds that start from now on.
    TARNOK_RESULT initResult = TARNOK_OK;
    TARNOK_RESULT releaseResult = TARNOK_OK;
    TARNOK_RESULT buildResult = TARNOK_OK;
    std::vector<Report> reports; // posted at the start of each build
    std::vector<std::string> remarks; // the same
    bool stall = false; // after posting their reports, builds wait until this is false or they are cancelled

    // The record since the last reset.
    std::vector<InitCall> inits;
    std::vector<std::string> builds; // as text: the settings, then one line per sound
    size_t finished = 0; // builds
    size_t releases = 0;
    std::list<Item> held; // fetched and not released yet
    bool misused = false; // an item was released twice or wasn't ours, or calls came in a forbidden order

    bool initialised = false;
    bool running = false;
    bool cancelled = false;
    std::list<Item> posted;
    std::list<std::string> postedRemarks;
    std::list<Item> forgotten; // held at a reset; they may still be returned
};

// The state of the fake, locked during the lifetime of this object. A cancelled build returns result 2.
class ScriptedBuilder
{
public:
    ScriptedBuilder();
    ~ScriptedBuilder();
    State* operator->() const;

    // Clears script and record. No build may be running.
    void reset();

    // Wakes all waiting threads, and blocks until condition holds. The lock is released meanwhile.
    void waitUntil(const std::function<bool()>& condition);

private:
    std::unique_lock<std::recursive_mutex> mLock;
};

} // namespace fakes
