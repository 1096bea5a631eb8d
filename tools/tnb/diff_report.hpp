// SPDX-License-Identifier: MIT
// Prints the differences of two banks as text or JSON.
#pragma once

#include "audio_comparison.hpp"
#include "json.hpp"
#include "sound_pairs.hpp"
#include "status.hpp"

#include <memory>

namespace tnb {

// A sound that exists in both banks but isn't the same. Each member of facts and encoding has an old and a new value.
struct SoundChange
{
    SoundPair pair;
    std::string name;
    std::optional<AudioDifference> audio;
    Json facts;
    Json encoding;
};

struct DiffSummary
{
    bool banksDiffer = false; // apart from their sounds
    size_t removed = 0; // sounds, like the next three
    size_t added = 0;
    size_t moved = 0;
    size_t changed = 0;
    Json failures = Json::array(); // sounds that couldn't be compared

    [[nodiscard]] Status status() const;
};

// Takes the differences in this order and prints them at once, so that memory doesn't grow with their size.
class DiffReport
{
public:
    virtual ~DiffReport() = default;

    virtual void banks(const Json& oldBank, const Json& newBank, const Json& changes) = 0;
    virtual void removed(const std::vector<int>& indices, const SoundNames& oldNames) = 0;
    virtual void added(const std::vector<int>& indices, const SoundNames& newNames) = 0;
    virtual void moved(const std::vector<SoundPair>& pairs, const SoundNames& newNames) = 0;
    virtual void beginChanged() = 0;
    virtual void changed(const SoundChange& change) = 0;
    virtual void finish(const DiffSummary& summary) = 0;

protected:
    DiffReport() = default;
    DiffReport(const DiffReport&) = delete;
    DiffReport& operator=(const DiffReport&) = delete;
};

std::unique_ptr<DiffReport> makeTextReport();
std::unique_ptr<DiffReport> makeJsonReport();

} // namespace tnb
