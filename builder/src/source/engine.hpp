// SPDX-License-Identifier: MIT
// The audio engine, which decodes the sources.
#pragma once

#include "base/result.hpp"
#include "kess.hpp"

#include <memory>

namespace builder {

struct KessRelease
{
    void operator()(KESS::System* system) const { system->release(); }
    void operator()(KESS::Sound* sound) const { sound->release(); }
};
using KessSystem = std::unique_ptr<KESS::System, KessRelease>;

// An engine without audio output. ErrorCode::Engine if it can't be started.
base::Result<KessSystem> startEngine();

} // namespace builder
